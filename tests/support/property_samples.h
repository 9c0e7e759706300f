// Two values of each property that can be set, and what the first of them sends.
#ifndef PROPERTY_SAMPLES_H
#define PROPERTY_SAMPLES_H

#include "tcActor.h"

#include <cstring>
#include <string>
#include <vector>

// The values are written as they are shown. `payload` is how the payload of the message begins.
struct Sample {
    std::string name, first, second;
    uint32_t id;
    std::string payload;
};

inline std::string words(const std::vector<uint32_t>& numbers, int bytes = 4)
{
    std::string text;
    for (const uint32_t number : numbers) {
        text += LittleEndian(number, bytes);
    }
    return text;
}

inline uint32_t floatWord(float number)
{
    uint32_t word = 0;
    std::memcpy(&word, &number, sizeof word);
    return word;
}

inline std::string hex(const std::string& bytes)
{
    std::string text = "0x";
    for (const unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

inline std::string pattern(size_t length, int step)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(static_cast<int>(i) * step % 5);
    }
    return bytes;
}

inline std::vector<Sample> imageSamples()
{
    return {
        {"exposure", "250ms", "90s", 0x20, words({250})},
        {"exposure-ex", "1234", "77", 0x12, words({1234})},
        {"shutter-params", "1,2,-3", "4,4294967295,6", 0x46, words({1, 2, 0xFFFFFFFD})},
        {"shutter-override", "1,0", "0,1", 0x53, words({1, 0})},
        {"area", "1,2,5,2", "0,0,8,4", 0x24, words({1, 2, 5, 2}, 2)},
        {"area-regions", "1,2,5,2/0,1,8,3", "0,0,8,4", 0x1A,
         std::string("\0\2", 2) + words({2, 1}) + std::string(56, '\0') + words({1, 0}) +
             std::string(56, '\0') + words({2, 3}) + std::string(56, '\0') + words({5, 8})},
        {"image-interval", "1500ms", "2s", 0x4A, words({1500})},
        {"mirroring", "on,off", "off,on", 0x51, words({1, 0})},
        {"shearing", "-1,2,3,4", "5,6,7,8", 0x49, words({0xFFFFFFFF, 2, 3, 4})},
        {"test-pattern", "5,7,9", "0", 0x5B, words({5}) + words({7, 9, 0}, 2)},
        {"offset", "1200,on", "300,off", 0x3B, words({1200, 1}, 2)},
        {"recording", "1,2,3,a text, and more", "4,5,6,", 0x1C,
         words({1, 2, 3}) + std::string("a text, and more\0", 17)},
    };
}

inline std::vector<Sample> binningSamples()
{
    const std::string mask = pattern(size_t{64} * 32, 2), other = pattern(size_t{64} * 32, 3);
    return {
        {"simple-binning", "2,3,1.5", "4,4,0", 0x15, words({2, 3, floatWord(1.5F)})},
        {"binning-sequence", "1,2/3,4", "7,7", 0x50,
         words({2}) + std::string("\1\3") + std::string(14, '\0') + "\2\4"},
        {"bin-table:3", hex(pattern(32, 2)), hex(pattern(32, 3)), 0x25,
         words({3}) + words({0, 32}, 2) + pattern(32, 2)},
        {"hor-bin-table:7", hex(pattern(64, 2)), hex(pattern(64, 3)), 0x4F,
         words({7}) + words({0, 64}, 2) + pattern(64, 2)},
        {"bin-mask", hex(mask), hex(other), 0x43,
         mask.substr(mask.size() - 32) + std::string(480, '\0') + words({31, 2}, 2)},
    };
}

inline std::vector<Sample> controlSamples()
{
    return {
        {"cooling", "on", "off", 0x21, words({1})},
        {"target-temp", "-19.9C", "20.1C", 0x4D, words({static_cast<uint32_t>(-199)})},
        {"fan", "off", "on", 0x48, words({0})},
        {"pid", "1.5,0.25,-2", "3,0,0.1", 0x2C,
         words({floatWord(1.5F), floatWord(0.25F), floatWord(-2)})},
        {"trigger", "1", "0", 0x58, words({1})},
        {"trigger-mode", "frame,3,-4", "off,0,0", 0x5E, words({2, 3, 0xFFFFFFFC})},
        {"auto-rearm", "off", "on", 0x17, words({0})},
        {"gpio:31", "high", "low", 0x56, words({31, 1})},
        {"gain", "7", "2", 0x2A, words({7})},
        {"filter", "on,off", "off,on", 0x2E, words({1, 0})},
        {"dac:200", "4000,1", "5,0", 0x28, words({4000}, 2) + words({200, 1}, 1)},
        {"cis-shutter-mode", "global", "rolling", 0x1D, words({1})},
        {"cis-channel", "both", "low-gain", 0x1E, words({2})},
        {"cis-calibrate", "2", "1", 0x1F, words({2})},
    };
}

inline std::vector<Sample> blockSamples()
{
    const std::string hardware = words({1}) + "my camera";
    return {
        {"parameter:1000", "4294967295", "5", 0x13, words({1000, 0xFFFFFFFF})},
        {"parameter-int:1001", "-5", "7", 0x13, words({1001, 0xFFFFFFFB})},
        {"parameter-float:1002", "-0.1", "1e+20", 0x13, words({1002, floatWord(-0.1F)})},
        {"parameter-text:1003", "hello, you", "x", 0x13, words({1003}) + "hello, you"},
        {"parameter-bytes:1004", "0x0102030405", "0xff", 0x13, words({1004}) + "\1\2\3\4\5"},
        {"register:0x10", "0x12345678", "0xffffffff", 0x27, words({16, 0x12345678})},
        {"network-config", "0x01020304,0x00000002,0x00000003,0x00000004,0x00000005,6",
         "0x00000000,0x00000001,0x00000000,0x00000000,0x00000000,65535", 0x42,
         words({0x01020304, 2, 3, 4, 5}) + words({6}, 2)},
        {"hardware-info", hex(hardware + "0"), hex(hardware + "1"), 0x40, hardware + "0"},
        {"timing-data", hex(pattern(4356, 2)), hex(pattern(4356, 3)), 0x54, pattern(4356, 2)},
    };
}

inline std::vector<Sample> allSamples()
{
    std::vector<Sample> all;
    for (auto part : {imageSamples, binningSamples, controlSamples, blockSamples}) {
        const std::vector<Sample> samples = part();
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

#endif

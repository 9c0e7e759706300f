// Bytes as they stand in the tables of the protocol: written in hexadecimal, some of them
// undefined.
#ifndef TCPATTERN_H
#define TCPATTERN_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using tBytes = std::vector<uint8_t>;

// A sequence of bytes, of which those that no table defines are left open.
class tcPattern
{
public:
    tcPattern() = default;
    // "0A FF .. 00": two digits a byte, ".." for any byte.
    tcPattern(const char* text)
    {
        for (const char* at = text; *at;) {
            if (*at == ' ') {
                ++at;
                continue;
            }
            const bool open = strncmp(at, "..", 2) == 0;
            const char digits[] = {at[0], at[1], 0};
            maBytes.push_back(open ? kOpen : static_cast<int>(strtol(digits, nullptr, 16)));
            at += 2;
        }
    }
    tcPattern(const tBytes& bytes) : maBytes(bytes.begin(), bytes.end()) {}

    static tcPattern Open(size_t count) { return tcPattern(count, kOpen); }
    static tcPattern Zeros(size_t count) { return tcPattern(count, 0); }

    tcPattern operator+(const tcPattern& other) const
    {
        tcPattern sum = *this;
        sum.maBytes.insert(sum.maBytes.end(), other.maBytes.begin(), other.maBytes.end());
        return sum;
    }

    size_t size() const { return maBytes.size(); }

    // The bytes to send; open ones are 0xEE, which nobody may depend on.
    tBytes Bytes() const
    {
        tBytes bytes;
        for (int byte : maBytes)
            bytes.push_back(byte == kOpen ? 0xEE : static_cast<uint8_t>(byte));
        return bytes;
    }

    // Whether bytes that came are these; if not, tells the offset of the first that is different.
    testing::AssertionResult Fits(const tBytes& bytes) const
    {
        if (bytes.size() != maBytes.size()) {
            return testing::AssertionFailure()
                   << bytes.size() << " bytes instead of " << maBytes.size() << ": " << Text(bytes);
        }
        for (size_t i = 0; i < maBytes.size(); ++i) {
            if (maBytes[i] != kOpen && maBytes[i] != bytes[i]) {
                return testing::AssertionFailure()
                       << "offset " << i << " is " << Text({bytes[i]}) << "instead of "
                       << Text({static_cast<uint8_t>(maBytes[i])}) << "in: " << Text(bytes);
            }
        }
        return testing::AssertionSuccess();
    }

    static std::string Text(const tBytes& bytes)
    {
        std::string text;
        for (size_t i = 0; i < bytes.size() && i < 64; ++i) {
            char digits[8];
            snprintf(digits, sizeof digits, "%02X ", bytes[i]);
            text += digits;
        }
        return text + (bytes.size() > 64 ? "..." : "");
    }

private:
    static constexpr int kOpen = -1;
    tcPattern(size_t count, int byte) : maBytes(count, byte) {}

    std::vector<int> maBytes;
};

// `count` bytes of which no piece looks like another, wherever it is cut.
inline tBytes Mixed(size_t count, unsigned seed = 1)
{
    tBytes bytes;
    for (unsigned state = seed; bytes.size() < count;) {
        state = state * 1103515245U + 12345U;
        bytes.push_back(static_cast<uint8_t>(state >> 16));
    }
    return bytes;
}

#endif

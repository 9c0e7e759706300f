// The table of properties: each can be set and read back, and each sends what it should.
#include "properties.h"

#include "failure.h"
#include "tcSession.h"
#include "tool_support.h"
#include "vxcamiface.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <set>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr tsSize gtSensor{64, 32};

std::string Words(const std::vector<uint32_t>& words, int bytes = 4)
{
    std::string text;
    for (uint32_t word : words) {
        text += LittleEndian(word, bytes);
    }
    return text;
}

uint32_t FloatWord(float number)
{
    uint32_t word = 0;
    std::memcpy(&word, &number, sizeof word);
    return word;
}

std::string Hex(const std::string& bytes)
{
    std::string text = "0x";
    for (unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

// Two values of each property that can be set, and what the first of them sends: the id of the
// message, and how its payload begins. The values are written as they are shown.
struct tsSample {
    std::string name, first, second;
    uint32_t id;
    std::string payload;
};

std::string Pattern(size_t length, int step)
{
    std::string bytes;
    for (size_t i = 0; i < length; ++i) {
        bytes += static_cast<char>(static_cast<int>(i) * step % 5);
    }
    return bytes;
}

std::vector<tsSample> ImageSamples()
{
    return {
        {"exposure", "250ms", "90s", 0x20, Words({250})},
        {"exposure-ex", "1234", "77", 0x12, Words({1234})},
        {"shutter-params", "1,2,-3", "4,4294967295,6", 0x46, Words({1, 2, 0xFFFFFFFD})},
        {"shutter-override", "1,0", "0,1", 0x53, Words({1, 0})},
        {"area", "1,2,5,2", "0,0,8,4", 0x24, Words({1, 2, 5, 2}, 2)},
        {"area-regions", "1,2,5,2/0,1,8,3", "0,0,8,4", 0x1A,
         std::string("\0\2", 2) + Words({2, 1}) + std::string(56, '\0') + Words({1, 0}) +
             std::string(56, '\0') + Words({2, 3}) + std::string(56, '\0') + Words({5, 8})},
        {"image-interval", "1500ms", "2s", 0x4A, Words({1500})},
        {"mirroring", "on,off", "off,on", 0x51, Words({1, 0})},
        {"shearing", "-1,2,3,4", "5,6,7,8", 0x49, Words({0xFFFFFFFF, 2, 3, 4})},
        {"test-pattern", "5,7,9", "0", 0x5B, Words({5}) + Words({7, 9, 0}, 2)},
        {"offset", "1200,on", "300,off", 0x3B, Words({1200, 1}, 2)},
        {"recording", "1,2,3,a text, and more", "4,5,6,", 0x1C,
         Words({1, 2, 3}) + std::string("a text, and more\0", 17)},
    };
}

std::vector<tsSample> BinningSamples()
{
    const std::string mask = Pattern(size_t{64} * 32, 2), other = Pattern(size_t{64} * 32, 3);
    return {
        {"simple-binning", "2,3,1.5", "4,4,0", 0x15, Words({2, 3, FloatWord(1.5F)})},
        {"binning-sequence", "1,2/3,4", "7,7", 0x50,
         Words({2}) + std::string("\1\3") + std::string(14, '\0') + "\2\4"},
        {"bin-table:3", Hex(Pattern(32, 2)), Hex(Pattern(32, 3)), 0x25,
         Words({3}) + Words({0, 32}, 2) + Pattern(32, 2)},
        {"hor-bin-table:7", Hex(Pattern(64, 2)), Hex(Pattern(64, 3)), 0x4F,
         Words({7}) + Words({0, 64}, 2) + Pattern(64, 2)},
        {"bin-mask", Hex(mask), Hex(other), 0x43,
         mask.substr(mask.size() - 32) + std::string(480, '\0') + Words({31, 2}, 2)},
    };
}

std::vector<tsSample> ControlSamples()
{
    return {
        {"cooling", "on", "off", 0x21, Words({1})},
        {"target-temp", "-19.9C", "20.1C", 0x4D, Words({static_cast<uint32_t>(-199)})},
        {"fan", "off", "on", 0x48, Words({0})},
        {"pid", "1.5,0.25,-2", "3,0,0.1", 0x2C,
         Words({FloatWord(1.5F), FloatWord(0.25F), FloatWord(-2)})},
        {"trigger", "1", "0", 0x58, Words({1})},
        {"trigger-mode", "frame,3,-4", "off,0,0", 0x5E, Words({2, 3, 0xFFFFFFFC})},
        {"auto-rearm", "off", "on", 0x17, Words({0})},
        {"gpio:31", "high", "low", 0x56, Words({31, 1})},
        {"gain", "7", "2", 0x2A, Words({7})},
        {"filter", "on,off", "off,on", 0x2E, Words({1, 0})},
        {"dac:200", "4000,1", "5,0", 0x28, Words({4000}, 2) + Words({200, 1}, 1)},
        {"cis-shutter-mode", "global", "rolling", 0x1D, Words({1})},
        {"cis-channel", "both", "low-gain", 0x1E, Words({2})},
        {"cis-calibrate", "2", "1", 0x1F, Words({2})},
    };
}

std::vector<tsSample> BlockSamples()
{
    const std::string hardware = Words({1}) + "my camera";
    return {
        {"parameter:1000", "4294967295", "5", 0x13, Words({1000, 0xFFFFFFFF})},
        {"parameter-int:1001", "-5", "7", 0x13, Words({1001, 0xFFFFFFFB})},
        {"parameter-float:1002", "-0.1", "1e+20", 0x13, Words({1002, FloatWord(-0.1F)})},
        {"parameter-text:1003", "hello, you", "x", 0x13, Words({1003}) + "hello, you"},
        {"parameter-bytes:1004", "0x0102030405", "0xff", 0x13, Words({1004}) + "\1\2\3\4\5"},
        {"register:0x10", "0x12345678", "0xffffffff", 0x27, Words({16, 0x12345678})},
        {"network-config", "0x01020304,0x00000002,0x00000003,0x00000004,0x00000005,6",
         "0x00000000,0x00000001,0x00000000,0x00000000,0x00000000,65535", 0x42,
         Words({0x01020304, 2, 3, 4, 5}) + Words({6}, 2)},
        {"hardware-info", Hex(hardware + "0"), Hex(hardware + "1"), 0x40, hardware + "0"},
        {"timing-data", Hex(Pattern(4356, 2)), Hex(Pattern(4356, 3)), 0x54, Pattern(4356, 2)},
    };
}

std::vector<tsSample> Samples()
{
    std::vector<tsSample> all;
    for (auto part : {ImageSamples, BinningSamples, ControlSamples, BlockSamples}) {
        const std::vector<tsSample> samples = part();
        all.insert(all.end(), samples.begin(), samples.end());
    }
    return all;
}

tsSetting ValueOf(const tsNamed& named, const std::string& text)
{
    return ParseSetting(named.text, named.property->shape, text);
}

// What a failing piece of code says.
std::string FailureOf(const std::function<void()>& code, int exitCode)
{
    try {
        code();
    } catch (const tcFailure& failure) {
        EXPECT_EQ(failure.Code(), exitCode);
        return failure.what();
    }
    return "no failure";
}

} // namespace

TEST(Properties, HaveASampleHereWhenTheyCanBeSet)
{
    std::vector<std::string> sampled, settable;
    for (const tsSample& sample : Samples()) {
        sampled.push_back(NameText(*FindProperty(sample.name).property));
    }
    for (const tsProperty& property : Properties()) {
        if (property.write != nullptr) settable.push_back(NameText(property));
    }
    EXPECT_THAT(sampled, testing::UnorderedElementsAreArray(settable));
}

TEST(Properties, HaveNamesOfTheirOwnAndSomeUse)
{
    std::set<std::string> names;
    for (const tsProperty& property : Properties()) {
        EXPECT_TRUE(names.insert(NameText(property)).second) << property.name;
        EXPECT_TRUE(property.read != nullptr || property.write != nullptr) << property.name;
        EXPECT_STRNE(property.summary, "") << property.name;
    }
    EXPECT_EQ(names.count("get") + names.count("set"), 0u); // words of the verbs
}

// A later value replaces an earlier one, so that what is read is what was set.
TEST(Properties, ThatCanBeSetReadBackWhatWasSet)
{
    tcSession session({}, {gtSensor, 1, 1.0});
    for (const tsSample& sample : Samples()) {
        const tsNamed named = FindProperty(sample.name);
        const tsShape& shape = named.property->shape;
        ASSERT_NE(sample.first, sample.second);
        for (const std::string& text : {sample.first, sample.second, sample.first}) {
            WriteProperty(session, named, ValueOf(named, text));
            if (named.property->read == nullptr) continue;
            const std::string told = SettingText(shape, ReadProperty(session, named));
            if (shape.fields[0].kind == teField::eBytes) { // may be longer
                EXPECT_THAT(told, StartsWith(text)) << sample.name;
            } else {
                EXPECT_EQ(told, text) << sample.name;
            }
        }
    }
}

TEST(Properties, SendTheirMessages)
{
    for (const tsSample& sample : Samples()) {
        tcActor camera({{0x3B, MessageBytes(0x6A, "")}, {0x34, HardwareAnswer(32, 64)}});
        tcSession session(ParseTarget(camera.Target()), {});
        const tsNamed named = FindProperty(sample.name);
        EXPECT_EQ(0, named.property->write(session, named.key, ValueOf(named, sample.first)));
        ASSERT_TRUE(WaitUntil([&] {
            session.RoundTrip();
            return !camera.Payload(sample.id).empty();
        })) << sample.name;
        EXPECT_EQ(Hex(camera.Payload(sample.id)).substr(0, 2 + 2 * sample.payload.size()),
                  Hex(sample.payload))
            << sample.name;
    }
}

TEST(Properties, ThatCanOnlyBeReadAreReadable)
{
    tcSession session({}, {gtSensor, 1, 1.0});
    const auto text = [&](const std::string& name) {
        const tsNamed named = FindProperty(name);
        return SettingText(named.property->shape, ReadProperty(session, named));
    };
    EXPECT_EQ(text("ccd-temp"), "20C");
    EXPECT_EQ(text("board-temp"), "25C");
    EXPECT_EQ(text("readout-noise"), "6,6");
    EXPECT_EQ(text("gain-config"), "0,1,7");
    EXPECT_EQ(text("image-intervals"), "0s,0s,0s,0s");
    EXPECT_EQ(text("cis-calibration-state"), "0");
    EXPECT_EQ(text("gpio"), "0x00000000");
    EXPECT_EQ(text("area"), "none");
    EXPECT_EQ(text("parameter-text:3"), "vxcamsim");
    EXPECT_EQ(text("parameter:2"), "1");
    EXPECT_EQ(text("parameter-float:5"), "20");
}

TEST(Properties, TargetTemperaturesAreSentToTheNearestTenth)
{
    tcSession session({}, {gtSensor, 1, 1.0});
    const tsNamed named = FindProperty("target-temp");
    for (int tenths = -600; tenths <= 500; ++tenths) {
        tsSetting setting;
        setting.numbers = {static_cast<float>(tenths / 10.0)};
        const tsSetting told = WriteProperty(session, named, setting);
        ASSERT_EQ(tenths, std::lround(told.numbers[0] * 10.0));
    }
}

TEST(Properties, NamesThatAreUnknownBringNearOnes)
{
    const auto text = [](const std::string& name) {
        return FailureOf([&] { FindProperty(name); }, eExitUsage);
    };
    EXPECT_EQ(text("gian"), "unknown property 'gian', did you mean gain?");
    EXPECT_THAT(text("temp"), HasSubstr("did you mean target-temp, ccd-temp, board-temp"));
    EXPECT_THAT(text("expossure"), HasSubstr("did you mean exposure"));
    EXPECT_EQ(text("qqqq"), "unknown property 'qqqq' (vxcam get --help lists them)");
}

TEST(Properties, KeysAreChecked)
{
    const auto text = [](const std::string& name) {
        return FailureOf([&] { FindProperty(name); }, eExitUsage);
    };
    EXPECT_EQ(text("register"), "property 'register': write register:ADDRESS");
    EXPECT_EQ(text("gain:1"), "property 'gain:1': write gain");
    EXPECT_EQ(text("gpio:32"), "gpio:32: PIN is a number from 0 to 31");
    EXPECT_EQ(text("register:x"), "register:x: ADDRESS is a number from 0 to 4294967295");
    EXPECT_EQ(text("register:"), "register:: ADDRESS is a number from 0 to 4294967295");
    EXPECT_EQ(FindProperty("register:0xFFFFFFFF").key, 0xFFFFFFFF);
    EXPECT_EQ(FindProperty("gpio").property->key, nullptr);
}

TEST(Properties, ParametersOfAnotherSizeAndUnknownOnesAreCameraErrors)
{
    tcSession session({}, {gtSensor, 1, 1.0});
    const auto text = [&](const std::string& name) {
        return FailureOf([&] { ReadProperty(session, FindProperty(name)); }, eExitCamera);
    };
    EXPECT_EQ(text("parameter:3"), "parameter 3: it has not 4 bytes, try parameter-bytes:3");
    EXPECT_THAT(text("parameter:99"), StartsWith("parameter 99: the camera answers status 1"));
    EXPECT_THAT(text("parameter-bytes:99"), StartsWith("parameter 99: the camera answers"));
}

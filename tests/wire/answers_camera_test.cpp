// Cooling, triggers, pins, hardware, blocks and parameters: each question of the C interface as
// bytes, the answer as bytes, and what the caller gets.
#include "answers_support.h"
#include "tcWirePeer.h"

#include <tcVXCamera.h>

namespace {

TEST(WireAnswers, OfCooling)
{
    Walk({
        {"cooling", One<int, VXGetCooling>, 0x31, "", 0x61, "11 12 13 14", Told(0, 0x14131211)},
        {"target above zero", One<float, VXGetCCDTargetTemp>, 0x4E, "", 0x7B, "56 01 00 00",
         Told(0, 34.2F)},
        {"target below zero", One<float, VXGetCCDTargetTemp>, 0x4E, "", 0x7B, "85 FF FF FF",
         Told(0, -12.3F)},
        {"target in four bytes", One<float, VXGetCCDTargetTemp>, 0x4E, "", 0x7B, "00 00 E8 03",
         Told(0, 6553600.0F)},
        {"controller",
         [](int h) {
             tsSetPIDCmd terms{};
             const int result = VXEngineeringCommand(h, 106, &terms);
             return Told(result, terms.P, terms.I, terms.D);
         },
         0x2D, "", 0x85, "DB 0F 49 40  54 F8 2D 40  79 E9 F6 C2",
         Told(0, 3.14159274F, 2.71828175F, -123.456001F)},
    });
}

TEST(WireAnswers, OfTriggersPinsAndGain)
{
    Walk({
        {"trigger", One<int, VXGetTrigger>, 0x59, "", 0x7F, "11 12 13 14", Told(0, 0x14131211)},
        {"trigger mode",
         [](int h) {
             teExtTrigMode mode = eExtTrigOff;
             int first = -1, second = -1;
             const int result = VXGetTriggerMode(h, &mode, &first, &second);
             return Told(result, int(mode), first, second);
         },
         0x5F, "", 0x87, "03 00 00 00  11 12 13 14  21 22 23 24",
         Told(0, 3, 0x14131211, 0x24232221)},
        {"re-arm", One<int, VXGetAutoTriggerReArm>, 0x18, "", 0x8B, "11 12 13 14",
         Told(0, 0x14131211)},
        {"pins", [](int h) { return Told(VXGetGPIO(h)); }, 0x57, "", 0x7E, "11 12 13 14",
         Told(0x14131211)},
        {"gain",
         [](int h) {
             int first = -1, third = -1;
             float second = 0;
             const int result = VXGetGainConfig(h, &first, &second, &third);
             return Told(result, first, second, third);
         },
         0x2B, "", 0x84,
         "11 12 13 14  DB 0F 49 40  31 32 33 34  D1 D2 D3 D4 D5 D6 D7 D8 D9 DA DB DC",
         Told(0, 0x14131211, 3.14159274F, 0x34333231)},
        {"filters",
         [](int h) {
             tsSetFilterCmd filters{9, 9};
             const int result = Camera(h)->GetFilter(&filters);
             return Told(result, filters.First, filters.Second);
         },
         0x2F, "", 0x86, "00 00 00 00  00 00 00 01", Told(0, 0, 1)},
        {"the other filter",
         [](int h) {
             tsSetFilterCmd filters{9, 9};
             const int result = Camera(h)->GetFilter(&filters);
             return Told(result, filters.First, filters.Second);
         },
         0x2F, "", 0x86, "00 80 00 00  00 00 00 00", Told(0, 1, 0)},
    });
}

template <int Room>
std::string TellHardware(int handle)
{
    tBytes bytes(104, 0xCC);
    int size = Room;
    const int result =
        VXGetCameraHardwareInfo(handle, reinterpret_cast<TVXCameraHardware*>(bytes.data()), &size);
    std::string text = Told(result, size);
    for (size_t at = 0; at < 104; at += 52)
        text += tcPattern::Text(tBytes(bytes.begin() + long(at), bytes.begin() + long(at) + 52));
    return text;
}

// The first `count` bytes, and what stood behind them before.
std::string Beginning(tBytes bytes, size_t count)
{
    bytes.resize(count);
    bytes.resize(104, 0xCC);
    return tcPattern::Text(tBytes(bytes.begin(), bytes.begin() + 52)) +
           tcPattern::Text(tBytes(bytes.begin() + 52, bytes.end()));
}

TEST(WireAnswers, OfTheHardware)
{
    const tBytes hardware = Mixed(100, 7);
    const tBytes some(hardware.begin(), hardware.begin() + 37);
    Walk({
        {"whole", TellHardware<100>, 0x34, "", 0x64, hardware,
         Told(0, 100) + Beginning(hardware, 100)},
        {"less room", TellHardware<50>, 0x34, "", 0x64, hardware,
         Told(0, 50) + Beginning(hardware, 50)},
        {"shorter answer", TellHardware<100>, 0x34, "", 0x64, some,
         Told(0, 37) + Beginning(some, 37)},
    });
}

TEST(WireAnswers, GiveTheSensorsRowsAndColumns)
{
    tcWirePeer peer(0x0321, 0x0204);
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    TVXCameraHardware info{};
    int size = sizeof info;
    auto asked =
        tcWirePeer::Asked([&] { return VXGetCameraHardwareInfo(peer.Handle(), &info, &size); });
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x34, ""));
    peer.Say(0x64, peer.Hardware());
    EXPECT_EQ(Told(asked.get(), info.Rows, info.Columns), Told(0, 0x0321, 0x0204));
}

TEST(WireAnswers, OfBlocks)
{
    const tBytes timing = Mixed(4356, 12);
    Walk({
        {"network",
         [](int h) {
             TVXNetworkConfig config{};
             const int result = VXGetCameraNetworkConfig(h, &config);
             return Told(result, config.Words[0], config.Words[1], config.Words[2], config.Words[3],
                         config.Words[4], config.Value);
         },
         0x41, "", 0x76, "11 12 13 14  21 22 23 24  31 32 33 34  41 42 43 44  F1 F2 F3 F4  51 F2",
         Told(0, 0x14131211U, 0x24232221U, 0x34333231U, 0x44434241U, 0xF4F3F2F1U, 0xF251U)},
        {"timing data",
         [](int h) {
             tBytes data(4357, 0xCC);
             int size = 4356;
             const int result = VXGetTimingData(h, data.data(), &size);
             return Told(
                 result, size, data == [] {
                     tBytes expected = Mixed(4356, 12);
                     expected.push_back(0xCC);
                     return expected;
                 }());
         },
         0x55, "", 0x7D, timing, Told(0, 4356, true)},
        {"register",
         [](int h) {
             uint32_t words[] = {0x14131211, 0, 0xCCCCCCCC};
             const int result = VXEngineeringCommand(h, 100, words);
             return Told(result, words[0], words[1], words[2]);
         },
         0x38, "11 12 13 14  .. .. .. ..", 0x70, "F1 F2 F3 F4",
         Told(0, 0x14131211U, 0xF4F3F2F1U, 0xCCCCCCCCU)},
    });
}

template <int Size>
std::string TellParameter(int handle)
{
    tBytes value(Size + 1, 0xCC);
    const int result = VXGetParameter(handle, 0xF4F3F2F1, value.data(), Size);
    return Told(result) + tcPattern::Text(value);
}

TEST(WireAnswers, OfParameters)
{
    Walk({
        {"value", TellParameter<5>, 0x14, "F1 F2 F3 F4", 0x8D,
         "F1 F2 F3 F4  00 00 00 00  61 62 63 64 65", Told(0) + "61 62 63 64 65 CC "},
        {"status", TellParameter<5>, 0x14, "F1 F2 F3 F4", 0x8D,
         "00 00 00 00  11 12 13 14  61 62 63 64 65", Told(0x14131211) + "CC CC CC CC CC CC "},
        {"another size", TellParameter<5>, 0x14, "F1 F2 F3 F4", 0x8D,
         "00 00 00 00  00 00 00 00  61 62 63 64", Told(-5) + "CC CC CC CC CC CC "},
    });
}

} // namespace

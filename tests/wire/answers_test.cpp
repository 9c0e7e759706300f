// What the library asks and what it understands: each question of the C interface as bytes, the
// answer as bytes, and what the caller gets.
#include "tcWirePeer.h"

#include <tcVXCamera.h>

namespace {

struct tsAnswerCase {
    const char* Name;
    std::string (*Call)(int handle);
    unsigned Question;
    tcPattern Asks;
    unsigned Answer;
    tcPattern Says;
    std::string Expected;
};

tcVXCamera* Camera(int handle)
{
    return tcVXCamera::gpCameraMap->at(unsigned(handle));
}

void Converse(tcWirePeer& peer, const tsAnswerCase& one)
{
    SCOPED_TRACE(one.Name);
    auto told = tcWirePeer::Asked([&] { return one.Call(peer.Handle()); });
    ASSERT_NO_FATAL_FAILURE(peer.Hears(one.Question, one.Asks));
    peer.Say(one.Answer, one.Says);
    EXPECT_EQ(told.get(), one.Expected);
}

void Walk(const std::vector<tsAnswerCase>& cases)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    for (const tsAnswerCase& one : cases)
        ASSERT_NO_FATAL_FAILURE(Converse(peer, one));
}

// A getter with one output, which is all ones before.
template <class tValue, int (*Function)(int, tValue*)>
std::string One(int handle)
{
    tValue value{};
    memset(&value, 0xFF, sizeof value);
    const int result = Function(handle, &value);
    return Told(result, value);
}

TEST(WireAnswers, OfExposureAndShutter)
{
    Walk({
        {"exposure", One<long, VXGetExposureTime>, 0x30, "", 0x60, "F1 F2 F3 F4",
         Told(0, 0xF4F3F2F1L)},
        {"exposure, extended", One<long, VXGetExposureTimeEx>, 0x11, "", 0x60, "F1 F2 F3 F4",
         Told(0, 0xF4F3F2F1L)},
        {"shutter parameters",
         [](int h) {
             long first = -1, second = -1;
             int third = -1;
             const int result = VXGetShutterParams(h, &first, &second, &third);
             return Told(result, first, second, third);
         },
         0x47, "", 0x79, "F1 F2 F3 F4  21 22 23 24  31 32 33 34",
         Told(0, 0xF4F3F2F1L, 0x24232221L, 0x34333231)},
        {"shutter close delay",
         [](int h) {
             long delay = -1;
             const int result = Camera(h)->GetShutterCloseDelay(&delay);
             return Told(result, delay);
         },
         0x47, "", 0x79, "11 12 13 14  21 22 23 24  31 32 33 34", Told(0, 0x14131211L)},
        {"image intervals",
         [](int h) {
             unsigned long first = 1, second = 2, third = 3, fourth = 4;
             const int result = VXGetImageIntervals(h, &first, &second, &third, &fourth);
             return Told(result, first, second, third, fourth);
         },
         0x4B, "", 0x7A, "11 12 13 14  21 22 23 24  31 32 33 34  F1 F2 F3 F4",
         Told(0, 0x14131211UL, 0x24232221UL, 0x34333231UL, 0xF4F3F2F1UL)},
    });
}

TEST(WireAnswers, OfTheImage)
{
    Walk({
        {"mirroring",
         [](int h) {
             unsigned horizontal = 1, vertical = 2;
             const int result = VXGetCCDImageMirroring(h, &horizontal, &vertical);
             return Told(result, horizontal, vertical);
         },
         0x52, "", 0x7C, "11 12 13 14  F1 F2 F3 F4", Told(0, 0x14131211U, 0xF4F3F2F1U)},
        {"readout noise",
         [](int h) {
             float first = 0, second = 0;
             const int result = VXGetReadoutNoise(h, &first, &second);
             return Told(result, first, second);
         },
         0x3E, "", 0x73, "DB 0F 49 40  79 E9 F6 C2", Told(0, 3.14159274F, -123.456001F)},
        {"offset, acknowledged", [](int h) { return Told(VXSetCCDOffset(h, 0x1211, true)); }, 0x3B,
         "11 12  01 00", 0x6A, "", Told(0)},
        {"offset without the flag", [](int h) { return Told(VXSetCCDOffset(h, 0xF2F1, false)); },
         0x3B, "F1 F2  00 00", 0x6A, "", Told(0)},
        {"calibration", One<int, VXCISCalibrationState>, 0x1B, "", 0x89, "11 12 13 14",
         Told(0, 0x14131211)},
    });
}

std::string TellRegions(int handle)
{
    int first = -1, count = -1, rows[16], columns[16], heights[16], widths[16];
    std::ostringstream text;
    text << VXGetAreaEx(handle, &first, &count, rows, columns, heights, widths) << ' ' << first
         << ' ' << count;
    for (const int* numbers : {rows, columns, heights, widths}) {
        for (int i = 0; i < 16; ++i)
            text << ' ' << std::hex << numbers[i] << std::dec;
    }
    return text.str();
}

// Sixteen words whose lowest and highest bytes count.
tcPattern Words(unsigned b0, unsigned b1, unsigned b2, unsigned b3)
{
    tBytes bytes;
    for (unsigned i = 0; i < 16; ++i) {
        for (unsigned byte : {b0 + i, b1, b2, b3 + i})
            bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}

TEST(WireAnswers, OfRegions)
{
    std::ostringstream told;
    told << "0 169 16" << std::hex;
    for (unsigned first : {0x01AA1110U, 0x11BB2220U, 0x21CC3330U, 0x31DD4440U}) {
        for (unsigned i = 0; i < 16; ++i)
            told << ' ' << first + i * 0x01000001U;
    }
    Walk({
        {"sixteen regions", TellRegions, 0x19, "", 0x8A,
         tcPattern("A9 10") + Words(0x10, 0x11, 0xAA, 0x01) + Words(0x20, 0x22, 0xBB, 0x11) +
             Words(0x30, 0x33, 0xCC, 0x21) + Words(0x40, 0x44, 0xDD, 0x31),
         told.str()},
    });
}

// A getter of a binning table, with room for `room` bytes; tells the table's bytes as a sum that
// weighs each by its place.
std::string TellTable(int handle, int (*get)(int, int, unsigned char*, int*), int index, int room)
{
    tBytes table(4096, 0xCC);
    int size = room;
    const int result = get(handle, index, table.data(), &size);
    return Told(result, size) + tcPattern::Text(tBytes(table.begin(), table.begin() + 8)) +
           (result == 0 && size > 8
                ? tcPattern::Text({table[size_t(size) - 1], table[size_t(size)]})
                : "");
}

TEST(WireAnswers, OfBinningTables)
{
    // A table of 0x0321 bytes: its first eight, its last one, and what stood behind it before.
    const tBytes table = Mixed(2048, 11);
    const std::string first = tcPattern::Text(tBytes(table.begin(), table.begin() + 8));
    const std::string whole =
        Told(0, 0x0321) + first + tcPattern::Text({table[0x0320], uint8_t(0xCC)});
    const tcPattern says = tcPattern("05 00 00 00  00 00  21 03") + table;
    Walk({
        {"vertical", [](int h) { return TellTable(h, VXGetBinParam, 5, 2048); }, 0x33,
         "05 00 00 00", 0x63, says, whole},
        {"horizontal", [](int h) { return TellTable(h, VXGetHorBinParam, 5, 2048); }, 0x5A,
         "05 00 00 00", 0x80, says, whole},
        {"just room enough", [](int h) { return TellTable(h, VXGetBinParam, 7, 0x0321); }, 0x33,
         "07 00 00 00", 0x63, says, whole},
        {"too little room", [](int h) { return TellTable(h, VXGetHorBinParam, 0, 0x0320); }, 0x5A,
         "00 00 00 00", 0x80, says, Told(-4, 0x0321) + tcPattern::Text(tBytes(8, 0xCC))},
    });
}

TEST(WireAnswers, OfBinning)
{
    Walk({
        {"sequence",
         [](int h) {
             unsigned char vertical[17] = {}, horizontal[17] = {}, count = 0;
             const int result = VXGetBinningSequence(h, vertical, horizontal, &count);
             return Told(result, count) + tcPattern::Text(tBytes(vertical, vertical + 17)) +
                    tcPattern::Text(tBytes(horizontal, horizontal + 17));
         },
         0x29, "", 0x83,
         "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF"
         "B0 B1 B2 B3 B4 B5 B6 B7 B8 B9 BA BB BC BD BE BF  0D",
         Told(0, 13) + "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF 00 "
                       "B0 B1 B2 B3 B4 B5 B6 B7 B8 B9 BA BB BC BD BE BF 00 "},
        {"simple binning",
         [](int h) {
             int first = -1, second = -1;
             float third = 0, fourth = 0;
             const int result = VXGetSimpleBinning(h, &first, &second, &third, &fourth);
             return Told(result, first, second, third, fourth);
         },
         0x16, "", 0x8C, "11 12 13 14  21 22 23 24  DB 0F 49 40  79 E9 F6 C2",
         Told(0, 0x14131211, 0x24232221, 3.14159274F, -123.456001F)},
    });
}

TEST(WireAnswers, OfTheMaskComeHalfARowEach)
{
    tcWirePeer peer(3, 0x0104);
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    tBytes mask(2 * 0x0104 + 130 + 512, 0xCC);
    int unused = -77, argument = -1;
    auto asked = tcWirePeer::Asked(
        [&] { return VXGetBinMaskParam(peer.Handle(), mask.data(), &unused, &argument); });
    tBytes expected(mask.size(), 0xCC);
    for (unsigned half = 0; half < 6; ++half) {
        const tBytes where = {static_cast<uint8_t>(half / 2), 0, static_cast<uint8_t>(half % 2 + 1),
                              0};
        ASSERT_NO_FATAL_FAILURE(peer.Hears(0x44, where));
        const tBytes bytes = Mixed(512, half + 20);
        const tBytes last = {static_cast<uint8_t>(0x11 + half), 0x12};
        peer.Say(0x77, tcPattern(bytes) + where + last + tcPattern("D1 D2"));
        std::copy(bytes.begin(), bytes.end(), expected.begin() + half * 130);
    }
    EXPECT_EQ(Told(asked.get(), unused, argument), Told(0, -77, 0x1216));
    EXPECT_EQ(mask, expected);
}

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

// Answers that no call of the interface waits for, but a camera class made on top of it may.
std::string TellItem(int handle, int item)
{
    alignas(8) unsigned char message[64] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x58, 0, 0};
    long value = 0;
    const int result = Camera(handle)->SendAndWait(reinterpret_cast<tuCameraMessages*>(message),
                                                   item, &value, nullptr, 1);
    return Told(result, value & 0xFFFF);
}

TEST(WireAnswers, OfSixteenBits)
{
    Walk({
        {"item 5", [](int h) { return TellItem(h, 5); }, 0x58, "", 0x65, "F1 F2", Told(0, 0xF2F1L)},
        {"item 10", [](int h) { return TellItem(h, 10); }, 0x58, "", 0x71, "F1 F2",
         Told(0, 0xF2F1L)},
    });
}

TEST(WireAnswers, OfLinkTestsGoBehindTwelveBytes)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    tBytes send = Mixed(0x0123, 13), receive(0x0123, 0xCC);
    tsLinkTestCmd test{};
    test.Mode = 1;
    test.Pattern = 0xF4F3F2F1;
    test.Count = 2;
    test.DataLength = 0x0123;
    test.SendData = send.data();
    test.ReceiveBuffer = receive.data();
    auto asked = tcWirePeer::Asked([&] { return VXEngineeringCommand(peer.Handle(), 103, &test); });
    const tcPattern rest = tcPattern("23 01  F1 F2 F3 F4  00 00 00 00") + send;
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, tcPattern("00 00") + rest));
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, tcPattern("01 00") + rest));
    const tBytes back = Mixed(0x0100, 14);
    peer.Say(0x74, tcPattern("01 02  D1 D2  D3 D4 D5 D6  D7 D8 D9 DA") + back);
    EXPECT_EQ(Told(asked.get(), test.MessagesSent, test.AnswersReceived, test.ReceivedBytes),
              Told(0, 2U, 1U, 0x0201U));
    EXPECT_TRUE(tcPattern(back).Fits(tBytes(receive.begin(), receive.begin() + 0x0100)));
}

struct tsPatternCase {
    uint32_t Mode, Pattern, Count;
    tcPattern Payload;
};

TEST(WireAnswers, OfLinkTestsTellHowManyAreWanted)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    const tsPatternCase cases[] = {
        {0, 1, 1, "01 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
        {0, 2, 1, "01 00  06 00  02 00 00 00  00 00 00 00  00 FF 00 FF 00 FF"},
        {0, 3, 1, "01 00  06 00  03 00 00 00  00 00 00 00  .. .. .. .. .. .."},
        {7, 1, 1, "01 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
        {7, 1, 3, "03 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
    };
    for (const tsPatternCase& one : cases) {
        tsLinkTestCmd test{};
        test.Mode = one.Mode;
        test.Pattern = one.Pattern;
        test.Count = one.Count;
        test.DataLength = 6;
        auto asked =
            tcWirePeer::Asked([&] { return VXEngineeringCommand(peer.Handle(), 103, &test); });
        ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, one.Payload));
        for (uint32_t i = 0; i < one.Count; ++i)
            peer.Say(0x74, "06 00  00 00  00 00 00 00  00 00 00 00");
        EXPECT_EQ(Told(asked.get(), test.AnswersReceived, test.ReceivedBytes),
                  Told(0, one.Count, 6 * one.Count));
    }
}

std::string gHeartBeat, gError, gUser; // what the callbacks were given

TEST(WireAnswers, ThatNobodyAskedForReachTheCallbacks)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    const int handle = peer.Handle();
    VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData* beat) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(beat);
        gHeartBeat =
            Told(beat->BoardTemp, beat->CCDTemp) + tcPattern::Text(tBytes(bytes, bytes + 9));
    });
    VXSetErrorCallback(handle, [](int, unsigned char code, unsigned char subCode, char* text) {
        gError = Told(code, subCode) + text;
    });
    VXSetUserDefinedCallback(handle, [](int, void* message, int length) {
        const auto* bytes = static_cast<const uint8_t*>(message);
        gUser = Told(length) + tcPattern::Text(tBytes(bytes, bytes + 12 + length));
    });
    peer.Say(0x69, "D1 D2  F1 F2  85 FF  31 32 33");
    peer.Say(0x75, "A1 B2  74 6F 6F 20 77 61 72 6D 00");
    peer.Say(0xC0, "71 72 73 74 75");
    ASSERT_NO_FATAL_FAILURE(peer.Settle());
    EXPECT_EQ(gHeartBeat, Told(0xF2F1, 0xFF85) + "D1 D2 F1 F2 85 FF 31 32 33 ");
    EXPECT_EQ(gError, Told(0xA1, 0xB2) + "too warm");
    // Length 5, sequence 3, sum 0x23F, version 3, id 0xC0.
    EXPECT_EQ(gUser, Told(5) + "50 FA 05 00 03 3F 02 00 03 C0 00 00 71 72 73 74 75 ");
    short board = 0, sensor = 0;
    EXPECT_EQ(Told(VXGetBoardTemp(handle, &board), VXGetCCDTemp(handle, &sensor)), Told(0, 0));
    EXPECT_EQ(Told(board, sensor), Told(short(0xF2F1 - 0x10000), -123));
}

TEST(WireAnswers, OfAnotherVersionAreDropped)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    auto told = tcWirePeer::Asked([&] { return One<int, VXGetTrigger>(peer.Handle()); });
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x59, ""));
    for (unsigned version : {0U, 1U, 2U, 4U, 0x83U})
        ASSERT_TRUE(peer.Link().SendBytes(FrameBytes(0x7F, {9, 9, 9, 9}, 0, version)));
    peer.Say(0x7F, "11 12 13 14");
    EXPECT_EQ(told.get(), Told(0, 0x14131211));
}

} // namespace

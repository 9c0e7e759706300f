// What the library sends: each call of the C interface that goes out without waiting, and its
// bytes.
#include "tcWirePeer.h"

#include <tcVXCamera.h>

namespace {

struct tsCommandCase {
    const char* Name;
    int (*Call)(int handle);
    unsigned Id;
    tcPattern Payload;
};

tcVXCamera* Camera(int handle)
{
    return tcVXCamera::gpCameraMap->at(unsigned(handle));
}

// Opens a camera and lets the rows of a table go out one after another.
void Walk(const std::vector<tsCommandCase>& cases)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    for (const tsCommandCase& one : cases) {
        SCOPED_TRACE(one.Name);
        EXPECT_EQ(one.Call(peer.Handle()), 0);
        ASSERT_NO_FATAL_FAILURE(peer.Hears(one.Id, one.Payload));
    }
}

const long kLong = 0x7655443314131211;

TEST(WireCommands, OfExposureAndShutter)
{
    Walk({
        {"exposure", [](int h) { return VXSetExposure(h, kLong); }, 0x20, "11 12 13 14"},
        {"exposure, extended", [](int h) { return VXSetExposureEx(h, kLong); }, 0x12,
         "11 12 13 14"},
        {"shutter parameters",
         [](int h) { return VXSetShutterParams(h, kLong, 0x7655443324232221, 0x34333231); }, 0x46,
         "11 12 13 14  21 22 23 24  31 32 33 34"},
        {"shutter override", [](int h) { return VXSetShutterOverride(h, 0x14131211, 0x24232221); },
         0x53, "11 12 13 14  21 22 23 24"},
        {"image interval", [](int h) { return VXSetImageInterval(h, 0xF6554433F4F3F2F1); }, 0x4A,
         "F1 F2 F3 F4"},
    });
}

TEST(WireCommands, OfTheArea)
{
    Walk({
        {"area", [](int h) { return VXSetCCDArea(h, 0x1211, 0x2221, 0x3231, 0x4241); }, 0x24,
         "11 12  21 22  31 32  41 42  00 00 00 00"},
        {"mirroring", [](int h) { return VXSetCCDImageMirroring(h, 0x14131211, 0x24232221); }, 0x51,
         "11 12 13 14  21 22 23 24"},
        {"clear", [](int h) { return VXClearCCD(h, 0x14131211, 0x24232221); }, 0x23, "11 12 13 14"},
        {"shearing",
         [](int h) {
             return VXSetShearingParams(h, 0x14131211, 0x24232221, 0x34333231, 0xF4F3F2F1);
         },
         0x49, "11 12 13 14  21 22 23 24  31 32 33 34  F1 F2 F3 F4"},
    });
}

// Sixteen numbers, each of four bytes that occur nowhere else in the message.
std::vector<int> Sixteen(int first)
{
    std::vector<int> numbers;
    for (int i = 0; i < 16; ++i)
        numbers.push_back(first + i * 0x01000001);
    return numbers;
}

tcPattern SixteenWords(unsigned b0, unsigned b1, unsigned b2, unsigned b3, size_t count = 16)
{
    tBytes bytes;
    for (unsigned i = 0; i < count; ++i) {
        for (unsigned byte : {b0 + i, b1, b2, b3 + i})
            bytes.push_back(static_cast<uint8_t>(byte));
    }
    return tcPattern(bytes) + tcPattern::Open(64 - count * 4);
}

int SendRegions(int handle, int count)
{
    std::vector<int> rows = Sixteen(0x01AA1110), columns = Sixteen(0x11BB2220),
                     heights = Sixteen(0x21CC3330), widths = Sixteen(0x31DD4440);
    return VXSetAreaEx(handle, count, rows.data(), columns.data(), heights.data(), widths.data());
}

TEST(WireCommands, OfRegions)
{
    Walk({
        {"sixteen regions", [](int h) { return SendRegions(h, 16); }, 0x1A,
         tcPattern("00 10") + SixteenWords(0x10, 0x11, 0xAA, 0x01) +
             SixteenWords(0x20, 0x22, 0xBB, 0x11) + SixteenWords(0x30, 0x33, 0xCC, 0x21) +
             SixteenWords(0x40, 0x44, 0xDD, 0x31)},
        {"three regions", [](int h) { return SendRegions(h, 3); }, 0x1A,
         tcPattern("00 03") + SixteenWords(0x10, 0x11, 0xAA, 0x01, 3) +
             SixteenWords(0x20, 0x22, 0xBB, 0x11, 3) + SixteenWords(0x30, 0x33, 0xCC, 0x21, 3) +
             SixteenWords(0x40, 0x44, 0xDD, 0x31, 3)},
        {"no regions", [](int h) { return SendRegions(h, 0); }, 0x1A,
         tcPattern("00 00") + tcPattern::Open(256)},
    });
}

int SendTable(int handle, int (*send)(int, unsigned char*, int), int index)
{
    tBytes table = Mixed(2048, unsigned(index));
    return send(handle, table.data(), index);
}

TEST(WireCommands, OfBinning)
{
    Walk({
        {"vertical table", [](int h) { return SendTable(h, VXSetBinParam, 5); }, 0x25,
         tcPattern("05 00 00 00  00 00  21 03") + Mixed(0x0321, 5) +
             tcPattern::Open(2048 - 0x0321)},
        {"horizontal table", [](int h) { return SendTable(h, VXSetHorBinParam, 6); }, 0x4F,
         tcPattern("06 00 00 00  00 00  04 02") + Mixed(0x0204, 6) +
             tcPattern::Open(2048 - 0x0204)},
        {"sequence of sixteen",
         [](int h) {
             tBytes vertical = tcPattern("01 02 03 04 05 06 07 00 07 05 03 01 06 04 02 00").Bytes();
             tBytes horizontal =
                 tcPattern("07 06 05 04 03 02 01 00 00 02 04 06 01 03 05 07").Bytes();
             return VXSetBinningSequence(h, vertical.data(), horizontal.data(), 16);
         },
         0x50,
         "10 00 00 00  01 02 03 04 05 06 07 00 07 05 03 01 06 04 02 00"
         "             07 06 05 04 03 02 01 00 00 02 04 06 01 03 05 07"},
        {"sequence of two",
         [](int h) {
             unsigned char vertical[16] = {1, 2}, horizontal[16] = {3, 4};
             return VXSetBinningSequence(h, vertical, horizontal, 2);
         },
         0x50,
         tcPattern("02 00 00 00  01 02") + tcPattern::Open(14) + tcPattern("03 04") +
             tcPattern::Open(14)},
        {"simple binning",
         [](int h) { return VXSetSimpleBinning(h, 0x14131211, 0x24232221, 3.14159274F, 9.0F); },
         0x15, "11 12 13 14  21 22 23 24  DB 0F 49 40"},
    });
}

TEST(WireCommands, OfCooling)
{
    Walk({
        {"cooling on", [](int h) { return VXSetCooling(h, 1); }, 0x21, "01 00 00 00"},
        {"cooling off", [](int h) { return VXSetCooling(h, 0); }, 0x21, "00 00 00 00"},
        {"fan on", [](int h) { return VXEnableFan(h, 1); }, 0x48, "01 00 00 00"},
        {"target above zero, cut to tenths", [](int h) { return VXSetCCDTargetTemp(h, 34.26F); },
         0x4D, "56 01 00 00"},
        {"target below zero, cut to tenths", [](int h) { return VXSetCCDTargetTemp(h, -12.35F); },
         0x4D, "85 FF FF FF"},
        {"target in four bytes", [](int h) { return VXSetCCDTargetTemp(h, 6553600.0F); }, 0x4D,
         "00 00 E8 03"},
        {"controller",
         [](int h) {
             float terms[] = {3.14159274F, 2.71828175F, -123.456001F};
             return VXEngineeringCommand(h, 105, terms);
         },
         0x2C, "DB 0F 49 40  54 F8 2D 40  79 E9 F6 C2"},
    });
}

TEST(WireCommands, OfTriggersPinsAndGain)
{
    Walk({
        {"trigger", [](int h) { return VXSetTrigger(h, 0x14131211); }, 0x58, "11 12 13 14"},
        {"trigger mode",
         [](int h) { return VXSetTriggerMode(h, eExtTrigExposure, 0x14131211, 0x24232221); }, 0x5E,
         "03 00 00 00  11 12 13 14  21 22 23 24"},
        {"re-arm", [](int h) { return VXSetAutoTriggerReArm(h, 0x14131211); }, 0x17, "01 00 00 00"},
        {"re-arm off", [](int h) { return VXSetAutoTriggerReArm(h, 0); }, 0x17, "00 00 00 00"},
        {"pin", [](int h) { return VXSetGPIO(h, 0x14131211, ePinHigh); }, 0x56,
         "11 12 13 14  01 00 00 00"},
        {"gain", [](int h) { return VXSetGain(h, 0x14131211); }, 0x2A, "11 12 13 14"},
    });
}

TEST(WireCommands, OfCISSensors)
{
    Walk({
        {"shutter mode",
         [](int h) { return VXCISSetShutterMode(h, static_cast<teCISShutterMode>(0x14131211)); },
         0x1D, "11 12 13 14"},
        {"channel",
         [](int h) { return VXCISSelectChannel(h, static_cast<teCISChannelConfig>(0x14131211)); },
         0x1E, "11 12 13 14"},
        {"calibrate", [](int h) { return VXCISCalibrate(h, 0x14131211); }, 0x1F, "11 12 13 14"},
        {"load calibration", [](int h) { return VXCISLoadCalibration(h); }, 0x1F, "01 00 00 00"},
        {"clear calibration", [](int h) { return VXCISClearCalibration(h); }, 0x1F, "02 00 00 00"},
    });
}

TEST(WireCommands, OfTestPatternsAndRecording)
{
    Walk({
        {"all values",
         [](int h) {
             unsigned short values[31];
             for (int i = 0; i < 31; ++i)
                 values[i] = static_cast<unsigned short>(0x8101 + i * 0x0101);
             return VXSetTestPattern(h, 6, values, 31);
         },
         0x5B,
         "06 00 00 00  01 81 02 82 03 83 04 84 05 85 06 86 07 87 08 88 09 89 0A 8A 0B 8B 0C 8C"
         "             0D 8D 0E 8E 0F 8F 10 90 11 91 12 92 13 93 14 94 15 95 16 96 17 97 18 98"
         "             19 99 1A 9A 1B 9B 1C 9C 1D 9D 1E 9E 1F 9F .. .."},
        {"one value",
         [](int h) {
             unsigned short value = 0xA1B2;
             return VXSetTestPattern(h, 1, &value, 1);
         },
         0x5B, tcPattern("01 00 00 00  B2 A1") + tcPattern::Open(62)},
        {"recording",
         [](int h) {
             tsRecordParams params{{0x14131211, 0x24232221, 0xF4F3F2F1}, {}};
             const tBytes text = Mixed(256, 3);
             memcpy(params.Text, text.data(), text.size());
             params.Text[255] = 'x';
             return VXSetRecording(h, &params, 0);
         },
         0x1C,
         tcPattern("11 12 13 14  21 22 23 24  F1 F2 F3 F4") + Mixed(255, 3) + tcPattern("00")},
    });
}

int SendHardware(int handle, int size, int told)
{
    const tBytes bytes = Mixed(100, 4);
    TVXCameraHardware info;
    memcpy(&info, bytes.data(), sizeof info);
    const int result = VXSetCameraHardwareInfo(handle, &info, &size);
    EXPECT_EQ(size, told);
    return result;
}

TEST(WireCommands, OfBlocks)
{
    Walk({
        {"hardware information", [](int h) { return SendHardware(h, 100, 100); }, 0x40,
         Mixed(100, 4)},
        {"hardware information, cut", [](int h) { return SendHardware(h, 150, 100); }, 0x40,
         Mixed(100, 4)},
        {"some of the hardware information", [](int h) { return SendHardware(h, 37, 37); }, 0x40,
         Mixed(37, 4)},
        {"hardware information as an engineer sends it",
         [](int h) {
             tBytes bytes = Mixed(100, 5);
             return VXEngineeringCommand(h, 104, bytes.data());
         },
         0x40, Mixed(100, 5)},
        {"network",
         [](int h) {
             TVXNetworkConfig config{{0x14131211, 0x24232221, 0x34333231, 0x44434241, 0xF4F3F2F1},
                                     0x5251};
             return VXSetCameraNetworkConfig(h, &config);
         },
         0x42, "11 12 13 14  21 22 23 24  31 32 33 34  41 42 43 44  F1 F2 F3 F4  51 52 .. .."},
        {"timing data",
         [](int h) {
             tBytes data = Mixed(4356, 6);
             return VXSetTimingData(h, data.data(), 4356);
         },
         0x54, Mixed(4356, 6)},
        {"short timing data",
         [](int h) {
             tBytes data = Mixed(100, 6);
             return VXSetTimingData(h, data.data(), 100);
         },
         0x54, tcPattern(Mixed(100, 6)) + tcPattern::Open(4256)},
        {"parameter of a byte",
         [](int h) {
             unsigned char value = 0x5A;
             return VXSetParameter(h, 0xF4F3F2F1, &value, 1);
         },
         0x13, "F1 F2 F3 F4  5A"},
        {"parameter of the greatest size",
         [](int h) {
             tBytes value = Mixed(2048, 8);
             return VXSetParameter(h, 0x14131211, value.data(), 2048);
         },
         0x13, tcPattern("11 12 13 14") + Mixed(2048, 8)},
    });
}

TEST(WireCommands, OfTheEngineer)
{
    Walk({
        {"write register",
         [](int h) {
             uint32_t words[] = {0x14131211, 0xF4F3F2F1};
             return VXEngineeringCommand(h, 101, words);
         },
         0x27, "11 12 13 14  F1 F2 F3 F4"},
        {"write converter",
         [](int h) {
             tBytes data = tcPattern("A1 B1 B2 B3  A2 A3 B4 B5  01 00 00 00").Bytes();
             return VXEngineeringCommand(h, 102, data.data());
         },
         0x28, "A2 A3  A1  01"},
        {"filters",
         [](int h) {
             tsSetFilterCmd filters{0x5A, 0xA5};
             return VXEngineeringCommand(h, 107, &filters);
         },
         0x2E, "5A 00 00 00  A5 00 00 00"},
        {"no-op messages", [](int h) { return Camera(h)->EnableNoOps(0x1211, 0x2221); }, 0x5D,
         "21 22 00 00  11 12 00 00"},
        {"no no-op messages", [](int h) { return Camera(h)->EnableNoOps(0, 0); }, 0x5D,
         "00 00 00 00  00 00 00 00"},
        {"reset", [](int h) { return VXCameraReset(h); }, 0x22, ""},
        {"abort", [](int h) { return VXAbortRead(h); }, 0x4C, ""},
        {"a message of the application's own",
         [](int h) {
             tBytes message =
                 tcPattern("00 00 05 00 00 00 00 00 00 C1 D2 E3  71 72 73 74 75").Bytes();
             return VXSendUserDefined(h, message.data());
         },
         0xE3D2C1, "71 72 73 74 75"},
    });
}

TEST(WireCommands, OfTheMaskGoHalfARowEach)
{
    tcWirePeer peer(3, 0x0104); // rows of 260 bytes, so that a row index and a half are apart
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    tBytes mask = Mixed(3 * 0x0104, 9);
    auto sent = tcWirePeer::Asked(
        [&] { return VXSetBinMaskParam(peer.Handle(), mask.data(), 0x14131211); });
    for (unsigned half = 0; half < 6; ++half) {
        const tBytes bytes(mask.begin() + half * 130, mask.begin() + half * 130 + 130);
        const tBytes where = {static_cast<uint8_t>(half / 2), 0, static_cast<uint8_t>(half % 2 + 1),
                              0};
        ASSERT_NO_FATAL_FAILURE(peer.Hears(0x43, tcPattern(bytes) + tcPattern::Open(382) + where +
                                                     tcPattern("11 12 13 14")));
    }
    EXPECT_EQ(sent.get(), 0);
}

TEST(WireCommands, CarryASequenceNumberOfOneByte)
{
    tcWirePeer peer(2, 2);
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(VXCameraReset(peer.Handle()), 0);
        ASSERT_NO_FATAL_FAILURE(peer.Hears(0x22, ""));
    }
}

} // namespace

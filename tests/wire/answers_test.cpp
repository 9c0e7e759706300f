// What the library asks and what it understands: each question of the C interface as bytes, the
// answer as bytes, and what the caller gets.
#include "answers_support.h"
#include "tcWirePeer.h"

#include <tcVXCamera.h>

namespace {

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

} // namespace

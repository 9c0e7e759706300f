// The simulated camera's readouts, from outside: commands as bytes, packets as bytes.
#include "tcSimProgram.h"

#include <algorithm>

namespace {

tBytes Low(unsigned value)
{
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

tBytes Low32(unsigned value)
{
    return (tcPattern(Low(value)) + Low(value >> 16)).Bytes();
}

// Pattern 4 of the simulated camera: a pixel is its row + its column + 0x1111.
void SetPattern(tcSimProgram& camera)
{
    camera.Tell(0x5B, tcPattern("04 00 00 00  11 11") + tcPattern::Zeros(62));
    camera.Tell(0x20, "01 00 00 00");
}

// A 16-bit packet of that pattern: from `first` to `last` in a row.
tcPattern Packet(bool lastFrame, unsigned number, unsigned total, unsigned row, unsigned first,
                 unsigned last)
{
    tcPattern packet = tcPattern("..") + (lastFrame ? "01" : "00") + Low(number) + Low(total) +
                       Low(row) + Low(first) + Low(last) + ".. ..  .. ..";
    for (unsigned column = first; column <= last; ++column)
        packet = packet + Low(row + column + 0x1111);
    return packet;
}

// 0x0101 rows from 0x0103 on, 3 columns from 0x0102 on.
void ExpectArea(tcSimProgram& camera, unsigned frames)
{
    for (unsigned frame = 1; frame <= frames; ++frame) {
        for (unsigned number = 1; number <= 0x0101; ++number) {
            SCOPED_TRACE(testing::Message() << "frame " << frame << ", packet " << number);
            ASSERT_NO_FATAL_FAILURE(camera.Answers(
                0x66, Packet(frame == frames, number, 0x0101, 0x0102 + number, 0x0102, 0x0104)));
        }
    }
}

TEST(WireSim, ReadsTheAreaThatTheCommandCarries)
{
    tcSimProgram camera({"--sensor", "600x520", "--heartbeat", "0"});
    SetPattern(camera);
    camera.Tell(0x36, "02 01  03 01  03 00  01 01  02 00  00 00");
    ExpectArea(camera, 2);
}

TEST(WireSim, ReadsTheAreaThatWasSetBefore)
{
    tcSimProgram camera({"--sensor", "600x520", "--heartbeat", "0"});
    SetPattern(camera);
    camera.Tell(0x24, "02 01  03 01  03 00  01 01  00 00 00 00");
    camera.Tell(0x36, "00 00  00 00  00 00  00 00  01 00  00 00");
    ExpectArea(camera, 1);
}

TEST(WireSim, ReadsRegionsOneAfterAnother)
{
    tcSimProgram camera({"--sensor", "600x520", "--heartbeat", "0"});
    SetPattern(camera);
    // Two rows of three columns at row 0x0103, column 0x0005; one row of two at 0x0011, 0x0102.
    camera.Tell(0x1A, tcPattern("00 02") + "03 01 00 00 11 00 00 00" + tcPattern::Zeros(56) +
                          "05 00 00 00 02 01 00 00" + tcPattern::Zeros(56) +
                          "02 00 00 00 01 00 00 00" + tcPattern::Zeros(56) +
                          "03 00 00 00 02 00 00 00" + tcPattern::Zeros(56));
    camera.Tell(0x36, "00 00  00 00  00 00  00 00  01 00  00 00");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x66, Packet(true, 1, 3, 0x0103, 5, 7)));
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x66, Packet(true, 2, 3, 0x0104, 5, 7)));
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x66, Packet(true, 3, 3, 0x0011, 0x0102, 0x0103)));
}

TEST(WireSim, MirrorsBothWays)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    SetPattern(camera);
    const char* read = "00 00  00 00  02 00  01 00  01 00  00 00"; // the first two pixels
    camera.Tell(0x51, "01 00 00 00  00 00 00 00");
    camera.Tell(0x36, read);
    ASSERT_NO_FATAL_FAILURE(
        camera.Answers(0x66, tcPattern::Open(16) + Low(0x1111 + 23) + Low(0x1111 + 22)));
    camera.Tell(0x51, "00 00 00 00  01 00 00 00");
    camera.Tell(0x36, read);
    ASSERT_NO_FATAL_FAILURE(
        camera.Answers(0x66, tcPattern::Open(16) + Low(0x1111 + 19) + Low(0x1111 + 20)));
}

TEST(WireSim, ReadsEightBits)
{
    tcSimProgram camera({"--sensor", "600x520", "--heartbeat", "0"});
    SetPattern(camera);
    camera.Tell(0x36, "02 01  03 01  03 00  01 00  01 00  08 00");
    // (0x0103 + 0x0102 + 0x1111) / 256 = 0x13.
    ASSERT_NO_FATAL_FAILURE(
        camera.Answers(0x88, ".. 01  01 00  01 00  03 01  02 01  04 01  .. ..  .. ..  13 13 13"));
}

TEST(WireSim, BinsByTwoNumbersAndAFactor)
{
    tcSimProgram camera({"--sensor", "24x900", "--heartbeat", "0"});
    SetPattern(camera);
    camera.Tell(0x15, "03 00 00 00  02 00 00 00  00 00 20 40"); // 3 rows, 2 columns, times 2.5
    camera.Tell(0x37, "01 00  00 00  00 00 00 00 00 00 00 00");
    for (unsigned row = 0; row < 300; ++row) {
        SCOPED_TRACE(row);
        tcPattern packet = tcPattern(".. 01") + Low(row + 1) + Low(300) + Low(row) +
                           "00 00  0B 00  .. ..  .. ..  03 00  02 00";
        for (unsigned column = 0; column < 12; ++column) {
            // Six pixels: their rows sum up to 6 x (3 row + 1), their columns to 6 x 2 column + 3.
            const unsigned sum = 6 * 0x1111 + 6 * (3 * row + 1) + 6 * 2 * column + 3;
            packet = packet + Low32(sum * 5 / 2);
        }
        ASSERT_NO_FATAL_FAILURE(camera.Answers(0x67, packet));
    }
}

TEST(WireSim, BinsByTheSequence)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    SetPattern(camera);
    camera.Tell(0x50, tcPattern("02 00 00 00  05 04") + tcPattern::Zeros(14) + "06 03" +
                          tcPattern::Zeros(14));
    camera.Tell(0x37, "02 00  00 00  00 00 00 00 00 00 00 00");
    for (unsigned row = 0; row < 4; ++row) {
        ASSERT_NO_FATAL_FAILURE(camera.Answers(
            0x67, tcPattern(".. 00") + Low(row + 1) + Low(4) + Low(row) +
                      "00 00  03 00  .. ..  .. ..  05 00  06 00" + tcPattern::Open(16)));
    }
    for (unsigned row = 0; row < 5; ++row) {
        ASSERT_NO_FATAL_FAILURE(camera.Answers(
            0x67, tcPattern(".. 01") + Low(row + 1) + Low(5) + Low(row) +
                      "00 00  07 00  .. ..  .. ..  04 00  03 00" + tcPattern::Open(32)));
    }
}

TEST(WireSim, BinsByTheTablesOfTheCommandsMode)
{
    tcSimProgram camera({"--sensor", "4x4", "--heartbeat", "0"});
    SetPattern(camera);
    // Table 5: rows 0-2 and 3 together, columns 0 and 1-3.
    camera.Tell(0x25, tcPattern("05 00 00 00  00 00  04 00  00 00 01 00") + tcPattern::Zeros(2044));
    camera.Tell(0x4F, tcPattern("05 00 00 00  00 00  04 00  01 00 00 01") + tcPattern::Zeros(2044));
    camera.Tell(0x37, "01 00  05 00  00 00 00 00 00 00 00 00");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(
        0x67, tcPattern(".. 01  01 00  02 00  00 00  00 00  01 00  .. ..  .. ..  03 00  01 00") +
                  Low32(3 * 0x1111 + 3) + Low32(9 * 0x1111 + 9 + 18)));
    ASSERT_NO_FATAL_FAILURE(camera.Answers(
        0x67, tcPattern(".. 01  02 00  02 00  01 00  00 00  01 00  .. ..  .. ..  .. ..  .. ..") +
                  Low32(0x1111 + 3) + Low32(3 * 0x1111 + 9 + 6)));
}

TEST(WireSim, BinsByTheMask)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    SetPattern(camera);
    // Bins 1 and 2: the first two pixels of row 0; bin 3: the 13th pixel of row 2.
    camera.Tell(0x43, tcPattern("01 02") + tcPattern::Zeros(510) + "00 00  01 00  00 00 00 00");
    camera.Tell(0x43, tcPattern("03 00") + tcPattern::Zeros(510) + "02 00  02 00  00 00 00 00");
    camera.Tell(0x45, "01 00  00 00");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(
        0x67, tcPattern(".. 01  01 00  01 00  00 00  00 00  02 00  .. ..  .. ..  .. ..  .. ..") +
                  Low32(0x1111) + Low32(0x1112) + Low32(0x1111 + 14)));
}

// The middle one of the first row's pixels in a picture of 10 s: the sky, whatever stars there are.
double Sky(tcSimProgram& camera, const char* flags = "00 00")
{
    camera.Tell(0x20, "10 27 00 00");
    camera.Tell(0x36, tcPattern("00 00  00 00  18 00  01 00  01 00") + flags);
    const tsFrame frame = camera.Next();
    EXPECT_EQ(frame.Id, 0x66U);
    EXPECT_EQ(frame.Payload.size(), 16U + 48U);
    std::vector<unsigned> pixels;
    for (size_t at = 16; at + 1 < frame.Payload.size(); at += 2)
        pixels.push_back(frame.Payload[at] | frame.Payload[at + 1] << 8);
    std::sort(pixels.begin(), pixels.end());
    return pixels.empty() ? 0 : pixels[pixels.size() / 2];
}

TEST(WireSim, ClosesTheShutterAndMovesTheOffset)
{
    // So cold that the dark current is nothing; what comes is the sky.
    tcSimProgram camera(
        {"--sensor", "24x20", "--heartbeat", "0", "--ambient", "-60", "--time-scale", "1000"});
    const double dark = Sky(camera, "01 00"),
                 light = Sky(camera) - dark; // 500 and the stars' skirts
    EXPECT_NEAR(dark, 1000, 8);
    EXPECT_GT(light, 300);
    camera.Tell(0x53, "01 00 00 00  00 00 00 00"); // overridden: closed
    EXPECT_NEAR(Sky(camera), dark, 8);
    camera.Tell(0x53, "00 00 00 00  01 00 00 00"); // not overridden
    EXPECT_NEAR(Sky(camera), dark + light, light / 10);
    camera.Tell(0x1E, "01 00 00 00"); // the channel of the low gain
    EXPECT_NEAR(Sky(camera), dark + light / 4, light / 8);
    camera.Tell(0x1E, "00 00 00 00");
    camera.Tell(0x2A, "02 00 00 00"); // gain 2: thrice the counts
    EXPECT_NEAR(Sky(camera), dark + light * 3, light / 2);
    camera.Tell(0x3B, "D0 07  00 00");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x6A, ""));
    EXPECT_NEAR(Sky(camera, "01 00"), 2000, 16);
}

TEST(WireSim, AbortsAReadout)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    camera.Tell(0x20, "00 00 01 00");
    camera.Tell(0x36, "00 00  00 00  00 00  00 00  01 00  00 00");
    camera.Tell(0x4C, "");
    camera.Tell(0x59, "");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x7F, "00 00 00 00"));
    SetPattern(camera);
    camera.Tell(0x36, "00 00  00 00  02 00  01 00  01 00  00 00");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x66, Packet(true, 1, 1, 0, 0, 1)));
}

} // namespace

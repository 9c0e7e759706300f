// The simulated camera's settings, from outside: bytes that set, bytes that ask, bytes that answer.
#include "tcSimProgram.h"

#include <algorithm>

namespace {

// Messages to send in turn; then what must come.
struct tsMessage {
    unsigned Id;
    tcPattern Payload;
};
struct tsConversation {
    const char* Name;
    std::vector<tsMessage> Says;
    tsMessage Comes;
};

void Walk(tcSimProgram& camera, const std::vector<tsConversation>& conversations)
{
    ASSERT_TRUE(camera.Link().IsOpen());
    for (const tsConversation& one : conversations) {
        SCOPED_TRACE(one.Name);
        for (const tsMessage& message : one.Says)
            camera.Tell(message.Id, message.Payload);
        ASSERT_NO_FATAL_FAILURE(camera.Answers(one.Comes.Id, one.Comes.Payload));
    }
}

void Walk(const std::vector<tsConversation>& conversations)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    Walk(camera, conversations);
}

// Makes sure that the camera has dealt with everything by now, and without a complaint.
const tsMessage kAsk{0x59, ""}, kAnswered{0x7F, "00 00 00 00"};

TEST(WireSim, SetsAndTellsExposureAndShutter)
{
    Walk({
        {"exposure", {{0x20, "11 22 03 00"}, {0x30, ""}}, {0x60, "11 22 03 00"}},
        {"the same, asked otherwise", {{0x11, ""}}, {0x60, "11 22 03 00"}},
        {"exposure, extended", {{0x12, "21 32 04 00"}, {0x11, ""}}, {0x60, "21 32 04 00"}},
        {"the same, asked plainly", {{0x30, ""}}, {0x60, "21 32 04 00"}},
        {"shutter parameters",
         {{0x46, "11 12 13 14  21 22 23 24  31 32 33 34"}, {0x47, ""}},
         {0x79, "11 12 13 14  21 22 23 24  31 32 33 34"}},
        {"image interval",
         {{0x4A, "11 22 03 00"}, {0x4B, ""}},
         {0x7A, "11 22 03 00  .. .. .. ..  .. .. .. ..  .. .. .. .."}},
    });
}

TEST(WireSim, SetsAndTellsTheImage)
{
    Walk({
        {"horizontal mirroring",
         {{0x51, "01 00 00 00  00 00 00 00"}, {0x52, ""}},
         {0x7C, "01 00 00 00  00 00 00 00"}},
        {"vertical mirroring",
         {{0x51, "00 00 00 00  01 00 00 00"}, {0x52, ""}},
         {0x7C, "00 00 00 00  01 00 00 00"}},
        {"offset", {{0x3B, "E8 03  00 00"}}, {0x6A, ""}},
        {"readout noise", {{0x3E, ""}}, {0x73, "00 00 C0 40  .. .. .. .."}}, // 6 electrons
        {"filters",
         {{0x2E, "01 00 00 00  00 00 00 00"}, {0x2F, ""}},
         {0x86, "01 00 00 00  00 00 00 00"}},
        {"the other filter",
         {{0x2E, "00 00 00 00  01 00 00 00"}, {0x2F, ""}},
         {0x86, "00 00 00 00  01 00 00 00"}},
        {"no calibration", {{0x1B, ""}}, {0x89, "00 00 00 00"}},
        {"calibrating", {{0x1F, "01 00 00 00"}, {0x1B, ""}}, {0x89, "01 00 00 00"}},
    });
}

TEST(WireSim, SetsAndTellsRegions)
{
    // Sixteen of one row and one column each, so that all fit in any order; then three; then none.
    tBytes rows, columns, ones;
    for (uint8_t i = 0; i < 16; ++i) {
        for (uint8_t byte : {uint8_t(i + 1), uint8_t(0), uint8_t(0), uint8_t(0)})
            rows.push_back(byte);
        for (uint8_t byte : {uint8_t(i + 4), uint8_t(0), uint8_t(0), uint8_t(0)})
            columns.push_back(byte);
        for (uint8_t byte : {uint8_t(1), uint8_t(0), uint8_t(0), uint8_t(0)})
            ones.push_back(byte);
    }
    const tcPattern sixteen = tcPattern("00 10") + rows + columns + ones + ones;
    const tcPattern three = tcPattern("00 03") + "02 00 00 00 05 00 00 00 0A 00 00 00" +
                            tcPattern::Zeros(52) + "03 00 00 00 06 00 00 00 07 00 00 00" +
                            tcPattern::Zeros(52) + "01 00 00 00 02 00 00 00 03 00 00 00" +
                            tcPattern::Zeros(52) + "08 00 00 00 09 00 00 00 0B 00 00 00" +
                            tcPattern::Zeros(52);
    const tcPattern none = tcPattern("00 00") + tcPattern::Zeros(256);
    Walk({
        {"sixteen",
         {{0x1A, sixteen}, {0x19, ""}},
         {0x8A, tcPattern("..") + "10" + rows + columns + ones + ones}},
        {"three", {{0x1A, three}, {0x19, ""}}, {0x8A, three}},
        {"none", {{0x1A, none}, {0x19, ""}}, {0x8A, none}},
    });
}

TEST(WireSim, SetsAndTellsBinning)
{
    const tcPattern rows =
        tcPattern("05 00 00 00  00 00  14 00") + Mixed(20, 2) + tcPattern::Zeros(2028);
    const tcPattern columns =
        tcPattern("06 00 00 00  00 00  18 00") + Mixed(24, 3) + tcPattern::Zeros(2024);
    Walk({
        {"vertical table", {{0x25, rows}, {0x33, "05 00 00 00"}}, {0x63, rows}},
        {"horizontal table", {{0x4F, columns}, {0x5A, "06 00 00 00"}}, {0x80, columns}},
        {"another vertical table is its own",
         {{0x33, "06 00 00 00"}},
         {0x63, tcPattern("06 00 00 00  00 00  .. ..") + tcPattern::Zeros(2048)}},
        {"sequence",
         {{0x50, "10 00 00 00  01 02 03 04 05 06 07 00 07 05 03 01 06 04 02 00"
                 "             07 06 05 04 03 02 01 00 00 02 04 06 01 03 05 07"},
          {0x29, ""}},
         {0x83, "01 02 03 04 05 06 07 00 07 05 03 01 06 04 02 00"
                "07 06 05 04 03 02 01 00 00 02 04 06 01 03 05 07  10"}},
        {"simple binning",
         {{0x15, "05 00 00 00  03 00 00 00  00 00 20 40"}, {0x16, ""}},
         {0x8C, "05 00 00 00  03 00 00 00  00 00 20 40  .. .. .. .."}},
    });
}

TEST(WireSim, SetsAndTellsTheMask)
{
    std::vector<tsConversation> conversations;
    for (unsigned half = 0; half < 40; ++half) {
        const tBytes where = {static_cast<uint8_t>(half / 2), 0, static_cast<uint8_t>(half % 2 + 1),
                              0};
        tBytes bytes = Mixed(12, half + 1);
        conversations.push_back(
            {"half a row",
             {{0x43, tcPattern(bytes) + tcPattern::Zeros(500) + where + "11 12 00 00"},
              {0x44, where}},
             {0x77,
              tcPattern(bytes) + tcPattern::Zeros(500) + tcPattern::Open(4) + "11 12 .. .."}});
    }
    // All of them, now that others were set.
    for (unsigned half = 0; half < 40; ++half) {
        tsConversation again = conversations[half];
        again.Says.erase(again.Says.begin());
        conversations.push_back(again);
    }
    Walk(conversations);
}

TEST(WireSim, SetsAndTellsCooling)
{
    Walk({
        {"on", {{0x21, "01 00 00 00"}, {0x31, ""}}, {0x61, "01 00 00 00"}},
        {"off", {{0x21, "00 00 00 00"}, {0x31, ""}}, {0x61, "00 00 00 00"}},
        {"target above zero", {{0x4D, "56 01 00 00"}, {0x4E, ""}}, {0x7B, "56 01 00 00"}},
        {"target below zero", {{0x4D, "85 FF FF FF"}, {0x4E, ""}}, {0x7B, "85 FF FF FF"}},
        {"controller",
         {{0x2C, "DB 0F 49 40  54 F8 2D 40  79 E9 F6 C2"}, {0x2D, ""}},
         {0x85, "DB 0F 49 40  54 F8 2D 40  79 E9 F6 C2"}},
    });
}

TEST(WireSim, SetsAndTellsTriggersPinsAndGain)
{
    Walk({
        {"trigger", {{0x58, "01 00 00 00"}, {0x59, ""}}, {0x7F, "01 00 00 00"}},
        {"trigger mode",
         {{0x5E, "03 00 00 00  11 12 13 14  21 22 23 24"}, {0x5F, ""}},
         {0x87, "03 00 00 00  11 12 13 14  21 22 23 24"}},
        {"no re-arming", {{0x17, "00 00 00 00"}, {0x18, ""}}, {0x8B, "00 00 00 00"}},
        {"re-arming", {{0x17, "01 00 00 00"}, {0x18, ""}}, {0x8B, "01 00 00 00"}},
        {"pin 0x11", {{0x56, "11 00 00 00  01 00 00 00"}, {0x57, ""}}, {0x7E, "00 00 02 00"}},
        {"pin 2", {{0x56, "02 00 00 00  01 00 00 00"}, {0x57, ""}}, {0x7E, "04 00 02 00"}},
        {"pin 0x11 off", {{0x56, "11 00 00 00  00 00 00 00"}, {0x57, ""}}, {0x7E, "04 00 00 00"}},
        {"gain",
         {{0x2A, "05 00 00 00"}, {0x2B, ""}},
         {0x84, tcPattern("05 00 00 00  .. .. .. ..  07 00 00 00") + tcPattern::Open(12)}},
    });
}

TEST(WireSim, SetsAndTellsBlocks)
{
    const tBytes timing = Mixed(4356, 6), large = Mixed(2048, 8);
    Walk({
        {"network",
         {{0x42, "11 12 13 14  21 22 23 24  31 32 33 34  41 42 43 44  F1 F2 F3 F4  51 52 00 00"},
          {0x41, ""}},
         {0x76, "11 12 13 14  21 22 23 24  31 32 33 34  41 42 43 44  F1 F2 F3 F4  51 52 .. .."}},
        {"timing data", {{0x54, timing}, {0x55, ""}}, {0x7D, timing}},
        {"register",
         {{0x27, "11 12 13 14  F1 F2 F3 F4"}, {0x38, "11 12 13 14  00 00 00 00"}},
         {0x70, "F1 F2 F3 F4"}},
        {"parameter",
         {{0x13, "11 12 13 14  61 62 63"}, {0x14, "11 12 13 14"}},
         {0x8D, ".. .. .. ..  00 00 00 00  61 62 63"}},
        {"large parameter",
         {{0x13, tcPattern("F1 F2 F3 F4") + large}, {0x14, "F1 F2 F3 F4"}},
         {0x8D, tcPattern(".. .. .. ..  00 00 00 00") + large}},
        {"link test",
         {{0x3F, "01 00  06 00  07 00 00 00  00 00 00 00  61 62 63 64 65 66"}},
         {0x74, "06 00  .. ..  .. .. .. ..  .. .. .. ..  61 62 63 64 65 66"}},
        {"link test without an answer, then another",
         {{0x3F, "00 00  01 00  00 00 00 00  00 00 00 00  99"},
          {0x3F, "01 00  02 00  00 00 00 00  00 00 00 00  71 72"}},
         {0x74, "02 00  .. ..  .. .. .. ..  .. .. .. ..  71 72"}},
        {"a message of the application's own", {{0xE3D2C1, "71 72 73"}}, {0xE3D2C1, "71 72 73"}},
    });
}

TEST(WireSim, TellsOfMissingParametersByStatus)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    camera.Tell(0x14, "77 12 13 14");
    const tsFrame frame = camera.Next();
    ASSERT_TRUE(frame.Came);
    EXPECT_EQ(frame.Id, 0x8DU);
    ASSERT_GE(frame.Payload.size(), 8U);
    EXPECT_TRUE(tcPattern("01 00 00 00")
                    .Fits(tBytes(frame.Payload.begin() + 4, frame.Payload.begin() + 8)));
}

TEST(WireSim, TellsItsHardware)
{
    tcSimProgram camera({"--sensor", "600x500", "--heartbeat", "0"});
    const tcPattern geometry =
        tcPattern::Open(42) + "F4 01  .. ..  58 02" + tcPattern::Open(52); // rows, columns
    camera.Tell(0x34, "");
    ASSERT_NO_FATAL_FAILURE(camera.Answers(0x64, geometry));
    // What is its own to say it keeps; other bytes are remembered.
    tBytes hardware = Mixed(100, 4);
    camera.Tell(0x40, hardware);
    camera.Tell(0x34, "");
    hardware.erase(hardware.begin(), hardware.begin() + 48);
    ASSERT_NO_FATAL_FAILURE(
        camera.Answers(0x64, tcPattern::Open(42) + "F4 01  .. ..  58 02" + hardware));
}

TEST(WireSim, SendsAsManyNoOpMessagesAsAskedFor)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    camera.Tell(0x5D, "03 00 00 00  01 00 00 00");
    for (int i = 0; i < 3; ++i) {
        const tsFrame frame = camera.Next();
        ASSERT_TRUE(frame.Came);
        EXPECT_TRUE(frame.Id == 0x68 || frame.Id == 0x82) << frame.Id;
    }
    Walk(camera, {{"nothing more", {kAsk}, kAnswered}});
}

TEST(WireSim, ComplainsWithCodeSubCodeAndText)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0"});
    camera.Tell(0x62, "");
    const tsFrame frame = camera.Next();
    ASSERT_TRUE(frame.Came);
    EXPECT_EQ(frame.Id, 0x75U);
    ASSERT_GT(frame.Payload.size(), 3U);
    EXPECT_EQ(frame.Payload[0], 1); // not understood
    EXPECT_EQ(frame.Payload[1], 3); // an unknown id
    EXPECT_GT(frame.Payload[2], 0x20);
    EXPECT_EQ(std::count(frame.Payload.begin() + 2, frame.Payload.end(), 0), 1);
    EXPECT_EQ(frame.Payload.back(), 0);
}

TEST(WireSim, SendsHeartbeatsWithTheBoardsTemperatureFirst)
{
    tcSimProgram camera({"--sensor", "24x20", "--heartbeat", "0.02", "--ambient", "-3"});
    tsFrame frame = camera.Link().Read();
    ASSERT_TRUE(frame.Came);
    EXPECT_EQ(frame.Id, 0x69U);
    EXPECT_TRUE(tcPattern(".. ..  14 00  E2 FF").Fits(frame.Payload)); // +2.0 and -3.0
    // Without its fan the board is 12 degrees above ambient.
    camera.Tell(0x48, "00 00 00 00");
    for (int i = 0; i < 250 && frame.Payload[2] != 0x5A; ++i) {
        frame = camera.Link().Read();
        ASSERT_TRUE(frame.Came);
        ASSERT_EQ(frame.Id, 0x69U);
    }
    EXPECT_TRUE(tcPattern(".. ..  5A 00  E2 FF").Fits(frame.Payload));
}

TEST(WireSim, TakesWhatItOnlyRemembersWithoutAComplaint)
{
    Walk({
        {"recording", {{0x1C, tcPattern(Mixed(267, 3)) + "00"}, kAsk}, kAnswered},
        {"CIS shutter", {{0x1D, "01 00 00 00"}, kAsk}, kAnswered},
        {"CIS channel", {{0x1E, "01 00 00 00"}, kAsk}, kAnswered},
        {"converter", {{0x28, "A2 A3  05  01"}, kAsk}, kAnswered},
        {"shearing",
         {{0x49, "01 00 00 00  02 00 00 00  03 00 00 00  04 00 00 00"}, kAsk},
         kAnswered},
        {"fan", {{0x48, "01 00 00 00"}, kAsk}, kAnswered},
        {"clear", {{0x23, "01 00 00 00"}, kAsk}, kAnswered},
        {"abort", {{0x4C, ""}, kAsk}, kAnswered},
    });
}

TEST(WireSim, ForgetsAtAReset)
{
    Walk({
        {"set", {{0x58, "01 00 00 00"}, {0x59, ""}}, {0x7F, "01 00 00 00"}},
        {"reset", {{0x22, ""}, {0x59, ""}}, {0x7F, "00 00 00 00"}},
    });
}

TEST(WireSim, AnswersThoseWhoLookForIt)
{
    tcSimProgram camera({"--sensor", "600x500", "--heartbeat", "0", "--discovery",
                         "--discovery-port", "0", "--serial", "4093837841"}); // 0xF4030211
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = tcByteLink::Loopback(camera.DiscoveryPort());
    const tBytes request = tcPattern("CD 0C CD 0C  CD AC ED BE").Bytes();
    sendto(descriptor, request.data(), request.size(), 0,
           reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd entry{descriptor, POLLIN, 0};
    ASSERT_EQ(poll(&entry, 1, 10000), 1);
    tBytes reply(64);
    reply.resize(static_cast<size_t>(recv(descriptor, reply.data(), reply.size(), 0)));
    close(descriptor);
    const tBytes port = {static_cast<uint8_t>(camera.Port()),
                         static_cast<uint8_t>(camera.Port() >> 8)};
    EXPECT_TRUE((tcPattern("CD AC ED BE  CD 0C CD 0C") + port +
                 ".. .. .. .. .. ..  11 02 03 F4  F4 01 58 02")
                    .Fits(reply));
}

} // namespace

// What the camera knows of its frames for certain, beside what a client of bare bytes makes of
// them.
#include "RawClient.h"

#include <ctime>
#include <tuple>

namespace {

// Bit by bit, as its definition has it.
uint32_t Crc32(const tpBytes& bytes)
{
    uint32_t crc = 0xFFFFFFFF;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc & 1 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
        }
    }
    return ~crc;
}

int64_t Clock(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

constexpr int64_t gnMillisecond = 1000000;

TEST(SimTruth, TestComputesTheCheckValueThatEverybodyComputes)
{
    const std::string text = "123456789";
    EXPECT_EQ(Crc32({text.begin(), text.end()}), 0xCBF43926u);
}

// Of what a readout of the camera sends, the pixels as bytes.
tpBytes PixelsOf(tcFaultyCamera& camera, uint32_t packets)
{
    tpBytes pixels;
    for (uint32_t i = 0; i < packets; ++i) {
        const tsReceived packet = camera.Client().Receive();
        const size_t head = packet.id == ansPixels32.id ? 20 : 16;
        EXPECT_GT(packet.payload.size(), head);
        if (packet.payload.size() <= head) return {};
        pixels.insert(pixels.end(), packet.payload.begin() + static_cast<ptrdiff_t>(head),
                      packet.payload.end());
    }
    return pixels;
}

uint64_t SumOf(const tpBytes& pixels, size_t width)
{
    uint64_t sum = 0;
    for (size_t i = 0; i < pixels.size(); ++i) {
        sum += uint64_t{pixels[i]} << 8 * (i % width);
    }
    return sum;
}

void ExpectTruth(const tsSimFrame& frame, const tpBytes& pixels)
{
    EXPECT_EQ(frame.crc, Crc32(pixels));
    EXPECT_EQ(frame.pixelSum, SumOf(pixels, frame.bits / 8));
    EXPECT_EQ(frame.sent.crc, frame.crc);
    EXPECT_EQ(frame.sent.pixelSum, frame.pixelSum);
    EXPECT_EQ(frame.sent.packets, frame.totalPackets);
    EXPECT_EQ(frame.sent.lost, 0u);
    EXPECT_TRUE(frame.sent.intact);
}

// With a fault in view, though it strikes nothing, all goes out by another way.
class SimTruthOfPixels : public testing::TestWithParam<const char*>
{};

TEST_P(SimTruthOfPixels, AreAsSentInAllWidths)
{
    const std::string fault = GetParam();
    tcFaultyCamera camera(fault.empty() ? std::vector<std::string>{} : std::vector{fault});
    tcSimTestClient& client = camera.Client();
    client.SendCommand(cmdSetExposure, {0});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    const tpBytes words = PixelsOf(camera, 4);
    EXPECT_EQ(words.size(), 64u);
    ExpectTruth(camera.Server().Frames().back(), words); // no waiting: it is there already
    client.SendCommand(cmdReadCCDArea, {1, 2, 5, 2, 1, 8});
    const tpBytes bytes = PixelsOf(camera, 2);
    EXPECT_EQ(bytes.size(), 10u);
    ExpectTruth(camera.Server().Frames().back(), bytes);
    client.SendCommand(cmdReadCCDBinned, {1, 0, {}});
    const tpBytes binned = PixelsOf(camera, 2);
    EXPECT_EQ(binned.size(), 32u);
    ExpectTruth(camera.Server().Frames().back(), binned);
}

INSTANTIATE_TEST_SUITE_P(All, SimTruthOfPixels, testing::Values("stall:readout=99", ""),
                         [](const auto& one) {
                             return one.index == 0 ? "OnABadLine" : "OnAGoodLine";
                         });

TEST(SimTruth, OfAnAbortedFrameIsOfTheRowsThatWentOut)
{
    for (const std::vector<std::string>& faults :
         {std::vector<std::string>{}, std::vector<std::string>{"stall:readout=99"}}) {
        tsSimOptions options = tcFaultyCamera::Options(faults);
        options.rows = 400;
        options.lineRate = 100;
        tcFaultyCamera camera(options);
        camera.Client().SendCommand(cmdSetExposure, {0});
        camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
        tpBytes pixels = PixelsOf(camera, 2);
        camera.Client().SendCommand(cmdAbortRead);
        for (const tsReceived& packet : camera.Client().Settle()) {
            pixels.insert(pixels.end(), packet.payload.begin() + 16, packet.payload.end());
        }
        ASSERT_LT(pixels.size(), 400 * 16u);
        const tsSimFrame frame = camera.Server().Frames().back();
        EXPECT_EQ(frame.crc, Crc32(pixels));
        EXPECT_EQ(frame.sent.packets, pixels.size() / 16);
        EXPECT_EQ(frame.sent.lost, 400 - pixels.size() / 16);
        EXPECT_EQ(frame.sent.pixelSum, frame.pixelSum);
        pixels.resize(400 * 16);
        EXPECT_EQ(frame.sent.crc, Crc32(pixels)) << "the rest as zeros";
        EXPECT_FALSE(frame.sent.intact);
    }
}

// A client that believes every packet: 4 rows of 8 pixels, zeros where none come.
tpBytes Assembled(const tpMessages& messages)
{
    tpBytes image(4 * 16);
    for (const tpBytes& message : messages) {
        const size_t row = WordAt(message, 18), first = WordAt(message, 20);
        for (size_t i = 0; 28 + 2 * i + 1 < message.size(); ++i) {
            if (row >= 4 || first + i >= 8) continue;
            image[row * 16 + (first + i) * 2] = message[28 + 2 * i];
            image[row * 16 + (first + i) * 2 + 1] = message[28 + 2 * i + 1];
        }
    }
    return image;
}

// A fault; whole packets that come in all; and packets of the frame whose place they leave empty.
using tpDamage = std::tuple<const char*, uint32_t, uint32_t>;
class SimTruthOfDamage : public testing::TestWithParam<tpDamage>
{};

TEST_P(SimTruthOfDamage, IsWhatReallyCame)
{
    const uint32_t packets = std::get<1>(GetParam()), lost = std::get<2>(GetParam());
    tcFaultyCamera camera({std::get<0>(GetParam())});
    camera.Ask();
    camera.Read(tcFaultyCamera::nAnswerBytes);
    const tpMessages messages = Split(camera.Read(packets * tcFaultyCamera::nPacketBytes).bytes);
    ASSERT_EQ(messages.size(), packets);
    // A packet that was held back is counted after the frame is over.
    const auto frame = [&camera] { return camera.Server().Frames().at(0); };
    EXPECT_TRUE(Eventually([&] { return frame().sent.packets == packets; }));
    const tpBytes image = Assembled(messages);
    EXPECT_EQ(frame().sent.crc, Crc32(image));
    EXPECT_EQ(frame().sent.pixelSum, SumOf(image, 2));
    EXPECT_EQ(frame().sent.lost, lost);
    // What was meant is what a camera without faults sends.
    tpMessages healthy = tcFaultyCamera::Healthy();
    healthy.erase(healthy.begin(), healthy.begin() + tcFaultyCamera::nAnswers);
    EXPECT_EQ(frame().crc, Crc32(Assembled(healthy)));
    EXPECT_EQ(frame().sent.intact, messages == healthy);
}

INSTANTIATE_TEST_SUITE_P(All, SimTruthOfDamage,
                         testing::Values(tpDamage{"flip-payload:packet=2,bit=200", 4, 0}, // a pixel
                                         tpDamage{"flip-payload:packet=2,bit=48", 4, 1},  // the row
                                         tpDamage{"missing-packet:packet=2", 3, 1},
                                         tpDamage{"missing-packet:packet=4", 3, 1},
                                         tpDamage{"duplicate-packet:packet=2,count=2", 6, 0},
                                         tpDamage{"reorder:packet=1,count=2", 4, 0},
                                         tpDamage{"reorder:packet=4", 4, 0},
                                         tpDamage{"outside:packet=3", 4, 1},
                                         tpDamage{"outside:packet=3,row=2,column=4", 4, 1},
                                         tpDamage{"changed-total:packet=3", 4, 0},
                                         tpDamage{"no-last-frame", 4, 0}));

TEST(SimTruth, CountsAPacketThatIsNoneAnyMoreAsLost)
{
    for (const char* fault : {"wrong-version:packet=2", "unknown-id:packet=2", "truncate:packet=2",
                              "over-long:packet=2", "zero-length:packet=2"}) {
        SCOPED_TRACE(fault);
        tcFaultyCamera camera({fault});
        camera.Ask();
        ASSERT_TRUE(Eventually([&camera] {
            const auto frames = camera.Server().Frames();
            return !frames.empty() && frames[0].sent.packets == 3;
        }));
        const tsSimFrame frame = camera.Server().Frames()[0];
        EXPECT_EQ(frame.sent.lost, 1u);
        EXPECT_NE(frame.sent.crc, frame.crc);
        EXPECT_FALSE(frame.sent.intact);
    }
}

TEST(SimTruth, LeavesOutWhatAConnectionThatBreaksDoesNotCarry)
{
    tcFaultyCamera camera({"close-payload:packet=3"});
    camera.Ask();
    tpMessages messages = Split(camera.Read(100000).bytes);
    messages.erase(messages.begin(), messages.begin() + tcFaultyCamera::nAnswers);
    ASSERT_EQ(messages.size(), 3u);
    messages.pop_back(); // half of one
    ASSERT_TRUE(Eventually([&camera] { return camera.Server().Frames()[0].aborted; }));
    const tsSimFrame frame = camera.Server().Frames()[0];
    EXPECT_EQ(frame.sent.packets, 2u);
    EXPECT_EQ(frame.sent.lost, 2u);
    EXPECT_EQ(frame.sent.crc, Crc32(Assembled(messages)));
}

// ---- Times --------------------------------------------------------------------------------------

TEST(SimTruth, OfAnExposureIsItsBeginAndEndOnBothClocks)
{
    tsSimOptions options = tcFaultyCamera::Options();
    options.timeScale = 10;
    tcFaultyCamera camera(options);
    camera.Client().SendCommand(cmdSetExposure, {500});
    camera.Client().Settle();
    const int64_t before = Clock(CLOCK_MONOTONIC), beforeUtc = Clock(CLOCK_REALTIME);
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 3, 0});
    std::vector<int64_t> arrived;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(camera.Client().ReceiveFrame().complete);
        arrived.push_back(Clock(CLOCK_MONOTONIC));
    }
    const auto frames = camera.Server().Frames();
    ASSERT_EQ(frames.size(), 3u);
    int64_t last = before;
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_GE(frames[i].begin.monotonic, last);
        EXPECT_NEAR(double(frames[i].end.monotonic - frames[i].begin.monotonic),
                    50.0 * gnMillisecond, 1000)
            << "ten times as fast";
        EXPECT_LE(frames[i].end.monotonic, arrived[i]);
        EXPECT_NEAR(double(frames[i].begin.realtime - beforeUtc),
                    double(frames[i].begin.monotonic - before), 5.0 * gnMillisecond);
        EXPECT_NEAR(double(frames[i].end.realtime - frames[i].begin.realtime), 50.0 * gnMillisecond,
                    1000);
        last = frames[i].end.monotonic;
    }
}

TEST(SimTruth, OfATriggeredExposureIsTheTriggersTime)
{
    tcFaultyCamera camera;
    camera.Client().SendCommand(cmdSetTriggerMode, {eExtTrigExposure, 0, 0});
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    camera.Client().Settle();
    const int64_t before = Clock(CLOCK_MONOTONIC);
    camera.Client().SendCommand(cmdSetTrigger, {1});
    camera.Client().Settle();
    const int64_t open = Clock(CLOCK_MONOTONIC);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const int64_t closing = Clock(CLOCK_MONOTONIC);
    camera.Client().SendCommand(cmdSetTrigger, {0});
    ASSERT_TRUE(camera.Client().ReceiveFrame().complete);
    const tsSimFrame frame = camera.Server().Frames().back();
    EXPECT_GE(frame.begin.monotonic, before);
    EXPECT_LE(frame.begin.monotonic, open);
    EXPECT_GE(frame.end.monotonic, closing);
    EXPECT_LE(frame.end.monotonic, Clock(CLOCK_MONOTONIC));
}

} // namespace

// What the application is told of frames beside the pixels, against the simulated camera.
#include "fault_support.h"
#include "records_support.h"

#include "vxcamext.h"

#include <sstream>

using testing::ElementsAre;

namespace {

std::vector<std::string> SplitAtSemicolons(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, ';');) {
        parts.push_back(part);
    }
    return parts;
}

} // namespace

// ---- What is missing

TEST_P(FrameRecords, TellWhichRowsAreNotWhatTheCameraSent)
{
    Start(SplitAtSemicolons(GetParam().fault));
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    const auto kept = records.All();
    ASSERT_EQ(1u, kept.size());
    EXPECT_GE(Struck(), 1u);
    EXPECT_EQ(GetParam().rows, kept[0].rows);
    for (const int row : WrongRows(image)) {
        EXPECT_THAT(kept[0].rows, testing::Contains(row));
    }
    EXPECT_EQ(GetParam().packets, kept[0].packets);
    EXPECT_EQ(GetParam().packets.size(), kept[0].record.PacketsMissing);
    EXPECT_EQ(GetParam().misplaced, kept[0].record.PacketsMisplaced);
    EXPECT_EQ(GetParam().damaged, kept[0].record.PacketsDamaged);
    const bool isWhole = GetParam().rows.empty();
    EXPECT_EQ(isWhole ? eFrameComplete : eFrameIncomplete,
              static_cast<int>(kept[0].record.Outcome));
    EXPECT_EQ(isWhole ? eReadoutComplete : eReadoutIncomplete, VXReadoutResult(handle));
    ExpectWhole();
    EXPECT_EQ(eReadoutComplete, VXReadoutResult(handle));
}

INSTANTIATE_TEST_SUITE_P(
    All, FrameRecords,
    testing::Values(
        tsCase{"Truncated", "truncate:packet=11", {10, 11}, {11, 12}, 0, 1},
        tsCase{"OverLong", "over-long:packet=11", {10}, {11}, 0, 0},
        tsCase{"OverLongByThree", "over-long:packet=11,value=600", {11, 12}, {12, 13}, 0, 0},
        tsCase{"FlippedMagic", "flip-header:packet=11,bit=3", {10}, {11}, 0, 0},
        tsCase{"MissingFirst", "missing-packet:packet=1", {0}, {1}, 0, 0},
        tsCase{"MissingPackets",
               "missing-packet:packet=11;missing-packet:packet=12;missing-packet:packet=13",
               {10, 11, 12},
               {11, 12, 13},
               0,
               0},
        tsCase{"Garbage", "garbage:packet=11,bytes=5000", {}, {}, 0, 0},
        tsCase{"Duplicate", "duplicate-packet:packet=11,count=3", {}, {}, 0, 0},
        tsCase{"DuplicateFirst", "duplicate-packet:packet=1", {}, {}, 0, 0},
        tsCase{"Reordered", "reorder:packet=11,count=7", {}, {}, 0, 0},
        // The lowest bit of its row.
        tsCase{"FlippedRow", "flip-payload:packet=11,bit=48", {10, 11}, {}, 1, 0},
        tsCase{"OutsideByRow", "outside:packet=11,row=64", {10}, {}, 1, 0},
        tsCase{"OutsideByColumn", "outside:packet=11,row=10,column=40", {10}, {}, 1, 0},
        tsCase{"OutsideElsewhere", "outside:packet=11,row=30,column=40", {10, 30}, {}, 1, 0}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(FrameRecords, TellTheRowOfOneOfSeveralPackets)
{
    tsSimOptions options = Options();
    options.columns = 10000; // two packets a row
    options.rows = 8;
    Start({"missing-packet:packet=7", "missing-packet:packet=10"}, options);
    std::vector<uint16_t> image(size_t{8} * 10000);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.data(), 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto kept = records.All();
    ASSERT_EQ(1u, kept.size());
    EXPECT_EQ(16u, kept[0].record.PacketsExpected);
    EXPECT_THAT(kept[0].packets, ElementsAre(7, 10));
    EXPECT_THAT(kept[0].rows, ElementsAre(3, 4));
}

TEST_F(FrameRecords, TellTheRowsOfRegions)
{
    Start({"missing-packet:packet=20", "missing-packet:packet=21"});
    int rows[] = {2, 40}, columns[] = {8, 16}, heights[] = {20, 10}, widths[] = {64, 32};
    ASSERT_EQ(0, VXSetAreaEx(handle, 2, rows, columns, heights, widths));
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    const auto kept = records.All();
    ASSERT_EQ(1u, kept.size());
    EXPECT_EQ(30u, kept[0].record.PacketsExpected);
    EXPECT_EQ(2u, kept[0].record.FirstRow);
    EXPECT_EQ(48u, kept[0].record.Rows);
    EXPECT_THAT(kept[0].rows, ElementsAre(19, 38)) << "the last of one, the first of the other";
}

TEST_F(FrameRecords, TellTheRowOfABinnedFrame)
{
    Start({"missing-packet:packet=5"});
    tcImage<uint32_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDBinned(handle, reinterpret_cast<long*>(image.Data()), nullptr, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto kept = records.All();
    ASSERT_EQ(1u, kept.size());
    EXPECT_EQ(nRows / 2u, kept[0].record.Rows);
    EXPECT_EQ(nColumns / 2u, kept[0].record.Columns);
    EXPECT_THAT(kept[0].rows, ElementsAre(4));
}

TEST_F(FrameRecords, TellACutFrame)
{
    Start({"missing-packet:packet=60", "missing-packet:packet=61", "missing-packet:packet=62",
           "missing-packet:packet=63", "missing-packet:packet=64"});
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 2, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto kept = records.All();
    ASSERT_EQ(2u, kept.size());
    EXPECT_EQ(eFrameCut, static_cast<int>(kept[0].record.Outcome));
    EXPECT_THAT(kept[0].packets, ElementsAre(60, 61, 62, 63, 64));
    EXPECT_THAT(kept[0].rows, ElementsAre(59, 60, 61, 62, 63));
    EXPECT_EQ(eFrameComplete, static_cast<int>(kept[1].record.Outcome));
    EXPECT_EQ(sim->Frames()[1].pixelSum, kept[1].sum);
    EXPECT_EQ(eReadoutIncomplete, VXReadoutResult(handle));
}

// ---- Times

TEST_F(FrameRecords, TellTimesThatHoldTheExposure)
{
    Start({});
    ASSERT_EQ(0, VXSetExposure(handle, 50));
    for (int i = 0; i < 3; ++i) {
        tcImage<uint16_t> image(nRows, nColumns);
        EXPECT_EQ(0, Read(image));
    }
    const auto kept = records.All();
    ASSERT_EQ(3u, kept.size());
    for (const auto& one : kept) {
        const tsFrameRecord& record = one.record;
        EXPECT_EQ(50u, record.Exposure);
        EXPECT_GE(record.FirstPacket.Monotonic - record.CommandBegun.Monotonic, 50000000);
        EXPECT_GE(record.CommandSent.Monotonic, record.CommandBegun.Monotonic);
        EXPECT_GE(record.LastPacket.Monotonic, record.FirstPacket.Monotonic);
        const int64_t offset = record.FirstPacket.Realtime - record.FirstPacket.Monotonic;
        EXPECT_NEAR(static_cast<double>(offset),
                    static_cast<double>(record.LastPacket.Realtime - record.LastPacket.Monotonic),
                    1e8);
    }
}

// The receive thread is kept for as long as the camera needs for all frames.
TEST_F(FrameRecords, TellSinceWhenFramesMayHaveWaited)
{
    constexpr int frames = 10;
    Start({});
    struct tsLate {
        tcSimServer& camera;
        std::vector<tsFrameRecord> records;
        std::chrono::steady_clock::time_point allCame;
    } late{*sim, {}, {}};
    const auto keep = [](int, const tsFrameRecord* record, void* user) {
        auto& state = *static_cast<tsLate*>(user);
        state.records.push_back(*record);
        const auto haveAllCome = [&] { return state.camera.Frames().size() == frames; };
        if (record->Frame > 1) return;
        EXPECT_TRUE(WaitUntil(haveAllCome));
        state.allCame = std::chrono::steady_clock::now();
    };
    ASSERT_EQ(0, VXSetFrameCallback(handle, keep, &late));
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), frames, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    ASSERT_EQ(size_t{frames}, late.records.size());
    const int64_t came = late.allCame.time_since_epoch() / std::chrono::nanoseconds(1);
    int waited = 0;
    for (const tsFrameRecord& record : late.records) {
        if (record.Frame == 1 || record.Frame == frames) continue;
        EXPECT_GE(record.FirstPacket.Monotonic, came) << record.Frame;
        if (record.FirstPacketAfter.Monotonic == 0) continue; // what came first
        ++waited;
        EXPECT_LT(record.FirstPacketAfter.Monotonic, came) << record.Frame;
        EXPECT_EQ(record.FirstPacket.Realtime - record.FirstPacket.Monotonic,
                  record.FirstPacketAfter.Realtime - record.FirstPacketAfter.Monotonic);
    }
    EXPECT_GE(waited, frames - 3);
}

// ---- Buffers in turn

TEST_F(FrameRecords, OfBuffersInTurnHoldTheSumsThatTheCameraSent)
{
    constexpr int frames = 40;
    Start({});
    ASSERT_EQ(0, VXSetCCDArea(handle, 10, 5, 40, 30));
    std::vector<std::vector<uint16_t>> memory(4, std::vector<uint16_t>(40 * 30));
    std::vector<void*> buffers;
    for (auto& one : memory) {
        buffers.push_back(one.data());
    }
    struct tsSums {
        std::mutex mutex;
        std::vector<uint64_t> sums;
    } sums;
    const auto keep = [](int camera, const tsFrameRecord* frame, void* user) {
        auto& to = *static_cast<tsSums*>(user);
        const auto* pixels = static_cast<const uint16_t*>(frame->Buffer);
        {
            std::lock_guard<std::mutex> lock(to.mutex);
            to.sums.push_back(std::accumulate(pixels, pixels + 40 * 30, uint64_t{0}));
        }
        EXPECT_EQ(eFrameComplete, static_cast<int>(frame->Outcome));
        EXPECT_EQ(40u, frame->Stride);
        EXPECT_EQ(0, VXReturnImageBuffer(camera, frame->Buffer));
    };
    VXSetFrameCallback(handle, keep, &sums);
    ASSERT_EQ(0, VXSetImageBuffers(handle, buffers.data(), 4, 40 * 30 * 2));
    unsigned short none = 0;
    EXPECT_EQ(0, VXSetTestPattern(handle, 0, &none, 1));
    EXPECT_EQ(0, VXSetExposure(handle, 5));
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, frames, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto sent = sim->Frames();
    ASSERT_EQ(static_cast<size_t>(frames), sent.size());
    ASSERT_EQ(static_cast<size_t>(frames), sums.sums.size());
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].pixelSum, sums.sums[i]) << i;
    }
    EXPECT_EQ(0u, Books().FramesUnderrun);
}

// What the application is told beside the pixels, against the simulated camera.
#include "fault_support.h"

#include "vxcamext.h"

#include <sstream>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Keeps the records of frames with what they point to.
// Threads: any.
class tcRecords
{
public:
    struct tsKept {
        tsFrameRecord record;
        std::vector<int> rows;
        std::vector<int> packets; // missing, by number
        uint64_t sum;             // of the pixels
    };

    void Subscribe(int handle) { VXSetFrameCallback(handle, &tcRecords::Keep, this); }
    std::vector<tsKept> All() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mKept;
    }

private:
    static void Keep(int, const tsFrameRecord* frame, void* user)
    {
        tsKept kept{*frame, {}, {}, Sum(*frame)};
        kept.rows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
        for (uint32_t i = 0; frame->MissingBits != nullptr && i < frame->PacketsExpected; ++i) {
            if (frame->MissingBits[i / 8] >> i % 8 & 1) {
                kept.packets.push_back(static_cast<int>(i + 1));
            }
        }
        auto& self = *static_cast<tcRecords*>(user);
        std::lock_guard<std::mutex> lock(self.mMutex);
        self.mKept.push_back(std::move(kept));
    }
    static uint64_t Sum(const tsFrameRecord& frame)
    {
        uint64_t sum = 0;
        for (uint32_t row = 0; frame.Buffer != nullptr && row < frame.Rows; ++row) {
            for (uint32_t column = 0; column < frame.Columns; ++column) {
                const size_t at =
                    (size_t{frame.FirstRow} + row) * frame.Stride + frame.FirstColumn + column;
                sum += frame.Bits == 8    ? static_cast<const uint8_t*>(frame.Buffer)[at]
                       : frame.Bits == 16 ? static_cast<const uint16_t*>(frame.Buffer)[at]
                                          : static_cast<const uint32_t*>(frame.Buffer)[at];
            }
        }
        return sum;
    }

    mutable std::mutex mMutex;
    std::vector<tsKept> mKept;
};

// A frame with a fault.
struct tsCase {
    const char* name;
    const char* fault;
    std::vector<int> rows;    // that the record has to tell
    std::vector<int> packets; // missing
    uint32_t misplaced, damaged;
};

std::vector<std::string> SplitAtSemicolons(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, ';');) {
        parts.push_back(part);
    }
    return parts;
}

void PrintTo(const tsCase& one, std::ostream* out)
{
    *out << one.fault;
}

} // namespace

class FrameRecords : public Faults, public testing::WithParamInterface<tsCase>
{
protected:
    void Start(const std::vector<std::string>& faults, tsSimOptions options)
    {
        options.heartbeatSeconds = 0;
        options.faults = ParseSimFaults(faults);
        OpenWith(options);
        records.Subscribe(handle);
        EXPECT_EQ(0, VXSetCCDArea(handle, 0, 0, options.columns, options.rows));
    }
    void Start(const std::vector<std::string>& faults) { Start(faults, Options()); }

    tcRecords records;
};

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

// ---- 8 bits

TEST_F(FrameRecords, OfReadoutsIn8BitsHoldWhatTheCameraSent)
{
    Start({});
    unsigned short base = 0x2F80;
    ASSERT_EQ(0, VXSetTestPattern(handle, 4, &base, 1));
    tcImage<uint8_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDArea8(handle, image.Data(), 2, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(0, VXisCameraReady(handle));
    for (uint32_t row = 0; row < nRows; ++row) {
        for (uint32_t column = 0; column < nColumns; ++column) {
            ASSERT_EQ((row + column + base) >> 8, image.At(row, column));
        }
    }
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, nRows, nColumns));
    const auto kept = records.All();
    ASSERT_EQ(2u, kept.size());
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(8u, kept[i].record.Bits);
        EXPECT_EQ(eFrameComplete, static_cast<int>(kept[i].record.Outcome));
        EXPECT_EQ(sim->Frames()[i].pixelSum, kept[i].sum);
    }
    EXPECT_EQ(2u, Books().FramesComplete);
    EXPECT_EQ(0u, log.Count("CompileMessage8"));
}

// An ordinary readout with the flag for 8 bits goes nowhere, and hurts no other.
TEST_F(FrameRecords, OfAnOrdinaryReadoutIn8BitsLeaveTheNextAlone)
{
    Start({});
    for (const bool isAborted : {false, true}) {
        tcImage<uint16_t> image(nRows, nColumns);
        ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0x0008));
        ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
        EXPECT_TRUE(image.IsUntouched());
        EXPECT_EQ(0, VXisCameraReady(handle));
        if (isAborted) {
            EXPECT_EQ(0, VXAbortRead(handle));
        }
        for (int i = 0; i < 2; ++i) {
            image.Mark();
            EXPECT_EQ(0, Read(image));
            EXPECT_THAT(WrongRows(image), IsEmpty());
        }
        tcImage<uint8_t> bytes(nRows, nColumns);
        ASSERT_EQ(0, VXReadCCDArea8(handle, bytes.Data(), 1, 0));
        ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
        EXPECT_FALSE(bytes.IsUntouched());
    }
}

// ---- The link

TEST_F(FrameRecords, AreFollowedByLinkEventsWithTheCamerasLastWords)
{
    struct tsEvents {
        std::mutex mutex;
        std::vector<std::string> texts;
        size_t Count()
        {
            std::lock_guard<std::mutex> lock(mutex);
            return texts.size();
        }
    } seen;
    Start({"close-payload:packet=11"});
    VXSetLinkCallback(
        handle,
        [](int, const tsLinkRecord* link, void* user) {
            auto& to = *static_cast<tsEvents*>(user);
            std::lock_guard<std::mutex> lock(to.mutex);
            to.texts.push_back((link->Event == eLinkLost ? "lost: " : "restored: ") +
                               std::string(link->LastWords));
        },
        &seen);
    unsigned short base = 1;
    EXPECT_EQ(0, VXSetTestPattern(handle, 4, &base, 1));
    std::vector<uint16_t> image(size_t{nRows} * nColumns);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.data(), 1, 0));
    ASSERT_TRUE(WaitUntil([&] { return seen.Count() >= 2; }));
    EXPECT_EQ(eReadoutLinkLost, VXReadoutResult(handle));
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_THAT(seen.texts, ElementsAre("lost: ", "restored: "));
    EXPECT_THAT(records.All(), IsEmpty());
    ASSERT_TRUE(AwaitUnderstanding());
    ExpectWhole();
    for (const auto& kept : records.All()) {
        EXPECT_EQ(eFrameComplete, static_cast<int>(kept.record.Outcome));
    }
}

// ---- The tap

TEST_F(FrameRecords, AreMadeOfWhatTheTapSees)
{
    struct tsSeen {
        std::mutex mutex;
        std::string received, sent;
        std::vector<unsigned> answers, commands;
    } seen;
    const auto keep = [](int, const tsTapRecord* record, void* user) {
        auto& to = *static_cast<tsSeen*>(user);
        std::lock_guard<std::mutex> lock(to.mutex);
        const auto* bytes = reinterpret_cast<const char*>(record->Bytes);
        EXPECT_EQ(sizeof *record, record->Size);
        EXPECT_GT(record->Time.Monotonic, 0);
        if (record->What == eTapBytesReceived) to.received.append(bytes, record->Length);
        if (record->What == eTapBytesSent) to.sent.append(bytes, record->Length);
        if (record->What == eTapMessagesReceived) to.answers.push_back(record->Bytes[9]);
        if (record->What == eTapMessagesSent) to.commands.push_back(record->Bytes[9]);
    };
    Start({});
    const tsStatistics before = Books();
    EXPECT_EQ(-5, VXSetTap(handle, 32, keep, &seen));
    EXPECT_EQ(-3, VXSetTap(handle + 100, 1, keep, &seen));
    ASSERT_EQ(0, VXSetTap(handle,
                          eTapBytesReceived | eTapBytesSent | eTapMessagesReceived |
                              eTapMessagesSent | eTapLink,
                          keep, &seen));
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    int trigger = 0;
    EXPECT_EQ(0, VXGetTrigger(handle, &trigger));
    ASSERT_EQ(0, VXSetTap(handle, 0, nullptr, nullptr));
    EXPECT_EQ(0, VXGetTrigger(handle, &trigger));
    EXPECT_THAT(seen.commands, ElementsAre(0x36, 0x59));
    EXPECT_THAT(seen.answers, ElementsAre(0x7F)) << "pixel packets are left out";
    EXPECT_EQ(24u + 12u, seen.sent.size());
    EXPECT_EQ(seen.sent.substr(0, 2), "\x50\xFA");
    const size_t packets = nRows * (28u + 2u * nColumns);
    EXPECT_EQ(packets + 12 + 4, seen.received.size());
    EXPECT_EQ(before.BytesReceived + packets + 2 * (12 + 4), Books().BytesReceived);
}

TEST_F(FrameRecords, TellTheTapOfAllBytesFromTheFirstOn)
{
    struct tsSeen {
        std::mutex mutex;
        std::string received, sent;
    } seen;
    const auto keep = [](int, const tsTapRecord* record, void* user) {
        auto& to = *static_cast<tsSeen*>(user);
        std::lock_guard<std::mutex> lock(to.mutex);
        const auto* bytes = reinterpret_cast<const char*>(record->Bytes);
        (record->What == eTapBytesSent ? to.sent : to.received).append(bytes, record->Length);
    };
    EXPECT_EQ(-5, VXSetOpeningTap(32, keep, &seen));
    ASSERT_EQ(0, VXSetOpeningTap(eTapBytesReceived | eTapBytesSent, keep, &seen));
    Start({});
    ASSERT_EQ(0, VXSetOpeningTap(0, nullptr, nullptr));
    ASSERT_EQ(0, VXSetTap(handle, 0, nullptr, nullptr));
    const tsStatistics books = Books();
    EXPECT_GT(books.BytesSent, 0u);
    EXPECT_GT(books.BytesReceived, 0u);
    EXPECT_EQ(seen.sent.size(), books.BytesSent);
    EXPECT_EQ(seen.received.size(), books.BytesReceived);
    EXPECT_EQ(seen.sent.substr(0, 2), "\x50\xFA");
    EXPECT_EQ(seen.received.substr(0, 2), "\x50\xFA");
}

// Pixel packets that a lost connection cut in two.
#include "books.h"
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

namespace {

// A camera whose connection breaks when the test says so.
class tcBreakingCamera : public tcTestCamera
{
public:
    void BreakLink()
    {
        mpParser->MarkBreak();
        LinkLost();
        LinkRestored();
    }
};

// Packets of a frame of 4 rows, and breaks inside them.
class Broken : public testing::Test
{
protected:
    Broken()
    {
        mCamera.Log().setDbgLevel(0);
        mCamera.TellGeometry(4, 8);
        mCamera.SetCCDArea(0, 0, 8, 4);
        VXSetFrameCallback(
            mCamera.GetHandle(),
            [](int, const tsFrameRecord* frame, void* user) {
                auto& self = *static_cast<Broken*>(user);
                self.mTold.push_back(*frame);
                self.mRows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
            },
            this);
    }
    static unsigned Pixel(unsigned row, unsigned column) { return 100 * row + column + 1; }
    static tBytes Packet(unsigned row)
    {
        tsPixels pixels{e16Bit, row + 1, 4, row, 0, 7, true};
        for (unsigned column = 0; column < 8; ++column) {
            pixels.values.push_back(Pixel(row, column));
        }
        return pixels.Message().Bytes();
    }
    void Feed(const tBytes& bytes)
    {
        if (!bytes.empty()) mCamera.FeedParser(bytes, bytes.size());
    }
    tsStatistics Figures()
    {
        tsStatistics figures{};
        mCamera.GetStatistics(&figures, sizeof figures);
        ExpectThatTheyAddUp(figures);
        return figures;
    }

    tcBreakingCamera mCamera;
    std::vector<tsFrameRecord> mTold;
    std::vector<uint32_t> mRows;
};

} // namespace

// The connection breaks at every byte of every packet; over the next one the camera goes on with
// the packet that follows, and sends the last one again. Frames that are told as complete are what
// was sent: none whose pixel packet was finished with other bytes is.
TEST_F(Broken, FramesAreToldAsCompleteOnlyWhereTheyAre)
{
    const size_t length = Packet(0).size();
    for (unsigned cut = 0; cut < 4; ++cut) {
        for (size_t at = 1; at < length; ++at) {
            SCOPED_TRACE(testing::Message() << "packet " << cut + 1 << " at " << at);
            tcImage image(e16Bit, 32);
            mTold.clear();
            mCamera.AbortRead();
            const tsStatistics before = Figures();
            ASSERT_EQ(mCamera.ReadCCDArea(image.Shorts(), 1, 0), 0);
            for (unsigned row = 0; row < 4; ++row) {
                const tBytes packet = Packet(row);
                if (row != cut) {
                    Feed(packet);
                    continue;
                }
                Feed({packet.begin(), packet.begin() + static_cast<long>(at)});
                mCamera.BreakLink();
            }
            Feed(Packet(3)); // so that it ends whichever packet was swallowed
            Feed(Packet(3));
            const tsStatistics after = Figures();
            ASSERT_FALSE(mTold.empty());
            const bool isComplete = mTold[0].Outcome == eFrameComplete;
            EXPECT_EQ(after.FramesComplete, before.FramesComplete + (isComplete ? 1 : 0));
            const bool isMarked = after.PacketsDamaged > before.PacketsDamaged;
            EXPECT_FALSE(isComplete && isMarked);
            EXPECT_FALSE(isComplete && cut < 3);
            if (at >= 12) {
                EXPECT_TRUE(isMarked) << "by its header a pixel packet";
            }
            for (unsigned i = 0; i < 32 && isComplete; ++i) {
                ASSERT_EQ(image.At(i), Pixel(i / 8, i % 8));
            }
            EXPECT_TRUE(image.GuardsAreWhole());
        }
    }
}

// The cut packet is finished with bytes of the packet that follows.
TEST_F(Broken, PacketIsMarkedAsDamagedAndItsRowTold)
{
    tcImage image(e16Bit, 32);
    mCamera.ReadCCDArea(image.Shorts(), 1, 0);
    Feed(Packet(0));
    const tBytes packet = Packet(1);
    Feed({packet.begin(), packet.end() - 6});
    mCamera.BreakLink();
    Feed(tBytes(6, 0x77));
    Feed(Packet(2));
    Feed(Packet(3));
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
    EXPECT_EQ(mTold[0].PacketsMissing, 1U);
    EXPECT_EQ(mTold[0].PacketsReceived, 3U);
    EXPECT_EQ(mRows, std::vector<uint32_t>{1});
    const tsStatistics figures = Figures();
    EXPECT_EQ(figures.PacketsDamaged, 1U);
    EXPECT_EQ(figures.PacketsShort, 1U);
    EXPECT_EQ(figures.PacketsMissing, 1U);
    EXPECT_EQ(figures.FramesIncomplete, 1U);
    EXPECT_EQ(VXReadoutResult(mCamera.GetHandle()), eReadoutLinkLost);
}

// A frame of which only the last packet was cut.
TEST_F(Broken, LastPacketEndsTheFrameAsIncomplete)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (unsigned row = 0; row < 3; ++row) {
        Feed(Packet(row));
    }
    const tBytes packet = Packet(3);
    Feed({packet.begin(), packet.end() - 1});
    mCamera.BreakLink();
    Feed({0x77});
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(Figures().FramesIncomplete, 1U);
    EXPECT_EQ(Figures().FramesComplete, 0U);
}

// Sent once more, a cut packet is whole; but what was stored for it may lie anywhere.
TEST_F(Broken, FrameIsNotMadeWholeByARepetition)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    const tBytes packet = Packet(0);
    Feed({packet.begin(), packet.end() - 1});
    mCamera.BreakLink();
    Feed({0x77});
    for (unsigned row = 0; row < 4; ++row) {
        Feed(Packet(row));
    }
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].PacketsMissing, 0U);
    EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(Figures().FramesIncomplete, 1U);
}

// ---- Packets that the camera cuts short: what follows them is lost in part ----------------------

// A packet of any row is cut by any number of bytes, and a heartbeat, or none, follows. A frame
// that is told as complete has the pixels that were sent; where the cut end is shorter than a
// message's header, that cannot be seen before the frame's end.
TEST_F(Broken, FramesWithPacketsThatWereCutShortAreNotComplete)
{
    const tBytes heartBeat = tcMessage(0x69, tcPayload().Fill(6, 1)).Bytes();
    const size_t length = Packet(0).size();
    for (unsigned cut = 0; cut < 4; ++cut) {
        for (size_t by = 1; by <= 16 + length - 28; ++by) {
            for (bool beats : {false, true}) {
                SCOPED_TRACE(testing::Message()
                             << "packet " << cut + 1 << " cut by " << by
                             << (beats ? ", with" : ", without") << " a heartbeat");
                if (cut == 3 && by < 12) continue;
                tcImage image(e16Bit, 32);
                mTold.clear();
                mCamera.ReadCCDArea(image.Shorts(), 1, 0);
                tBytes stream;
                for (unsigned row = 0; row < 5; ++row) { // the last one is sent twice
                    const tBytes packet = Packet(std::min(row, 3U));
                    const size_t left = packet.size() - (row == cut ? by : 0);
                    stream.insert(stream.end(), packet.begin(),
                                  packet.begin() + static_cast<long>(left));
                    if (row == cut && beats) {
                        stream.insert(stream.end(), heartBeat.begin(), heartBeat.end());
                    }
                }
                Feed(stream);
                mCamera.AbortRead();
                Feed(tBytes(100, 0)); // which ends what has begun
                for (const tsFrameRecord& record : mTold) {
                    ASSERT_NE(record.Outcome, eFrameComplete);
                }
                ASSERT_TRUE(image.GuardsAreWhole());
                Figures();
            }
        }
    }
}

// The rest of the heartbeat that the packet was finished with belongs to nothing.
TEST_F(Broken, PacketThatWasCutShortIsDamagedAndItsRowTold)
{
    const tBytes heartBeat = tcMessage(0x69, tcPayload().Fill(6, 1)).Bytes();
    for (size_t by : {3, 8, 14, 18, 26}) {
        SCOPED_TRACE(by);
        mTold.clear();
        const tsStatistics before = Figures();
        mCamera.ReadCCDArea(nullptr, 1, 0);
        Feed(Packet(0));
        const tBytes packet = Packet(1);
        Feed({packet.begin(), packet.end() - static_cast<long>(by)});
        Feed(heartBeat);
        Feed(heartBeat);
        Feed(Packet(2));
        Feed(Packet(3));
        ASSERT_EQ(mTold.size(), 1U);
        EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
        EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
        EXPECT_EQ(mTold[0].PacketsMissing, 1U);
        EXPECT_EQ(mTold[0].PacketsReceived, 3U);
        EXPECT_EQ(mRows, std::vector<uint32_t>{1});
        EXPECT_EQ(VXReadoutResult(mCamera.GetHandle()), eReadoutIncomplete);
        const tsStatistics after = Figures();
        EXPECT_EQ(after.FramesIncomplete, before.FramesIncomplete + 1);
        EXPECT_EQ(after.PacketsDamaged, before.PacketsDamaged + 1);
        EXPECT_EQ(after.PacketsShort, before.PacketsShort + 1);
    }
}

// The end of a frame's last packet is the beginning of the next frame.
TEST_F(Broken, LastPacketThatWasCutShortEndsTheFrameAsIncomplete)
{
    mCamera.ReadCCDArea(nullptr, 2, 0);
    for (unsigned row = 0; row < 3; ++row) {
        Feed(Packet(row));
    }
    const tBytes packet = Packet(3);
    Feed({packet.begin(), packet.end() - 14});
    Feed(Packet(0));
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
    EXPECT_EQ(mRows, std::vector<uint32_t>{3});
}

// Pixels may be anything: as long as their packet is followed by a message, it is whole; and so it
// is when something is skipped behind a packet that has nothing like a header.
TEST_F(Broken, PixelsThatLookLikeAHeaderAreNotDamaged)
{
    const unsigned header[] = {0xFA50, 2, 0x0001, 0, 0x6903, 0};
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (unsigned row = 0; row < 4; ++row) {
        tsPixels pixels{e16Bit, row + 1, 4, row, 0, 7, true};
        pixels.values.assign(8, 0x5050);
        if (row == 0) std::copy(std::begin(header), std::end(header), pixels.values.begin());
        if (row == 1) pixels.values[7] = 0xFA50;
        if (row == 2) pixels.values[7] = 0x7777;
        Feed(pixels.Message().Bytes());
        if (row == 2) Feed(tBytes(5, 0x77));
    }
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameComplete);
    EXPECT_EQ(Figures().PacketsDamaged, 0U);
}

// ---- The same with rows that take the search for messages some steps ----------------------------

namespace {

class BrokenLong : public Broken
{
protected:
    static constexpr unsigned gnColumns = 300;

    BrokenLong()
    {
        mCamera.TellGeometry(2, gnColumns);
        mCamera.SetCCDArea(0, 0, gnColumns, 2);
    }
    static tBytes Row(unsigned row, size_t changed = 0, const tBytes& by = {})
    {
        tsPixels pixels{e16Bit, row + 1, 2, row, 0, gnColumns - 1, true};
        pixels.values.assign(gnColumns, 0x0050); // half of what a message begins with
        tBytes packet = pixels.Message().Bytes();
        std::copy(by.begin(), by.end(), packet.begin() + static_cast<long>(changed));
        return packet;
    }
    const tBytes mHeartBeat = tcMessage(0x69, tcPayload().Fill(6, 1)).Bytes();
};

} // namespace

// Heartbeats follow, which fill the packet up: with whole ones, or with a part of the last.
TEST_F(BrokenLong, PacketIsDamagedHoweverMuchWasCut)
{
    const size_t length = Row(0).size();
    for (size_t by = 12; by <= 2 * gnColumns; ++by) {
        SCOPED_TRACE(by);
        mTold.clear();
        const uint64_t before = Figures().PacketsDamaged;
        mCamera.ReadCCDArea(nullptr, 1, 0);
        tBytes stream = Row(0);
        stream.resize(length - by);
        while (stream.size() < length) {
            stream.insert(stream.end(), mHeartBeat.begin(), mHeartBeat.end());
        }
        Feed(stream);
        Feed(Row(1));
        ASSERT_EQ(mTold.size(), 1U);
        ASSERT_EQ(mTold[0].Outcome, eFrameIncomplete);
        ASSERT_EQ(Figures().PacketsDamaged, before + 1);
    }
}

TEST_F(BrokenLong, PacketThatHoldsWhatLooksLikeAHeaderAnywhereIsWhole)
{
    const size_t length = Row(0).size();
    for (size_t at = 28; at + mHeartBeat.size() < length; ++at) {
        SCOPED_TRACE(at);
        mTold.clear();
        mCamera.ReadCCDArea(nullptr, 1, 0);
        Feed(Row(0, at, mHeartBeat));
        Feed(Row(1));
        ASSERT_EQ(mTold.size(), 1U);
        ASSERT_EQ(mTold[0].Outcome, eFrameComplete);
    }
    EXPECT_EQ(Figures().PacketsDamaged, 0U);
}

// And something is skipped behind it: then it was one.
TEST_F(BrokenLong, PacketIsDamagedByWhatLooksLikeAHeaderAnywhereIfTheRestFollows)
{
    const size_t length = Row(0).size();
    for (size_t at = 28; at + mHeartBeat.size() < length; ++at) {
        SCOPED_TRACE(at);
        mTold.clear();
        mCamera.ReadCCDArea(nullptr, 1, 0);
        Feed(Row(0, at, mHeartBeat));
        Feed(tBytes(5, 0x77));
        Feed(Row(1));
        ASSERT_EQ(mTold.size(), 1U);
        ASSERT_EQ(mTold[0].Outcome, eFrameIncomplete);
    }
}

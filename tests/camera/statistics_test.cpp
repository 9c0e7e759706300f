// What VXGetStatistics tells.
#include "books.h"
#include "pixels.h"
#include "vxcamiface.h"

#include <thread>

using testing::Test;

namespace {

tsStatistics Figures(const tcVXCamera& camera)
{
    tsStatistics figures{};
    EXPECT_EQ(camera.GetStatistics(&figures, sizeof figures), 0);
    return figures;
}

} // namespace

class Statistics : public Readout
{
protected:
    Statistics() { mCamera.TellGeometry(4, 8); }
    void TearDown() override { ExpectThatTheyAddUp(Figures(mCamera)); }

    // The packets of one frame, in this order.
    void FeedPackets(teWidth width, unsigned total, const std::vector<unsigned>& numbers,
                     bool isLast = false)
    {
        for (unsigned number : numbers) {
            Feed(mCamera, {width, number, total, number % 4, 0, 7, isLast});
            ExpectThatTheyAddUp(Figures(mCamera));
        }
    }
    // How the frames ended: complete, incomplete, failed, aborted, pending, unasked.
    std::vector<uint64_t> Ends() const
    {
        const tsStatistics f = Figures(mCamera);
        return {f.FramesComplete, f.FramesIncomplete, f.FramesFailed,
                f.FramesAborted,  f.FramesPending,    f.FramesUnasked};
    }
    // Packets received, expected, missing, duplicate, stray, short.
    std::vector<uint64_t> Packets() const
    {
        const tsStatistics f = Figures(mCamera);
        return {f.PacketsReceived,  f.PacketsExpected, f.PacketsMissing,
                f.PacketsDuplicate, f.PacketsStray,    f.PacketsShort};
    }
    std::vector<std::string> Incomplete(int frame, int missing, int total) const
    {
        return {"tcVXCamera::FinishFrame frame " + std::to_string(frame) + " is incomplete: " +
                std::to_string(missing) + " of " + std::to_string(total) + " packets are missing"};
    }

    tcImage mImage{e32Bit, 32};
};

constexpr int gnFirstVersion = 288; // bytes of the record's

using tFigures = std::vector<uint64_t>;

// ---- The function

TEST_F(Statistics, LooksAtItsArgumentsFirst)
{
    tsStatistics figures{};
    const int size = sizeof figures;
    EXPECT_EQ(VXGetStatistics(mCamera.GetHandle(), &figures, size), 0);
    EXPECT_EQ(VXGetStatistics(mCamera.GetHandle() + 100, &figures, size), -3);
    for (int handle : {mCamera.GetHandle(), mCamera.GetHandle() + 100}) {
        EXPECT_EQ(VXGetStatistics(handle, nullptr, size), -5);
        for (int wrong : {gnFirstVersion - 1, 0, -1, INT32_MIN}) {
            EXPECT_EQ(VXGetStatistics(handle, &figures, wrong), -4);
        }
    }
}

TEST_F(Statistics, AreToldToProgramsThatKnowFewer)
{
    tsStatistics figures;
    memset(&figures, 0xA5, sizeof figures);
    mCamera.Feed(0x69, tcPayload().Fill(6, 0));
    EXPECT_EQ(VXGetStatistics(mCamera.GetHandle(), &figures, gnFirstVersion), 0);
    EXPECT_EQ(figures.HeartBeats, 1U);
    EXPECT_EQ(figures.LastFrameMissing, 0U);
    EXPECT_EQ(figures.FramesUnderrun, 0xA5A5A5A5A5A5A5A5U);
}

TEST_F(Statistics, ZeroesWhatLaterVersionsAdd)
{
    struct {
        tsStatistics known;
        uint64_t later[3];
    } figures;
    memset(&figures, 0xA5, sizeof figures);
    mCamera.Feed(0x69, tcPayload().Fill(6, 0));
    EXPECT_EQ(VXGetStatistics(mCamera.GetHandle(), &figures.known, sizeof figures - 8), 0);
    EXPECT_EQ(figures.known.HeartBeats, 1U);
    EXPECT_EQ(figures.later[0], 0U);
    EXPECT_EQ(figures.later[1], 0U);
    EXPECT_EQ(figures.later[2], 0xA5A5A5A5A5A5A5A5U);
}

TEST_F(Statistics, AreToldInACallbackAndBesideOne)
{
    static tsStatistics seen;
    static uint64_t beside;
    seen = {};
    mCamera.SetImageDataCallback([](int handle, tsImageData*) {
        EXPECT_EQ(VXGetStatistics(handle, &seen, sizeof seen), 0);
        std::thread([handle] {
            tsStatistics figures{};
            VXGetStatistics(handle, &figures, sizeof figures);
            beside = figures.FramesIncomplete;
        }).join();
    });
    Read(e16Bit, mImage);
    FeedPackets(e16Bit, 3, {1, 3}, true);
    EXPECT_EQ(seen.FramesIncomplete, 1U) << "the frame that is being delivered";
    EXPECT_EQ(seen.LastFramePackets, 3U);
    EXPECT_EQ(seen.LastFrameMissing, 1U);
    EXPECT_EQ(beside, 1U);
}

// ---- Frames

TEST_F(Statistics, CountsFramesWithAllTheirPackets)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        Read(width, mImage, 3);
        EXPECT_EQ(Figures(mCamera).FramesPending, 3U);
        FeedPackets(width, 4, {1, 2, 3, 4});
        FeedPackets(width, 4, {3, 2, 1, 4}); // the order does not matter
        EXPECT_EQ(Figures(mCamera).FramesPending, 1U);
        FeedPackets(width, 2, {1, 2}, true);
    }
    EXPECT_EQ(Ends(), (tFigures{6, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{20, 20, 0, 0, 0, 0}));
    EXPECT_EQ(Figures(mCamera).FramesRequested, 6U);
}

TEST_F(Statistics, CountsAndLogsAnIncompleteFrameOnce)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        mCamera.ForgetRecords();
        Read(width, mImage, 2);
        FeedPackets(width, 9, {1, 2, 5, 9});
        EXPECT_EQ(mCamera.Errors(), Incomplete(1, 5, 9));
        mCamera.ForgetRecords();
        FeedPackets(width, 9, {9}, true);
        EXPECT_EQ(mCamera.Errors(), Incomplete(2, 8, 9));
    }
    EXPECT_EQ(Ends(), (tFigures{0, 4, 0, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{10, 36, 26, 0, 0, 0}));
    EXPECT_EQ(gaFrames.size(), 4U) << "delivered all the same";
}

TEST_F(Statistics, CountsFramesOf8BitsForTheAreaReadoutTheyAnswer)
{
    Read(e16Bit, mImage, 2);
    FeedPackets(e8Bit, 2, {1, 2});
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 1, 0}));
    FeedPackets(e8Bit, 2, {2}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 0, 0, 0}));
    FeedPackets(e8Bit, 2, {1, 2}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 0, 0, 1}));
}

TEST_F(Statistics, CountsSeveralPacketsARow)
{
    Read(e16Bit, mImage);
    Feed(mCamera, {e16Bit, 1, 4, 0, 0, 3, true});
    Feed(mCamera, {e16Bit, 2, 4, 0, 4, 7, true});
    Feed(mCamera, {e16Bit, 4, 4, 1, 4, 7, true});
    EXPECT_EQ(Ends(), (tFigures{0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(Figures(mCamera).LastFrameMissing, 1U);
}

TEST_F(Statistics, CountsPacketsThatComeTwice)
{
    Read(e16Bit, mImage);
    FeedPackets(e16Bit, 6, {1, 1, 2, 3, 3, 3, 2, 1, 4, 5, 1, 6}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{12, 6, 0, 6, 0, 0}));
}

TEST_F(Statistics, SeesAFrameThatLostItsEnd)
{
    Read(e16Bit, mImage, 3);
    FeedPackets(e16Bit, 6, {1, 2, 3, 4});
    EXPECT_EQ(mCamera.Errors().size(), 0U);
    FeedPackets(e16Bit, 6, {1, 2, 3, 5, 6}); // the fourth is not the one of the frame before
    EXPECT_EQ(Ends(), (tFigures{0, 1, 1, 0, 1, 0}));
    EXPECT_EQ(Packets(), (tFigures{9, 12, 3, 0, 0, 0}));
    EXPECT_EQ(mCamera.Errors()[0],
              "tcVXCamera::TakePacket a frame was cut short: 2 of 6 packets are missing");
    FeedPackets(e16Bit, 6, {1, 2, 3, 4, 5, 6}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 1, 1, 0, 0, 0}));
}

// The end of one frame and the beginning of the next are lost together.
TEST_F(Statistics, SeesAFrameThatLostItsEndBeforeOneThatLostItsBeginning)
{
    Read(e16Bit, mImage, 2);
    FeedPackets(e16Bit, 9, {1, 2, 3, 4, 5}, false);
    FeedPackets(e16Bit, 9, {3, 4, 5, 6, 7, 8, 9}, true);
    const tsStatistics figures = Figures(mCamera);
    EXPECT_EQ(figures.FramesFailed, 1U);
    EXPECT_EQ(figures.FramesIncomplete, 1U);
    EXPECT_EQ(figures.FramesComplete, 0U);
    EXPECT_EQ(figures.PacketsMissing, 4U + 2U);
    EXPECT_EQ(figures.PacketsDuplicate, 0U);
}

TEST_F(Statistics, TakesPacketsThatAreRepeatedOneByOneForWhatTheyAre)
{
    Read(e16Bit, mImage, 1);
    FeedPackets(e16Bit, 6, {1, 2, 2, 2, 3, 1, 4, 3, 5, 2, 1, 6}, true);
    const tsStatistics figures = Figures(mCamera);
    EXPECT_EQ(figures.FramesComplete, 1U);
    EXPECT_EQ(figures.FramesFailed, 0U);
    EXPECT_EQ(figures.PacketsDuplicate, 6U);
}

TEST_F(Statistics, DoesNotGiveUpTheOnlyFrameForOneThatBeginsAgain)
{
    Read(e16Bit, mImage);
    FeedPackets(e16Bit, 4, {1, 2, 3, 1, 2, 3, 4}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{7, 8, 1, 0, 0, 0}));
}

TEST_F(Statistics, TakesTheLargestTotalOfAFrame)
{
    Read(e16Bit, mImage, 3);
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 0, false});
    Feed(mCamera, {e16Bit, 2, 2, 1, 0, 0, false});
    EXPECT_EQ(Figures(mCamera).LastFramePackets, 8U);
    EXPECT_EQ(Figures(mCamera).LastFrameMissing, 6U);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    Feed(mCamera, {e16Bit, 2, 3, 1, 0, 0, false});
    Feed(mCamera, {e16Bit, 3, 3, 1, 0, 0, false});
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 0, 1, 0}));
}

TEST_F(Statistics, CountsNumbersThatAFrameDoesNotHave)
{
    Read(e16Bit, mImage, 2);
    FeedPackets(e16Bit, 64, {0, 65, 128, 65535, 64});
    EXPECT_EQ(Packets(), (tFigures{5, 64, 63, 0, 4, 0}));
    Feed(mCamera, {e16Bit, 0, 0, 0, 0, 0, true}); // "the last", of none
    EXPECT_EQ(Ends(), (tFigures{0, 2, 0, 0, 0, 0}));
}

TEST_F(Statistics, KnowsAllNumbersOfTheLargestFrame)
{
    Read(e16Bit, mImage, 2);
    for (unsigned lack : {0U, 40000U}) {
        for (unsigned number = 1; number <= 65535; ++number) {
            if (number != lack) Feed(mCamera, {e16Bit, number, 65535, 0, 0, 0, lack != 0});
        }
    }
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{131069, 131070, 1, 0, 0, 0}));
}

TEST_F(Statistics, MissPacketsWithFewerPixelsThanTheyTell)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        Read(width, mImage);
        tsPixels cut{width, 1, 2, 0, 0, 7, true};
        cut.values = {1, 2, 3};
        Feed(mCamera, cut);
        FeedPackets(width, 2, {2}, true);
        EXPECT_EQ(Figures(mCamera).LastFrameMissing, 1U);
    }
    EXPECT_EQ(Packets(), (tFigures{4, 4, 2, 0, 0, 2}));
    // The whole one may follow.
    Read(e16Bit, mImage);
    tsPixels cut{e16Bit, 1, 2, 0, 0, 7, true};
    cut.values = {1};
    Feed(mCamera, cut);
    FeedPackets(e16Bit, 2, {1, 2}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 2, 0, 0, 0, 0}));
}

TEST_F(Statistics, CountPacketsWithPixelsOutside)
{
    Read(e16Bit, mImage);
    Feed(mCamera, {e16Bit, 1, 2, 4, 2, 5, false});
    Feed(mCamera, {e16Bit, 2, 2, 3, 6, 9, true});
    EXPECT_EQ(Figures(mCamera).PacketsOutside, 2U);
    EXPECT_EQ(Figures(mCamera).PixelsOutside, 6U);
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 0, 0}));
}

// ---- How readouts end

TEST_F(Statistics, CountsFramesThatTheCameraLeavesOut)
{
    Read(e16Bit, mImage, 5);
    FeedFrame(e16Bit, false);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Ends(), (tFigures{2, 0, 3, 0, 0, 0}));
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"tcVXCamera::FinishFrame the readout ended without 3 of its "
                                       "frames"});
}

TEST_F(Statistics, CountsFramesBeyondThoseRequested)
{
    Read(e32Bit, mImage, 1);
    FeedFrame(e32Bit, false);
    FeedFrame(e32Bit, false);
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 0, 1}));
    FeedFrame(e32Bit, true);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 0, 0, 3}));
}

TEST_F(Statistics, CountsFramesThatAreAborted)
{
    Read(e16Bit, mImage, 7);
    Read(e32Bit, mImage, 2);
    FeedFrame(e16Bit, false);
    FeedPackets(e16Bit, 4, {1, 3});
    mCamera.AbortRead();
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 8, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{3, 3, 0, 0, 0, 0})) << "what was not wanted is not missing";
    mCamera.AbortRead();
    EXPECT_EQ(Ends(), (tFigures{1, 0, 0, 8, 0, 0}));
    // The rest of an aborted frame does not belong to the next one.
    FeedPackets(e16Bit, 4, {2});
    Read(e16Bit, mImage);
    FeedPackets(e16Bit, 4, {1, 3, 4}, true);
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 8, 0, 0}));
}

TEST_F(Statistics, CountsFramesThatTimeOut)
{
    mCamera.OverrideImageTimout(100);
    Read(e16Bit, mImage, 2);
    FeedPackets(e16Bit, 4, {1});
    mCamera.Tick();
    EXPECT_EQ(Ends(), (tFigures{0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(Packets(), (tFigures{1, 4, 3, 0, 0, 0}));
    Read(e32Bit, mImage);
    EXPECT_EQ(mCamera.WaitCompletion(0), -2);
    EXPECT_EQ(Ends(), (tFigures{0, 0, 3, 0, 0, 0}));
}

TEST_F(Statistics, HasOneFramePendingInAnEndlessReadout)
{
    Read(e16Bit, mImage, 0);
    EXPECT_EQ(Ends(), (tFigures{0, 0, 0, 0, 1, 0}));
    FeedFrame(e16Bit, false);
    FeedPackets(e16Bit, 3, {3});
    EXPECT_EQ(Ends(), (tFigures{1, 1, 0, 0, 1, 0}));
    FeedPackets(e16Bit, 3, {1, 2});
    FeedPackets(e16Bit, 3, {1, 2, 3});
    EXPECT_EQ(Ends(), (tFigures{2, 1, 1, 0, 1, 0}));
    mCamera.AbortRead();
    EXPECT_EQ(Ends(), (tFigures{2, 1, 1, 1, 0, 0}));
    Read(e16Bit, mImage, 0);
    FeedFrame(e16Bit, true); // ended by the camera
    EXPECT_EQ(Ends(), (tFigures{3, 1, 1, 1, 0, 0}));
}

TEST_F(Statistics, CountsAsManyFramesAsTravel)
{
    Read(e16Bit, mImage, -1);
    EXPECT_EQ(Figures(mCamera).FramesRequested, 65535U);
    mCamera.AbortRead();
}

TEST_F(Statistics, CountsReadoutsThatAreBusy)
{
    Read(e16Bit, mImage);
    Read(e16Bit, mImage);
    EXPECT_EQ(Figures(mCamera).RequestsBusy, 1U);
    EXPECT_EQ(Figures(mCamera).FramesRequested, 1U);
}

// ---- Requests and the rest

TEST_F(Statistics, CountsRequestsByTheirEnd)
{
    const tsStatistics before = Figures(mCamera);
    mCamera.AnswerTo(0x59, 0x7F, tcPayload().U32(1));
    int trigger = 0;
    EXPECT_EQ(mCamera.GetTrigger(&trigger), 0);
    mCamera.RefuseToSend(true);
    EXPECT_EQ(mCamera.GetTrigger(&trigger), -2);
    mCamera.RefuseToSend(false);

    mCamera.SetScript([this](const tsSentMessage&) {
        mCamera.SetScript(nullptr);
        EXPECT_EQ(mCamera.GetGPIO(), -2); // busy
        EXPECT_EQ(Figures(mCamera).RequestsPending, 1U);
        mCamera.Tick(100);
    });
    EXPECT_EQ(mCamera.GetGPIO(), -2);
    mCamera.Feed(0x7E, tcPayload().U32(1)); // too late
    const tsStatistics f = Figures(mCamera);
    EXPECT_EQ(f.RequestsSent - before.RequestsSent, 3U);
    EXPECT_EQ(f.RequestsAnswered, 1U);
    EXPECT_EQ(f.RequestsFailed, 1U);
    EXPECT_EQ(f.RequestsTimedOut, 1U);
    EXPECT_EQ(f.RequestsBusy, 1U);
    EXPECT_EQ(f.AnswersLate, 1U);
    EXPECT_EQ(f.RequestsPending, 0U);
}

TEST_F(Statistics, CountsWhatTheCameraTellsUnasked)
{
    mCamera.Feed(0x69, tcPayload().Fill(6, 0));
    mCamera.Feed(0x69, tcPayload().Fill(6, 0));
    mCamera.Feed(0x75, tcPayload().Fill(3, 0));
    EXPECT_EQ(Figures(mCamera).HeartBeats, 2U);
    EXPECT_EQ(Figures(mCamera).CameraErrors, 1U);
}

TEST_F(Statistics, CountsWhatTheParserFinds)
{
    const tBytes good = tcMessage(0x69, tcPayload().Fill(6, 0)).Bytes();
    tBytes tooLong(good.begin(), good.begin() + 12);
    const uint16_t length = 16405;
    memcpy(tooLong.data() + 2, &length, sizeof length);
    tBytes bytes = {1, 2, 3};
    for (const tBytes& part : {good, tooLong, tBytes{4, 5}, good}) {
        bytes.insert(bytes.end(), part.begin(), part.end());
    }
    mCamera.FeedParser(bytes, 7);
    const tsStatistics f = Figures(mCamera);
    EXPECT_EQ(f.MessagesReceived, 2U);
    EXPECT_EQ(f.MessagesBad, 1U);
    EXPECT_EQ(f.BytesSkipped, 5U);
}

TEST_F(Statistics, AddUpAtAnyMoment)
{
    mCamera.Log().setDbgLevel(0);
    std::atomic<bool> stop{false};
    std::atomic<int> looks{0}, differences{0};
    std::thread reader([&] {
        tsStatistics f{};
        for (; !stop; ++looks) {
            mCamera.GetStatistics(&f, sizeof f);
            const uint64_t ends = f.FramesComplete + f.FramesIncomplete + f.FramesFailed +
                                  f.FramesAborted + f.FramesPending;
            differences += f.FramesRequested != ends;
        }
    });
    for (int rounds = 0; rounds < 5000 || looks < 10000; ++rounds) {
        mCamera.AbortRead();
        Read(e16Bit, mImage, 3);
        FeedFrame(e16Bit, false);
    }
    stop = true;
    reader.join();
    EXPECT_EQ(differences, 0);
}

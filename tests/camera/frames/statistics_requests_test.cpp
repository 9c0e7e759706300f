// What VXGetStatistics tells of readouts, requests and the rest.
#include "books.h"
#include "pixels.h"
#include "statistics_support.h"
#include "vxcamiface.h"

#include <thread>

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

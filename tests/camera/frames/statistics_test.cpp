// What VXGetStatistics tells.
#include "books.h"
#include "pixels.h"
#include "statistics_support.h"
#include "vxcamiface.h"

#include <thread>

constexpr int gnFirstVersion = 288; // bytes of the record's

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

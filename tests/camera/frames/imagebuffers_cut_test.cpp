// Frames that are cut short in the application's buffers, and the end of a readout into these.
#include "books.h"
#include "imagebuffers_support.h"
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// ---- Frames that are cut short

TEST_F(ImageBuffers, KeepACutFrameApartFromTheNext)
{
    SetArea();
    Set(2);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    FeedRow(0, false, 1000);
    FeedRow(1, false, 1000);
    FeedArea(true, {}, 2000);
    ASSERT_EQ(mTold.size(), 2U);
    EXPECT_EQ(mTold[0].Outcome, eFrameCut);
    EXPECT_EQ(mTold[0].Buffer, maPointers[0]);
    EXPECT_EQ(mImages[0].At(0), 1100U);
    EXPECT_EQ(mImages[0].At(10), 1200U);
    EXPECT_EQ(mImages[0].Touched(), 40U);
    EXPECT_EQ(mTold[1].Outcome, eFrameComplete);
    EXPECT_EQ(mTold[1].Buffer, maPointers[1]);
    EXPECT_GT(mTold[1].FirstPacket.Monotonic, mTold[0].FirstPacket.Monotonic);
    EXPECT_TRUE(mImages[1] == Packed(2000));
}

TEST_F(ImageBuffers, KeepACutFrameApartFromOneWithoutItsBeginning)
{
    SetArea();
    Set(2);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    for (unsigned i : {0, 1, 2}) {
        FeedRow(i, false, 1000);
    }
    for (unsigned i : {1, 2, 3}) {
        FeedRow(i, true, 2000);
    }
    ASSERT_EQ(mTold.size(), 2U);
    EXPECT_EQ(mTold[0].Outcome, eFrameCut);
    EXPECT_EQ(mTold[1].Outcome, eFrameIncomplete);
    EXPECT_EQ(mRows, tRows{0});
    EXPECT_EQ(mImages[0].At(10), 1200U);
    EXPECT_EQ(mImages[0].At(20), 1300U);
    EXPECT_EQ(mImages[1].At(10), 2200U);
    EXPECT_EQ(mImages[1].Touched(), 60U);
}

TEST_F(ImageBuffers, KeepTheLastFrameApartFromTheOneBefore)
{
    SetArea();
    Set(2);
    for (bool isRepeated : {false, true}) {
        mTold.clear();
        mCamera.ReadCCDArea(nullptr, 2, 0);
        FeedRow(0, false, 1000);
        FeedRow(1, false, 1000);
        if (isRepeated) FeedRow(0, false, 1000);
        FeedRow(2, true, 2000);
        FeedRow(3, true, 2000);
        ASSERT_EQ(mTold.size(), 2U);
        EXPECT_EQ(mTold[0].Outcome, eFrameCut);
        EXPECT_EQ(mImages[0].At(10), 1200U);
        EXPECT_EQ(mImages[0].Touched(), 40U);
        EXPECT_EQ(mTold[1].Outcome, eFrameIncomplete);
        EXPECT_EQ(mTold[1].PacketsMissing, 2U);
        EXPECT_EQ(mRows, (tRows{0, 1}));
        EXPECT_EQ(mImages[1].At(20), 2300U);
        EXPECT_EQ(mImages[1].Touched(), 40U);
        VXReturnImageBuffer(Handle(), maPointers[0]);
        VXReturnImageBuffer(Handle(), maPointers[1]);
        Figures();
    }
}

TEST_F(ImageBuffers, TellTheRowsOfACutFrameThatCame)
{
    SetArea();
    Set(2);
    mCamera.ReadCCDArea(nullptr, 3, 0);
    FeedRow(0, false);
    FeedRow(1, false);
    FeedRow(0, false);
    EXPECT_TRUE(mTold.empty());
    FeedRow(1, false);
    EXPECT_EQ(mRows, (tRows{2, 3}));
}

TEST_F(ImageBuffers, TakeARepeatedFirstPacket)
{
    SetArea();
    Set(2);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedRow(0, true, 1000);
    FeedRow(0, true, 2000);
    FeedRow(1, true, 2000);
    FeedRow(2, true, 2000);
    FeedRow(3, true, 2000);
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameComplete);
    EXPECT_TRUE(mImages[0] == Packed(2000));
    EXPECT_EQ(Figures().PacketsDuplicate, 1U);
}

TEST_F(ImageBuffers, UseTheBufferOfACutFrameOnceMoreWhereNobodyIsTold)
{
    SetArea();
    Set(1);
    VXSetFrameCallback(Handle(), nullptr, nullptr);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    FeedRow(0, false, 1000);
    FeedRow(1, false, 1000);
    FeedArea(true, {}, 2000);
    EXPECT_TRUE(mImages[0] == Packed(2000));
    ASSERT_EQ(gaFrames.size(), 1U);
    EXPECT_EQ(gaFrames[0].ImageBuffer, maPointers[0]);
    EXPECT_EQ(Figures().FramesUnderrun, 0U);
}

// ---- The end

TEST_F(ImageBuffers, AreTheApplicationsWhenAReadoutIsGivenUp)
{
    SetArea();
    for (int way = 0; way < 3; ++way) {
        Set(2);
        mTold.clear();
        mCamera.ReadCCDArea(nullptr, 3, 0);
        FeedArea(false, {}, 1000);
        FeedRow(0, false, 2000);
        if (way == 0) mCamera.AbortRead();
        if (way == 1) mCamera.Tick(200);
        if (way == 2) mCamera.WaitCompletion(0);
        const tcImage first = mImages[0], second = mImages[1];
        FeedArea(true, {1}, 3000);
        EXPECT_TRUE(mImages[0] == first);
        EXPECT_TRUE(mImages[1] == second);
        mCamera.ReadCCDArea(nullptr, 2, 0);
        FeedArea(false, {}, 4000);
        EXPECT_EQ(mTold.back().Outcome, eFrameUnderrun) << "none was given back";
        EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[1]), 0);
        FeedArea(true, {}, 5000);
        EXPECT_TRUE(mImages[0] == first);
        EXPECT_EQ(mTold.back().Buffer, maPointers[1]);
    }
}

TEST_F(ImageBuffers, ServeTheNextReadoutToo)
{
    SetArea();
    Set(2);
    for (size_t i : {0, 1}) {
        mCamera.ReadCCDArea(nullptr, 1, 0);
        FeedArea(true);
        EXPECT_EQ(mTold.back().Buffer, maPointers[i]);
    }
    FeedArea(true, {}, 1000); // nobody asked for it
    EXPECT_TRUE(mImages[0] == Packed());
    EXPECT_TRUE(mImages[1] == Packed());
}

TEST_F(ImageBuffers, MayBeEndedInTheLastCallback)
{
    EXPECT_NE(Initialize(8, 16), 0);
    SetArea();
    Set(2);
    static int handle;
    handle = Handle();
    VXSetFrameCallback(
        Handle(),
        [](int, const tsFrameRecord* frame, void*) {
            EXPECT_EQ(VXSetImageBuffers(handle, nullptr, 0, 0), frame->IsLast != 0 ? 0 : -1);
        },
        nullptr);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    FeedArea(false);
    FeedArea(true);
    EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[0]), -5);
    gaFrames.clear();
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedArea(true);
    ASSERT_EQ(gaFrames.size(), 1U);
    EXPECT_NE(gaFrames[0].ImageBuffer, nullptr);
    EXPECT_EQ(std::count(maPointers.begin(), maPointers.end(), gaFrames[0].ImageBuffer), 0)
        << "the camera's own again";
}

TEST_F(ImageBuffers, MayBeGivenBackByOtherThreads)
{
    SetArea();
    Set(4);
    mCamera.Log().setDbgLevel(0);
    std::mutex mutex;
    std::vector<void*> filled;
    struct tsShared {
        std::mutex& mutex;
        std::vector<void*>& filled;
        std::atomic<int> frames{0};
    } shared{mutex, filled};
    VXSetFrameCallback(
        Handle(),
        [](int, const tsFrameRecord* frame, void* user) {
            auto& to = *static_cast<tsShared*>(user);
            if (frame->Buffer != nullptr) {
                const std::lock_guard<std::mutex> lock(to.mutex);
                to.filled.push_back(frame->Buffer);
            }
            ++to.frames;
        },
        &shared);
    mCamera.ReadCCDArea(nullptr, 0, 0);
    std::thread consumer([&] {
        while (shared.frames < 300) {
            void* buffer = nullptr;
            {
                const std::lock_guard<std::mutex> lock(mutex);
                if (!filled.empty()) {
                    buffer = filled.back();
                    filled.pop_back();
                }
            }
            if (buffer == nullptr) continue;
            uint16_t seen[40];
            memcpy(seen, buffer, sizeof seen);
            for (unsigned i = 0; i < 40; ++i) {
                ASSERT_EQ(seen[i] - seen[0], 100 * (i / 10) + i % 10) << "of one frame";
            }
            EXPECT_EQ(VXReturnImageBuffer(Handle(), buffer), 0);
        }
    });
    for (unsigned i = 0; i < 300; ++i) {
        FeedArea(false, {}, i);
    }
    consumer.join();
}

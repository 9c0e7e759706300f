// Answers with a form of their own: hardware, parameters, link tests.
#include "dispatch_support.h"
#include "tcTestCamera.h"

#include <gtest/gtest.h>

// ---- Hardware information

TEST_F(Dispatch, HardwareAnswerIsCutToTheCallersSizeAndLowersIt)
{
    const tBytes record = tcTestCamera::HardwareBytes(30, 40);
    struct {
        int room, length, size;
    } const cases[] = {{100, 100, 100}, {50, 100, 50},   {100, 60, 60},
                       {100, 0, 0},     {100, 200, 100}, {1, 100, 1}};
    for (const auto& want : cases) {
        tBytes payload = record;
        payload.resize(static_cast<size_t>(want.length), 3);
        mCamera.AnswerTo(0x34, 0x64, payload);
        std::vector<uint8_t> info(300, gnGuard);
        int size = want.room;
        EXPECT_EQ(
            mCamera.GetCameraHardwareInfo(reinterpret_cast<TVXCameraHardware*>(info.data()), &size),
            0);
        EXPECT_EQ(size, want.size);
        std::vector<uint8_t> expected(300, gnGuard);
        std::copy(payload.begin(), payload.begin() + want.size, expected.begin());
        EXPECT_EQ(info, expected);
    }
}

TEST_F(Dispatch, HardwareAnswerSurvivesOddResults)
{
    tcMessage answer(0x64, tcTestCamera::HardwareBytes(30, 40));
    tcResult first;
    int size = -5;
    EXPECT_EQ(
        Exchange(mCamera, eItemHardware, answer, first.Pointer(), reinterpret_cast<long*>(&size)),
        0);
    EXPECT_EQ(first.Bytes(), tcResult().Bytes());
    EXPECT_EQ(Exchange(mCamera, eItemHardware, answer, first.Pointer(), nullptr), 0);
    EXPECT_EQ(first.Bytes(), tcResult().Bytes());
    size = 100;
    EXPECT_EQ(Exchange(mCamera, eItemHardware, answer, nullptr, reinterpret_cast<long*>(&size)), 0);
}

TEST_F(Dispatch, HardwareAnswerTeachesTheGeometryOnlyToWhoeverAsked)
{
    static tsImageData image;
    mCamera.SetImageDataCallback([](int, tsImageData* data) { image = *data; });
    const tBytes frame = tcPayload().U8(0).U8(0).U16(1).U16(1).Fill(10, 0);
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 2);
    EXPECT_EQ(image.SensorColumns, 1024);
    mCamera.Feed(0x64, tcTestCamera::HardwareBytes(30, 40));
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 2);
    mCamera.TellGeometry(30, 40);
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 30);
    EXPECT_EQ(image.SensorColumns, 40);
}

// ---- Parameters

TEST_F(Dispatch, ParameterAnswerGivesTheValueOrWhyThereIsNone)
{
    struct {
        int size;
        tBytes payload;
        int result;
    } const cases[] = {
        {4, tcPayload().U32(1).I32(0).U32(0x01020304), 0},
        {4, tcPayload().U32(1).I32(-7).U32(0x01020304), -7},
        {4, tcPayload().U32(1).I32(12).U32(0x01020304), 12},
        {4, tcPayload().U32(1).I32(0).U16(1), -5},
        {4, tcPayload().U32(1).I32(0).U32(1).U8(1), -5},
        {4, tcPayload().U32(1).I32(0), -5},
        {4, tcPayload().U32(1), -5},
        {4, {}, -5},
        {1, tcPayload().U32(1).I32(0).U8(4), 0},
        {2048, tcPayload().U32(1).I32(0).Ramp(2048), 0},
        {2048, tcPayload().U32(1).I32(0).Ramp(16396), -5},
    };
    for (const auto& want : cases) {
        SCOPED_TRACE(testing::Message() << want.size << " of " << want.payload.size());
        mCamera.AnswerTo(0x14, 0x8D, want.payload);
        tBytes value(3000, gnGuard), expected(3000, gnGuard);
        if (want.result == 0)
            std::copy(want.payload.begin() + 8, want.payload.end(), expected.begin());
        EXPECT_EQ(mCamera.GetParameter(1, value.data(), want.size), want.result);
        EXPECT_EQ(value, expected);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
    }
}

TEST_F(Dispatch, ParameterAnswerCountsWithoutResults)
{
    tcMessage answer(0x8D, tcPayload().U32(1).I32(0).U32(5));
    int size = 4;
    uint32_t value = 77;
    EXPECT_EQ(Exchange(mCamera, 34, answer, nullptr, reinterpret_cast<long*>(&size)), 0);
    EXPECT_EQ(size, 4);
    EXPECT_EQ(Exchange(mCamera, 34, answer, reinterpret_cast<long*>(&value), nullptr), 0);
    EXPECT_EQ(value, 77U);
    size = -1;
    EXPECT_EQ(Exchange(mCamera, 34, answer, reinterpret_cast<long*>(&value),
                       reinterpret_cast<long*>(&size)),
              0);
    EXPECT_EQ(size, -5);
    EXPECT_EQ(value, 77U);
    // One byte short of its head, so that a size of -1 seems to fit.
    tcMessage cut(0x8D, tcPayload().U32(1).Fill(3, 0));
    size = -1;
    EXPECT_EQ(
        Exchange(mCamera, 34, cut, reinterpret_cast<long*>(&value), reinterpret_cast<long*>(&size)),
        0);
    EXPECT_EQ(size, -5);
    EXPECT_EQ(value, 77U);
}

// ---- Link test

TEST_F(Dispatch, RogueLoopbackIsReported)
{
    mCamera.Feed(0x74, tcPayload().Fill(20, 1));
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"CallBackParser rogue loopback message found, length = 20"});
}

TEST_F(Dispatch, LoopbackWithoutARecordOnlyCounts)
{
    tcMessage answer(0x74, tcPayload().Fill(2000, 1));
    EXPECT_EQ(Exchange(mCamera, eItemLinkTest, answer, nullptr, nullptr), 0);
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Dispatch, LoopbackFillsTheRecord)
{
    struct {
        uint32_t room;
        size_t data;   // carried
        size_t copied; // bytes
    } const cases[] = {{16, 16, 16}, {16, 40, 16},       {16, 5, 5},
                       {0, 16, 0},   {5000, 3000, 3000}, {static_cast<uint32_t>(-1), 16, 0},
                       {1024, 0, 0}};
    for (const auto& want : cases) {
        SCOPED_TRACE(testing::Message() << want.room << " for " << want.data);
        const tBytes payload = tcPayload().U16(4660).Fill(10, 0).Ramp(want.data).Take();
        mCamera.AnswerTo(0x3F, 0x74, payload);
        tBytes received(6000, gnGuard), expected(6000, gnGuard);
        std::copy_n(payload.begin() + 12, want.copied, expected.begin());
        tsLinkTestCmd test{};
        test.Count = 1;
        test.DataLength = want.room;
        test.ReceiveBuffer = received.data();
        test.ReceivedBytes = 100;
        EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
        EXPECT_EQ(received, expected);
        EXPECT_EQ(test.AnswersReceived, 1U);
        EXPECT_EQ(test.ReceivedBytes, 4760U);
    }
}

TEST_F(Dispatch, LoopbackShorterThanItsHeadCopiesNothing)
{
    for (size_t length : {0, 1, 2, 11, 12}) {
        mCamera.AnswerTo(0x3F, 0x74, tcPayload().Fill(length, 1));
        uint8_t received[16];
        memset(received, gnGuard, sizeof received);
        tsLinkTestCmd test{};
        test.Count = 1;
        test.DataLength = sizeof received;
        test.ReceiveBuffer = received;
        EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
        EXPECT_EQ(received[0], gnGuard);
        EXPECT_EQ(test.ReceivedBytes, length == 0 ? 0U : length == 1 ? 1U : 257U);
    }
}

TEST_F(Dispatch, LoopbackNeedsNoReceiveBuffer)
{
    mCamera.AnswerTo(0x3F, 0x74, tcPayload().U16(3).Fill(30, 1));
    tsLinkTestCmd test{};
    test.Count = 1;
    test.DataLength = 10;
    EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
    EXPECT_EQ(test.AnswersReceived, 1U);
}

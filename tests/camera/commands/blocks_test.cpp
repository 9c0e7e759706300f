// Settings that are checked before they are sent: sequences, timing data, parameters.
#include "tcTestCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::Each;
using testing::ElementsAre;

// ---- Binning sequence -------------------------------------------------------------------------

TEST(BinningSequence, TakesFactorsUpTo7)
{
    tcTestCamera camera;
    unsigned char vertical[] = {1, 7}, horizontal[] = {2, 7};
    EXPECT_EQ(camera.SetBinningSequence(vertical, horizontal, 2), 0);
    const tsSentMessage sent = camera.LastSent();
    EXPECT_EQ(sent.id, 0x50u);
    EXPECT_EQ(sent.payload,
              tcPayload().U32(2).U8(1).U8(7).Fill(14, 0).U8(2).U8(7).Fill(14, 0).Take());
    EXPECT_TRUE(camera.Logged(DebugRecord(0, "0 1 2")));
    EXPECT_TRUE(camera.Logged(DebugRecord(0, "1 7 7")));
}

TEST(BinningSequence, RefusesLargerFactorsAndMoreThan16)
{
    tcTestCamera camera;
    unsigned char eight = 8, zero = 0, many[17] = {};
    EXPECT_EQ(camera.SetBinningSequence(&eight, &zero, 1), -5);
    EXPECT_EQ(camera.SetBinningSequence(&zero, &eight, 1), -5);
    EXPECT_EQ(camera.SetBinningSequence(many, many, 17), -5);
    EXPECT_EQ(camera.SentCount(), 0u);
    EXPECT_EQ(camera.SetBinningSequence(many, many, 16), 0);
    EXPECT_EQ(camera.SetBinningSequence(nullptr, nullptr, 0), 0);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().Fill(36, 0).Take());
}

TEST(BinningSequence, IsReadIntoThreePlaces)
{
    tcTestCamera camera;
    camera.AnswerTo(0x29, 0x83, tcPayload().Ramp(16, 1).Ramp(16, 100).U8(5));
    unsigned char vertical[16], horizontal[16], count = 0;
    EXPECT_EQ(camera.GetBinningSequence(vertical, horizontal, &count), 0);
    EXPECT_EQ(vertical[15], 1 + 15 * 7);
    EXPECT_EQ(horizontal[0], 100);
    EXPECT_EQ(count, 5);
}

// ---- Timing data and parameters ---------------------------------------------------------------

TEST(TimingData, IsFilledUpTo4356Bytes)
{
    tcTestCamera camera;
    unsigned char data[] = {1, 2, 3};
    EXPECT_EQ(camera.SetTimingData(data, sizeof data), 0);
    EXPECT_EQ(camera.LastSent().id, 0x54u);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U8(1).U8(2).U8(3).Fill(4353, 0).Take());
}

TEST(TimingData, RefusesAnotherSize)
{
    tcTestCamera camera;
    std::vector<unsigned char> data(5000);
    EXPECT_EQ(camera.SetTimingData(data.data(), 4357), -4);
    EXPECT_EQ(camera.SetTimingData(data.data(), -1), -4);
    EXPECT_EQ(camera.SetTimingData(nullptr, 1), -5);
    EXPECT_EQ(camera.SentCount(), 0u);
    EXPECT_EQ(camera.SetTimingData(data.data(), 4356), 0);
}

TEST(TimingData, IsRead)
{
    tcTestCamera camera;
    camera.AnswerTo(0x55, 0x7D, tcPayload().Ramp(4356));
    std::vector<unsigned char> data(4357, 0x55);
    int size = 0;
    EXPECT_EQ(camera.GetTimingFileData(data.data(), &size), 0);
    EXPECT_EQ(size, 4356);
    EXPECT_EQ(data[1], 8);
    EXPECT_EQ(data[4356], 0x55);
}

TEST(Parameter, TravelsWithItsSize)
{
    tcTestCamera camera;
    std::vector<unsigned char> value(2048, 3);
    EXPECT_EQ(camera.SetParameter(0x1234, value.data(), 2048), 0);
    EXPECT_EQ(camera.LastSent().id, 0x13u);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(0x1234).Fill(2048, 3).Take());
    EXPECT_EQ(camera.SetParameter(0x1234, value.data(), 1), 0);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(0x1234).U8(3).Take());
}

TEST(Parameter, RefusesSizesOutside1To2048AndNull)
{
    tcTestCamera camera;
    unsigned char value[4096] = {};
    for (int size : {0, -1, 2049}) {
        EXPECT_EQ(camera.SetParameter(1, value, size), -5);
        EXPECT_EQ(camera.GetParameter(1, value, size), -5);
    }
    EXPECT_EQ(camera.SetParameter(1, nullptr, 1), -5);
    EXPECT_EQ(camera.GetParameter(1, nullptr, 1), -5);
    EXPECT_EQ(camera.SentCount(), 0u);
}

TEST(Parameter, IsReadWhenItsSizeIsTheAnswers)
{
    tcTestCamera camera;
    camera.AnswerTo(0x14, 0x8D, tcPayload().U32(9).I32(0).U8(1).U8(2).U8(3));
    unsigned char value[4] = {9, 9, 9, 9};
    EXPECT_EQ(camera.GetParameter(9, value, 3), 0);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(9).Take());
    EXPECT_THAT(value, ElementsAre(1, 2, 3, 9));
    unsigned char other[4] = {9, 9, 9, 9};
    EXPECT_EQ(camera.GetParameter(9, other, 2), -5);
    EXPECT_EQ(camera.GetParameter(9, other, 4), -5);
    EXPECT_THAT(other, Each(9));
}

TEST(Parameter, GivesTheCamerasStatus)
{
    tcTestCamera camera;
    camera.AnswerTo(0x14, 0x8D, tcPayload().U32(9).I32(-77).U8(1));
    unsigned char value = 9;
    EXPECT_EQ(camera.GetParameter(9, &value, 1), -77);
    EXPECT_EQ(value, 9);
    camera.RefuseToSend(true);
    EXPECT_EQ(camera.GetParameter(9, &value, 1), -2);
}

} // namespace

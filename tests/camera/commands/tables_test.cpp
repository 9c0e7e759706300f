// Areas, and settings in parts: tables and masks of binning.
#include "tcTestCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <numeric>

namespace {

using testing::Each;
using testing::ElementsAre;

std::array<int, 4> AreaOf(tcVXCamera& camera)
{
    std::array<int, 4> area{};
    EXPECT_EQ(camera.GetCCDArea(&area[0], &area[1], &area[2], &area[3]), 0);
    return area;
}

// ---- Area -------------------------------------------------------------------------------------

TEST(Area, IsSentAndRemembered)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.SetCCDArea(1, 2, 30, 40), 0);
    EXPECT_EQ(camera.LastSent().id, 0x24u);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U16(1).U16(2).U16(30).U16(40).U32(0).Take());
    EXPECT_THAT(AreaOf(camera), ElementsAre(1, 2, 30, 40));
    EXPECT_EQ(camera.SentCount(), 1u) << "the area is told without a message";
}

TEST(AreaEx, SendsSixteenRegionsAndKeepsMinMinSumMax)
{
    tcTestCamera camera;
    int rows[] = {30, 10, 20}, columns[] = {7, 9, 8}, heights[] = {1, 2, 3}, widths[] = {5, 6, 4};
    EXPECT_EQ(camera.SetAreaEx(3, rows, columns, heights, widths), 0);
    const tsSentMessage sent = camera.LastSent();
    EXPECT_EQ(sent.id, 0x1Au);
    ASSERT_EQ(sent.payload.size(), 258u);
    EXPECT_EQ(sent.At<uint8_t>(0), 0);
    EXPECT_EQ(sent.At<uint8_t>(1), 3);
    EXPECT_EQ(sent.At<int32_t>(2), 30);
    EXPECT_EQ(sent.At<int32_t>(2 + 4 * 2), 20);
    EXPECT_EQ(sent.At<int32_t>(2 + 4 * 3), 0);
    EXPECT_EQ(sent.At<int32_t>(66), 7);
    EXPECT_EQ(sent.At<int32_t>(130), 1);
    EXPECT_EQ(sent.At<int32_t>(194 + 4), 6);
    EXPECT_THAT(AreaOf(camera), ElementsAre(10, 7, 6, 6));
}

TEST(AreaEx, TakesSixteenRegionsAndRefusesMore)
{
    tcTestCamera camera;
    int numbers[17];
    std::iota(std::begin(numbers), std::end(numbers), 0);
    EXPECT_EQ(camera.SetAreaEx(16, numbers, numbers, numbers, numbers), 0);
    EXPECT_EQ(camera.LastSent().At<int32_t>(194 + 15 * 4), 15);
    EXPECT_EQ(camera.SetAreaEx(17, numbers, numbers, numbers, numbers), -5);
    EXPECT_EQ(camera.SetAreaEx(-1, numbers, numbers, numbers, numbers), -5);
    EXPECT_EQ(camera.SetAreaEx(1, nullptr, numbers, numbers, numbers), -5);
    EXPECT_EQ(camera.SentCount(), 1u);
}

TEST(AreaEx, ReadsBothCountsTheArraysAndTheArea)
{
    tcTestCamera camera;
    tcPayload answer;
    answer.U8(4).U8(2); // the second byte is the count of regions
    for (int array = 0; array < 4; ++array) {
        for (int i = 0; i < 16; ++i) {
            answer.I32(100 * array + 10 - i);
        }
    }
    camera.AnswerTo(0x19, 0x8A, answer);
    int first = 0, count = 0, rows[16], columns[16], heights[16], widths[16];
    EXPECT_EQ(camera.GetAreaEx(&first, &count, rows, columns, heights, widths), 0);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(rows[0], 10);
    EXPECT_EQ(rows[15], -5);
    EXPECT_EQ(columns[15], 95);
    EXPECT_EQ(heights[1], 209);
    EXPECT_EQ(widths[0], 310);
    EXPECT_THAT(AreaOf(camera), ElementsAre(9, 109, 210 + 209, 310));
}

TEST(AreaEx, LeavesAnEmptyAreaWhenItFails)
{
    tcTestCamera camera;
    camera.SetCCDArea(1, 2, 3, 4);
    camera.RefuseToSend(true);
    int count = 77;
    EXPECT_EQ(camera.GetAreaEx(nullptr, &count, nullptr, nullptr, nullptr, nullptr), -2);
    EXPECT_EQ(count, 77);
    EXPECT_THAT(AreaOf(camera), ElementsAre(0x7FFFFFFF, 0x7FFFFFFF, 0, 0));
}

// ---- Binning tables ---------------------------------------------------------------------------

struct tsTableCase {
    int (tcVXCamera::*set)(unsigned char*, int);
    int (tcVXCamera::*get)(int, unsigned char*, int*);
    uint32_t setId, getId, answerId;
    uint16_t length; // of the table on a sensor of 5 rows and 7 columns
};

class BinTable : public testing::TestWithParam<tsTableCase>
{};

TEST_P(BinTable, SendsAByteForEachLineOfTheSensor)
{
    const tsTableCase& table = GetParam();
    tcTestCamera camera;
    camera.TellGeometry(5, 7);
    unsigned char bytes[16];
    std::iota(std::begin(bytes), std::end(bytes), 1);
    EXPECT_EQ((camera.*table.set)(bytes, 7), 0);
    const tsSentMessage sent = camera.LastSent();
    EXPECT_EQ(sent.id, table.setId);
    ASSERT_EQ(sent.payload.size(), 2056u);
    EXPECT_EQ(sent.Word(0), 7u);
    EXPECT_EQ(sent.Short(2), 0);
    EXPECT_EQ(sent.Short(3), table.length);
    EXPECT_EQ(sent.At<uint8_t>(8), 1);
    EXPECT_EQ(sent.At<uint8_t>(8 + table.length - 1), table.length);
    EXPECT_EQ(sent.At<uint8_t>(8 + table.length), 0) << "what is not used is not the caller's";
}

TEST_P(BinTable, SendsAtMost2048Bytes)
{
    tcTestCamera camera;
    camera.TellGeometry(5000, 5000);
    std::vector<unsigned char> bytes(5000, 9);
    EXPECT_EQ((camera.*GetParam().set)(bytes.data(), 0), 0);
    EXPECT_EQ(camera.LastSent().Short(3), 2048);
    EXPECT_EQ(camera.LastSent().payload.size(), 2056u);
}

TEST_P(BinTable, RefusesAnIndexAbove7AndNull)
{
    tcTestCamera camera;
    unsigned char bytes[2048] = {};
    EXPECT_EQ((camera.*GetParam().set)(bytes, 8), -5);
    EXPECT_EQ((camera.*GetParam().set)(bytes, -1), -5);
    EXPECT_EQ((camera.*GetParam().set)(nullptr, 0), -5);
    int size = 4;
    EXPECT_EQ((camera.*GetParam().get)(0, nullptr, &size), -5);
    EXPECT_EQ((camera.*GetParam().get)(0, bytes, nullptr), -5);
    EXPECT_EQ(camera.SentCount(), 0u);
}

tBytes TableAnswer(uint16_t length, size_t carried)
{
    return tcPayload().U32(3).U16(0).U16(length).Ramp(carried);
}

TEST_P(BinTable, IsReadIntoTheCallersRoom)
{
    tcTestCamera camera;
    camera.AnswerTo(GetParam().getId, GetParam().answerId, TableAnswer(6, 2048));
    unsigned char bytes[8] = {};
    bytes[6] = 0x55;
    int size = sizeof bytes;
    EXPECT_EQ((camera.*GetParam().get)(3, bytes, &size), 0);
    EXPECT_EQ(size, 6);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(3).Take());
    EXPECT_THAT(bytes, ElementsAre(1, 8, 15, 22, 29, 36, 0x55, 0));
}

TEST_P(BinTable, ThatDoesNotFitGivesItsLengthOnly)
{
    tcTestCamera camera;
    camera.AnswerTo(GetParam().getId, GetParam().answerId, TableAnswer(6, 2048));
    unsigned char bytes[5] = {};
    int size = sizeof bytes;
    EXPECT_EQ((camera.*GetParam().get)(3, bytes, &size), -4);
    EXPECT_EQ(size, 6);
    EXPECT_THAT(bytes, Each(0));
}

TEST_P(BinTable, LengthIsCutToWhatTheAnswerCarries)
{
    tcTestCamera camera;
    camera.AnswerTo(GetParam().getId, GetParam().answerId, TableAnswer(60000, 3));
    std::vector<unsigned char> bytes(65536, 0x55);
    int size = static_cast<int>(bytes.size());
    EXPECT_EQ((camera.*GetParam().get)(3, bytes.data(), &size), 0);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(bytes[2], 15);
    EXPECT_EQ(bytes[3], 0x55);
}

TEST_P(BinTable, HasLengthZeroWhenNoAnswerCame)
{
    tcTestCamera camera;
    camera.RefuseToSend(true);
    unsigned char bytes[8] = {};
    int size = sizeof bytes;
    EXPECT_EQ((camera.*GetParam().get)(3, bytes, &size), -2);
    EXPECT_EQ(size, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BinTable,
    testing::Values(
        tsTableCase{&tcVXCamera::SetBinParam, &tcVXCamera::GetBinParam, 0x25, 0x33, 0x63, 5},
        tsTableCase{&tcVXCamera::SetHorBinParam, &tcVXCamera::GetHorBinParam, 0x4F, 0x5A, 0x80, 7}),
    [](const auto& each) { return each.param.setId == 0x25 ? "Vertical" : "Horizontal"; });

// ---- Bin mask ---------------------------------------------------------------------------------

TEST(BinMask, IsSentInTwoHalvesARow)
{
    tcTestCamera camera;
    camera.TellGeometry(2, 6);
    unsigned char mask[12];
    std::iota(std::begin(mask), std::end(mask), 1);
    EXPECT_EQ(camera.SetBinMaskParam(mask, 0x01020304), 0);
    const auto sent = camera.Sent();
    ASSERT_EQ(sent.size(), 4u);
    for (size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].id, 0x43u);
        ASSERT_EQ(sent[i].payload.size(), 520u);
        EXPECT_EQ(sent[i].At<uint8_t>(0), 1 + i * 3);
        EXPECT_EQ(sent[i].At<uint8_t>(2), 3 + i * 3);
        EXPECT_EQ(sent[i].At<uint8_t>(3), 0);
        EXPECT_EQ(sent[i].At<uint16_t>(512), i / 2) << "rows count from 0";
        EXPECT_EQ(sent[i].At<uint16_t>(514), i % 2 + 1);
        EXPECT_EQ(sent[i].At<uint32_t>(516), 0x01020304u);
    }
}

TEST(BinMask, IsSentNoFasterThanAHalfRowAMillisecond)
{
    using std::chrono::steady_clock;
    tcTestCamera camera;
    camera.TellGeometry(3, 6);
    std::vector<steady_clock::time_point> times{steady_clock::now()};
    camera.SetScript([&times](const tsSentMessage&) { times.push_back(steady_clock::now()); });
    unsigned char mask[18] = {};
    EXPECT_EQ(camera.SetBinMaskParam(mask, 0), 0);
    ASSERT_EQ(times.size(), 7u);
    for (size_t i = 1; i < times.size(); ++i) {
        EXPECT_GE(times[i] - times[i - 1], std::chrono::milliseconds(1)) << i;
    }
}

TEST(BinMask, IsSentToItsEndThoughSendsFail)
{
    tcTestCamera camera;
    camera.TellGeometry(2, 6);
    camera.RefuseToSend(true);
    unsigned char mask[12] = {};
    EXPECT_EQ(camera.SetBinMaskParam(mask, 0), 0);
    EXPECT_EQ(camera.SendAttempts(), 4u);
}

TEST(BinMask, OfAWideSensorSendsAtMost512BytesAHalf)
{
    tcTestCamera camera;
    camera.TellGeometry(1, 2000);
    std::vector<unsigned char> mask(2000, 7);
    EXPECT_EQ(camera.SetBinMaskParam(mask.data(), 0), 0);
    ASSERT_EQ(camera.SentCount(), 2u);
    EXPECT_EQ(camera.LastSent().payload.size(), 520u);
    EXPECT_EQ(camera.LastSent().At<uint8_t>(511), 7);
}

TEST(BinMask, OfZeroRowsSendsNothing)
{
    tcTestCamera camera;
    camera.TellGeometry(0, 6);
    unsigned char mask[1] = {};
    EXPECT_EQ(camera.SetBinMaskParam(mask, 0), 0);
    int argument = 5;
    EXPECT_EQ(camera.GetBinMaskParam(mask, nullptr, &argument), 0);
    EXPECT_EQ(camera.SentCount(), 0u);
    EXPECT_EQ(camera.SetBinMaskParam(nullptr, 0), -5);
}

TEST(BinMask, IsReadHalfRowByHalfRow)
{
    tcTestCamera camera;
    camera.TellGeometry(2, 6);
    unsigned half = 0;
    camera.SetScript([&](const tsSentMessage& sent) {
        EXPECT_EQ(sent.id, 0x44u);
        EXPECT_EQ(sent.payload, tcPayload().U16(half / 2).U16(half % 2 + 1).Take());
        ++half;
        camera.Feed(0x77, tcPayload().Fill(512, half).U16(0).U16(0).U16(0x8000 + half).U16(9));
    });
    std::vector<unsigned char> mask(9 + 512 + 1, 0x55);
    int unused = 31, argument = 0;
    EXPECT_EQ(camera.GetBinMaskParam(mask.data(), &unused, &argument), 0);
    EXPECT_EQ(half, 4u);
    EXPECT_THAT(std::vector<int>(mask.begin(), mask.begin() + 10),
                ElementsAre(1, 1, 1, 2, 2, 2, 3, 3, 3, 4));
    EXPECT_EQ(mask[9 + 511], 4) << "each answer writes 512 bytes";
    EXPECT_EQ(mask[9 + 512], 0x55);
    EXPECT_EQ(argument, 0x8004);
    EXPECT_EQ(unused, 31);
}

TEST(BinMask, ReadingStopsAtTheFirstFailure)
{
    tcTestCamera camera;
    camera.TellGeometry(50, 6);
    camera.RefuseToSend(true);
    std::vector<unsigned char> mask(50 * 6 + 512, 0);
    int argument = 31;
    EXPECT_EQ(camera.GetBinMaskParam(mask.data(), nullptr, &argument), -2);
    EXPECT_EQ(camera.SendAttempts(), 1u);
    EXPECT_EQ(argument, 31);
}

} // namespace

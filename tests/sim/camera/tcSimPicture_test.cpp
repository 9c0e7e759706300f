#include "tcSimPicture.h"

#include "vxmessages.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>

namespace {

const std::atomic<bool> gbNever{false};

// Pixels are row + column: sums can be told in advance.
tsSimJob Diagonal(teSimKind kind)
{
    tsSimJob job;
    job.kind = kind;
    job.conditions.pattern = 4;
    return job;
}

tsPixelData16Msg HeadOf(tcSimPicture& picture, uint32_t number)
{
    tsPixelData16Msg head{};
    std::memcpy(&head, picture.Packet(number), offsetof(tsPixelData16Msg, Pixels));
    return head;
}

template <class Pixel>
Pixel PixelOf(tcSimPicture& picture, uint32_t packet, uint32_t column)
{
    const size_t head = sizeof(Pixel) == 4 ? offsetof(tsPixelData32Msg, Pixels)
                                           : offsetof(tsPixelData16Msg, Pixels);
    Pixel pixel;
    std::memcpy(&pixel, picture.Packet(packet) + head + column * sizeof(Pixel), sizeof pixel);
    return pixel;
}

std::vector<uint32_t> Ends(uint32_t factor, uint32_t size)
{
    std::vector<uint32_t> ends;
    for (uint32_t end = factor; end <= size; end += factor) {
        ends.push_back(end);
    }
    return ends;
}

} // namespace

TEST(SimPicture, CarriesOneRowInEachPacketWithSensorCoordinates)
{
    const tcSimSensor sensor(60, 80, 1);
    tsSimJob job = Diagonal(teSimKind::eArea16);
    job.regions = {{5, 10, 20, 30}};
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    ASSERT_EQ(picture->PacketCount(), 20u);
    for (uint32_t i = 0; i < 20; ++i) {
        const tsPixelData16Msg head = HeadOf(*picture, i);
        EXPECT_EQ(head.header.Magic, gnMessageMagic);
        EXPECT_EQ(head.header.IDD, 3u);
        EXPECT_EQ(head.header.MsgId, 0x66u);
        EXPECT_EQ(head.header.Length, 16 + 2 * 30);
        EXPECT_EQ(head.ImageType, 0);
        EXPECT_EQ(head.PacketNumber, i + 1);
        EXPECT_EQ(head.TotalPackets, 20);
        EXPECT_EQ(head.Row, 5 + i);
        EXPECT_EQ(head.FirstColumn, 10);
        EXPECT_EQ(head.LastColumn, 39);
        EXPECT_EQ(PixelOf<uint16_t>(*picture, i, 7), 5 + i + 17);
    }
}

TEST(SimPicture, TellsSumExtremesAndMean)
{
    const tcSimSensor sensor(60, 80, 1);
    tsSimJob job = Diagonal(teSimKind::eArea16);
    job.regions = {{0, 0, 60, 80}};
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    uint64_t sum = 0;
    for (uint32_t row = 0; row < 60; ++row) {
        for (uint32_t column = 0; column < 80; ++column) {
            sum += row + column;
        }
    }
    EXPECT_EQ(picture->Facts().pixelSum, sum);
    EXPECT_EQ(picture->PixelSum(60), sum);
    EXPECT_EQ(picture->PixelSum(1), 79u * 80 / 2);
    EXPECT_EQ(picture->Facts().minimum, 0u);
    EXPECT_EQ(picture->Facts().maximum, 59u + 79);
    EXPECT_EQ(HeadOf(*picture, 0).Statistic, sum / 4800);
    EXPECT_EQ(HeadOf(*picture, 59).Statistic, sum / 4800);
}

TEST(SimPicture, SplitsRowsThatAreTooWideForOneMessage)
{
    const uint32_t most = tcSimPicture::PixelsPerPacket(teSimKind::eArea16);
    EXPECT_EQ(most, (16416u - 28) / 2);
    const tcSimSensor sensor(2, 10000, 1);
    tsSimJob job = Diagonal(teSimKind::eArea16);
    job.regions = {{0, 0, 2, 10000}};
    EXPECT_EQ(tcSimPicture::Packets(job), 4u);
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    ASSERT_EQ(picture->PacketCount(), 4u);
    EXPECT_EQ(HeadOf(*picture, 0).LastColumn, most - 1);
    EXPECT_EQ(HeadOf(*picture, 1).FirstColumn, most);
    EXPECT_EQ(HeadOf(*picture, 1).LastColumn, 9999);
    EXPECT_EQ(HeadOf(*picture, 1).Row, 0);
    EXPECT_EQ(HeadOf(*picture, 2).Row, 1);
    EXPECT_EQ(PixelOf<uint16_t>(*picture, 3, 0), most + 1);
}

TEST(SimPicture, SendsRegionsOneAfterAnother)
{
    const tcSimSensor sensor(60, 80, 1);
    tsSimJob job = Diagonal(teSimKind::eArea16);
    job.regions = {{40, 5, 2, 10}, {3, 60, 3, 20}};
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    ASSERT_EQ(picture->PacketCount(), 5u);
    EXPECT_EQ(HeadOf(*picture, 1).Row, 41);
    EXPECT_EQ(HeadOf(*picture, 2).Row, 3);
    EXPECT_EQ(HeadOf(*picture, 2).FirstColumn, 60);
    EXPECT_EQ(HeadOf(*picture, 2).TotalPackets, 5);
}

TEST(SimPicture, SendsUpperHalvesIn8Bits)
{
    const tcSimSensor sensor(4, 1000, 1);
    tsSimJob job = Diagonal(teSimKind::eArea8);
    job.regions = {{0, 0, 4, 1000}};
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    EXPECT_EQ(HeadOf(*picture, 0).header.MsgId, 0x88u);
    EXPECT_EQ(HeadOf(*picture, 0).header.Length, 16 + 1000);
    EXPECT_EQ(PixelOf<uint8_t>(*picture, 0, 255), 0);
    EXPECT_EQ(PixelOf<uint8_t>(*picture, 1, 255), 1);
    EXPECT_EQ(PixelOf<uint8_t>(*picture, 0, 999), 999 / 256);
    EXPECT_EQ(picture->Facts().bits, 8u);
}

TEST(SimPicture, SumsGroupsOfRowsAndColumns)
{
    const tcSimSensor sensor(8, 10, 1);
    tsSimJob job = Diagonal(teSimKind::eBinned);
    job.rowEnds = Ends(3, 8);    // two groups, the last two rows are left out
    job.columnEnds = {1, 5, 10}; // as a table may have it
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    ASSERT_EQ(picture->PacketCount(), 2u);
    EXPECT_EQ(HeadOf(*picture, 0).header.MsgId, 0x67u);
    EXPECT_EQ(HeadOf(*picture, 1).LastColumn, 2);
    auto expected = [](uint32_t top, uint32_t bottom, uint32_t left, uint32_t right) {
        uint32_t sum = 0;
        for (uint32_t row = top; row < bottom; ++row) {
            for (uint32_t column = left; column < right; ++column) {
                sum += row + column;
            }
        }
        return sum;
    };
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 0), expected(0, 3, 0, 1));
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 2), expected(0, 3, 5, 10));
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 1, 1), expected(3, 6, 1, 5));
    tsPixelData32Msg head{};
    std::memcpy(&head, picture->Packet(0), offsetof(tsPixelData32Msg, Pixels));
    EXPECT_EQ(head.Extra1, 3);
    EXPECT_EQ(head.Extra2, 1);
    EXPECT_EQ(head.Statistic, picture->Facts().maximum);
    EXPECT_EQ(picture->Facts().maximum, expected(3, 6, 5, 10));
}

TEST(SimPicture, ScalesBinnedSumsAndStopsAt32Bits)
{
    const tcSimSensor sensor(4, 4, 1);
    tsSimJob job = Diagonal(teSimKind::eBinned);
    job.conditions.pattern = 1;
    job.conditions.patternValues[0] = 1000;
    job.rowEnds = job.columnEnds = {2, 4};
    job.scale = 0.5;
    EXPECT_EQ(PixelOf<uint32_t>(*tcSimPicture::Make(sensor, job, gbNever), 0, 0), 2000u);
    job.scale = 1e9;
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 0), 0xFFFFFFFFu);
    EXPECT_EQ(HeadOf(*picture, 0).Statistic, 0xFFFF) << "the maximum, as far as 16 bits go";
}

TEST(SimPicture, SumsThePixelsOfEachBinOfTheMask)
{
    const tcSimSensor sensor(4, 4, 1);
    tsSimJob job = Diagonal(teSimKind::eMaskBinned);
    auto mask = std::make_shared<std::vector<uint8_t>>(16);
    (*mask)[0] = 1;  // row 0, column 0
    (*mask)[15] = 3; // row 3, column 3
    (*mask)[14] = 3; // row 3, column 2
    job.mask = mask;
    auto picture = tcSimPicture::Make(sensor, job, gbNever);
    ASSERT_EQ(picture->PacketCount(), 1u);
    EXPECT_EQ(HeadOf(*picture, 0).LastColumn, 2);
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 0), 0u);
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 1), 0u);
    EXPECT_EQ(PixelOf<uint32_t>(*picture, 0, 2), 11u);
}

TEST(SimPicture, IsNotMadeWhenCancelled)
{
    const tcSimSensor sensor(4, 4, 1);
    tsSimJob job = Diagonal(teSimKind::eArea16);
    job.regions = {{0, 0, 4, 4}};
    const std::atomic<bool> cancelled{true};
    EXPECT_EQ(tcSimPicture::Make(sensor, job, cancelled), nullptr);
}

TEST(SimPicture, IsTheSameForJobsThatDifferOnlyInTheirFrame)
{
    tsSimJob first = Diagonal(teSimKind::eArea16);
    first.regions = {{0, 0, 4, 4}};
    tsSimJob second = first;
    second.frame = 9;
    second.readout = 8;
    second.conditions.noiseKey = 7;
    second.conditions.temperature = -5;
    EXPECT_TRUE(SamePicture(first, second));
    second.regions[0].rows = 3;
    EXPECT_FALSE(SamePicture(first, second));
    second = first;
    second.conditions.exposure = 1;
    EXPECT_FALSE(SamePicture(first, second));
}

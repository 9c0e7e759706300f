#include "tcTestCamera.h"

#include <gtest/gtest.h>

#include <set>

namespace {

struct tsCommandCase {
    uint32_t id;
    const char* name;
    int shortest, longest; // payload bytes
    uint32_t answer;       // 0 for none
    int item;
};

// The whole catalogue, from host to camera.
const tsCommandCase gaCommandCases[] = {
    {0x11, "GetExposureTimeEx", 0, 0, 0x60, 0},
    {0x12, "SetExposureEx", 4, 4, 0, -1},
    {0x13, "SetParameter", 5, 2052, 0, -1},
    {0x14, "GetParameter", 4, 4, 0x8D, 34},
    {0x15, "SetSimpleBinning", 12, 12, 0, -1},
    {0x16, "GetSimpleBinning", 0, 0, 0x8C, 33},
    {0x17, "SetAutoTriggerReArm", 4, 4, 0, -1},
    {0x18, "GetAutoTriggerReArm", 0, 0, 0x8B, 32},
    {0x19, "GetAreaEx", 0, 0, 0x8A, 31},
    {0x1A, "SetAreaEx", 258, 258, 0, -1},
    {0x1B, "CISCalibrationState", 0, 0, 0x89, 30},
    {0x1C, "SetRecording", 268, 268, 0, -1},
    {0x1D, "CISSetShutterMode", 4, 4, 0, -1},
    {0x1E, "CISSelectChannel", 4, 4, 0, -1},
    {0x1F, "CISCalibrate", 4, 4, 0, -1},
    {0x20, "SetExposure", 4, 4, 0, -1},
    {0x21, "SetCooling", 4, 4, 0, -1},
    {0x22, "CameraReset", 0, 0, 0, -1},
    {0x23, "ClearCCD", 4, 4, 0, -1},
    {0x24, "SetCCDArea", 12, 12, 0, -1},
    {0x25, "SetBinParam", 2056, 2056, 0, -1},
    {0x27, "Write32Data", 8, 8, 0, -1},
    {0x28, "WriteDAC", 4, 4, 0, -1},
    {0x29, "GetBinningSequence", 0, 0, 0x83, 24},
    {0x2A, "SetGain", 4, 4, 0, -1},
    {0x2B, "GetGainConfig", 0, 0, 0x84, 25},
    {0x2C, "SetPID", 12, 12, 0, -1},
    {0x2D, "GetPID", 0, 0, 0x85, 26},
    {0x2E, "SetFilter", 8, 8, 0, -1},
    {0x2F, "GetFilter", 0, 0, 0x86, 27},
    {0x30, "GetExposureTime", 0, 0, 0x60, 0},
    {0x31, "GetCoolParam", 0, 0, 0x61, 1},
    {0x33, "GetBinParam", 4, 4, 0x63, 3},
    {0x34, "GetCameraHardwareInfo", 0, 0, 0x64, 4},
    {0x36, "ReadCCDArea", 12, 12, 0x66, 6},
    {0x37, "ReadCCDBinned", 12, 12, 0x67, 7},
    {0x38, "Read32Data", 8, 8, 0x70, 8},
    {0x3B, "SetCCDOffset", 4, 4, 0x6A, 11},
    {0x3E, "GetReadoutNoise", 0, 0, 0x73, 12},
    {0x3F, "SendLinkTestData", 12, 1036, 0x74, 13},
    {0x40, "SetCameraHardwareInfo", 0, 100, 0, -1},
    {0x41, "GetNetworkConfig", 0, 0, 0x76, 14},
    {0x42, "SetNetworkConfig", 24, 24, 0, -1},
    {0x43, "SetBinMaskParam", 520, 520, 0, -1},
    {0x44, "GetBinMaskParam", 4, 4, 0x77, 15},
    {0x45, "ReadCCDMaskBinned", 4, 4, 0x67, 7},
    {0x46, "SetShutterParams", 12, 12, 0, -1},
    {0x47, "GetShutterParams", 0, 0, 0x79, 16},
    {0x48, "EnableFan", 4, 4, 0, -1},
    {0x49, "SetShearingParams", 16, 16, 0, -1},
    {0x4A, "SetImageInterval", 4, 4, 0, -1},
    {0x4B, "GetImageIntervals", 0, 0, 0x7A, 17},
    {0x4C, "AbortRead", 0, 0, 0, -1},
    {0x4D, "SetCCDTargetTemp", 4, 4, 0, -1},
    {0x4E, "GetCCDTargetTemp", 0, 0, 0x7B, 18},
    {0x4F, "SetHorBinParam", 2056, 2056, 0, -1},
    {0x50, "SetBinningSequence", 36, 36, 0, -1},
    {0x51, "SetCCDImageMirroring", 8, 8, 0, -1},
    {0x52, "GetCCDImageMirroring", 0, 0, 0x7C, 19},
    {0x53, "SetShutterOverride", 8, 8, 0, -1},
    {0x54, "SetTimingData", 4356, 4356, 0, -1},
    {0x55, "GetTimingFileData", 0, 0, 0x7D, 20},
    {0x56, "SetGPIO", 8, 8, 0, -1},
    {0x57, "GetGPIO", 0, 0, 0x7E, 21},
    {0x58, "SetTrigger", 4, 4, 0, -1},
    {0x59, "GetTrigger", 0, 0, 0x7F, 22},
    {0x5A, "GetHorBinParam", 4, 4, 0x80, 23},
    {0x5B, "SetTestPattern", 68, 68, 0, -1},
    {0x5D, "EnableNoOps", 8, 8, 0, -1},
    {0x5E, "SetTriggerMode", 12, 12, 0, -1},
    {0x5F, "GetTriggerMode", 0, 0, 0x87, 28},
};

// What the camera sends, and which item waits for it; -1 for none.
const std::pair<uint32_t, int> gaAnswerCases[] = {
    {0x60, 0},  {0x61, 1},  {0x63, 3},  {0x64, 4},  {0x65, 5},  {0x66, 6},  {0x67, 7},  {0x68, -1},
    {0x69, -1}, {0x6A, 11}, {0x70, 8},  {0x71, 10}, {0x73, 12}, {0x74, 13}, {0x75, -1}, {0x76, 14},
    {0x77, 15}, {0x79, 16}, {0x7A, 17}, {0x7B, 18}, {0x7C, 19}, {0x7D, 20}, {0x7E, 21}, {0x7F, 22},
    {0x80, 23}, {0x82, -1}, {0x83, 24}, {0x84, 25}, {0x85, 26}, {0x86, 27}, {0x87, 28}, {0x88, 29},
    {0x89, 30}, {0x8A, 31}, {0x8B, 32}, {0x8C, 33}, {0x8D, 34}};

} // namespace

TEST(Messages, CatalogueHoldsEveryCommandWithItsLengthAnswerAndItem)
{
    for (const tsCommandCase& want : gaCommandCases) {
        SCOPED_TRACE(want.name);
        const tsCommandRow* row = FindCommand(want.id);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->id, want.id);
        EXPECT_STREQ(row->name, want.name);
        EXPECT_EQ(row->shortest, want.shortest);
        EXPECT_EQ(row->longest, want.longest);
        ASSERT_EQ(row->answer != nullptr, want.answer != 0);
        if (row->answer == nullptr) continue;
        EXPECT_EQ(row->answer->id, want.answer);
        EXPECT_EQ(row->answer->item, want.item);
    }
    EXPECT_EQ(std::size(gaCommands), std::size(gaCommandCases));
}

TEST(Messages, CatalogueHoldsEveryAnswerWithItsItem)
{
    for (const auto& [id, item] : gaAnswerCases) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        const tsAnswer* row = FindAnswer(id);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->id, id);
        const bool isPixels = row->delivery == eEvent && item >= 0;
        EXPECT_TRUE(isPixels || row->item == item);
    }
    EXPECT_EQ(std::size(gaAnswers), std::size(gaAnswerCases));
}

TEST(Messages, LookUpKnowsNoOtherId)
{
    std::set<uint32_t> commands, answers;
    for (const tsCommandCase& command : gaCommandCases) {
        commands.insert(command.id);
    }
    for (const auto& answer : gaAnswerCases) {
        answers.insert(answer.first);
    }
    for (uint32_t id = 0; id < 0x400; ++id) {
        EXPECT_EQ(FindCommand(id) != nullptr, commands.count(id) == 1) << std::hex << id;
        EXPECT_EQ(FindAnswer(id) != nullptr, answers.count(id) == 1) << std::hex << id;
    }
    EXPECT_EQ(FindAnswer(0xFFFFFF), nullptr);
    EXPECT_EQ(FindCommand(0xFFFFFFFF), nullptr);
}

TEST(Messages, ItemsWithoutAResponseAreTwoAndNine)
{
    std::set<int> items;
    for (const tsAnswer* answer : gaAnswers) {
        items.insert(answer->item);
    }
    EXPECT_EQ(items.count(2), 0U);
    EXPECT_EQ(items.count(9), 0U);
}

TEST(Messages, HeaderFieldsLieWhereTheWireHasThem)
{
    const uint8_t bytes[12] = {0x50, 0xFA, 0x34, 0x12, 0x7F, 0x03, 0x02, 0x01, 3, 0x60, 0x55, 0xAA};
    tsMsgHeader header;
    memcpy(&header, bytes, sizeof header);
    EXPECT_EQ(header.Magic, 0xFA50);
    EXPECT_EQ(header.Length, 0x1234);
    EXPECT_EQ(header.SeqNo, 0x7FU);
    EXPECT_EQ(header.Checksum, 0x010203U);
    EXPECT_EQ(header.IDD, 3U);
    EXPECT_EQ(header.MsgId, 0xAA5560U);

    header.MsgId = 0x123456;
    header.Checksum = 0xABCDEF;
    header.SeqNo = 0xFE;
    uint8_t written[12];
    memcpy(written, &header, sizeof header);
    const uint8_t expected[12] = {0x50, 0xFA, 0x34, 0x12, 0xFE, 0xEF,
                                  0xCD, 0xAB, 3,    0x56, 0x34, 0x12};
    EXPECT_EQ(memcmp(written, expected, 12), 0);
}

TEST(Messages, RecordsHaveTheirSizes)
{
    EXPECT_EQ(sizeof(tsMsgHeader), 12U);
    EXPECT_EQ(sizeof(tsEnetData), 28U);
    EXPECT_EQ(sizeof(TVXCameraHardware), 100U);
    EXPECT_EQ(offsetof(TVXCameraHardware, Rows), 42U);
    EXPECT_EQ(offsetof(TVXCameraHardware, Columns), 46U);
    EXPECT_EQ(sizeof(TVXNetworkConfig), 24U);
    EXPECT_EQ(sizeof(tsSetAreaExMsg), 258U);
    EXPECT_EQ(offsetof(tsSetAreaExMsg, FirstRows), 2U);
    EXPECT_EQ(offsetof(tsSetAreaExMsg, FirstColumns), 66U);
    EXPECT_EQ(offsetof(tsSetAreaExMsg, Heights), 130U);
    EXPECT_EQ(offsetof(tsSetAreaExMsg, Widths), 194U);
    EXPECT_EQ(offsetof(tsBinMaskMsg, Row), 512U);
    EXPECT_EQ(offsetof(tsBinMaskMsg, Half), 514U);
    EXPECT_EQ(offsetof(tsBinMaskMsg, Argument), 516U);
    EXPECT_EQ(offsetof(tsBinTableMsg, TableLength), 6U);
    EXPECT_EQ(offsetof(tsBinTableMsg, Table), 8U);
    EXPECT_EQ(offsetof(tsSetBinningSequenceMsg, Horizontal), 20U);
    EXPECT_EQ(offsetof(tsBinningSequenceMsg, Entries), 32U);
    EXPECT_EQ(sizeof(tsTestPatternMsg), 68U);
}

TEST(Messages, PixelPacketsHaveTheirLayouts)
{
    EXPECT_EQ(offsetof(tsPixelData16Msg, ImageType), 12U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, LastFrame), 13U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, PacketNumber), 14U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, TotalPackets), 16U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, Row), 18U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, FirstColumn), 20U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, LastColumn), 22U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, Statistic), 26U);
    EXPECT_EQ(offsetof(tsPixelData16Msg, Pixels), 28U);
    EXPECT_EQ(offsetof(tsPixelData8Msg, Row), 18U);
    EXPECT_EQ(offsetof(tsPixelData8Msg, Pixels), 28U);
    EXPECT_EQ(offsetof(tsPixelData32Msg, Row), 18U);
    EXPECT_EQ(offsetof(tsPixelData32Msg, Extra1), 28U);
    EXPECT_EQ(offsetof(tsPixelData32Msg, Extra2), 30U);
    EXPECT_EQ(offsetof(tsPixelData32Msg, Pixels), 32U);
}

TEST(Messages, UnionNamesHeaderAndBytesOfTheSameMessage)
{
    tuCameraMessages message{};
    message.header.MsgId = 0x5F;
    message.TriggerMode.payload.First = 0x01020304;
    EXPECT_EQ(message.bytes[9], 0x5F);
    EXPECT_EQ(message.bytes[16], 4);
    EXPECT_EQ(message.bytes[19], 1);
    EXPECT_EQ(sizeof message, 16416U);
}

TEST(Messages, ACommandLeavesStampedWithItsIdInBytesNineToEleven)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.SetImageInterval(0x11223344), 0);
    const tsSentMessage sent = camera.LastSent();
    uint8_t bytes[12];
    memcpy(bytes, &sent.header, sizeof bytes);
    const uint8_t stamped[] = {0x50, 0xFA, 4, 0, 0};
    EXPECT_EQ(memcmp(bytes, stamped, sizeof stamped), 0);
    const uint8_t word[] = {3, 0x4A, 0, 0};
    EXPECT_EQ(memcmp(bytes + 8, word, sizeof word), 0);
    EXPECT_EQ(sent.payload, (tBytes{0x44, 0x33, 0x22, 0x11}));
    camera.SetImageInterval(0);
    EXPECT_EQ(camera.LastSent().header.SeqNo, 1U);
}

TEST(Messages, ItemsHaveTheirTimeouts)
{
    for (int item = 0; item < gnItems; ++item) {
        int want = 20000;
        if (item <= 5 || item == 10 || item == 14 || item == 15 || (item >= 19 && item <= 28) ||
            item >= 30) {
            want = 10000;
        }
        if (item == 6 || item == 7 || item == 29) want = 0; // a rule of their own
        if (item == 11 || item == 12) want = 5000;
        if (item == 13) want = 3000;
        EXPECT_EQ(gaItemTimeouts[static_cast<size_t>(item)], want) << item;
    }
}

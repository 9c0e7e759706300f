#include "tcSimCamera.h"

#include <gtest/gtest.h>

namespace {

tcSimCamera MakeCamera(uint16_t rows = 40, uint16_t columns = 60)
{
    return tcSimCamera({rows, columns, 5, "test", 1, 20.0});
}

tsReadAreaMsg Area(uint16_t column, uint16_t row, uint16_t columns, uint16_t rows,
                   uint16_t frames = 1, uint16_t flags = 0)
{
    return {column, row, columns, rows, frames, flags};
}

tsBinTableMsg Table(uint32_t index, uint16_t length, const std::vector<uint16_t>& ends)
{
    tsBinTableMsg message{};
    message.Index = index;
    message.TableLength = length;
    for (uint16_t end : ends) {
        message.Table[end - 1] = 1;
    }
    return message;
}

tsSimPlan Binned(const tcSimCamera& camera, uint16_t mode = 0)
{
    tsSimPlan plan;
    EXPECT_EQ(camera.PlanBinned({1, mode, {}}, &plan), "");
    return plan;
}

} // namespace

TEST(SimPlan, ReadsTheAreaOfTheCommand)
{
    tcSimCamera camera = MakeCamera();
    tsSimPlan plan;
    ASSERT_EQ(camera.PlanArea(Area(10, 20, 30, 5, 7), &plan), "");
    ASSERT_EQ(plan.job.regions.size(), 1u);
    EXPECT_EQ(plan.job.regions[0].column, 10u);
    EXPECT_EQ(plan.job.regions[0].row, 20u);
    EXPECT_EQ(plan.job.regions[0].columns, 30u);
    EXPECT_EQ(plan.job.regions[0].rows, 5u);
    EXPECT_EQ(plan.timing.frames, 7u);
    EXPECT_EQ(plan.timing.exposure, 1.0);
    EXPECT_EQ(plan.job.kind, teSimKind::eArea16);
}

TEST(SimPlan, TakesAnEmptyAreaForTheAreaSetAndElseForTheWholeSensor)
{
    tcSimCamera camera = MakeCamera();
    tsSimPlan whole, set;
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 0, 0), &whole), "");
    EXPECT_EQ(whole.job.regions[0].rows, 40u);
    EXPECT_EQ(whole.job.regions[0].columns, 60u);
    ASSERT_EQ(camera.SetArea({1, 2, 3, 4, 0}), "");
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 0, 0), &set), "");
    EXPECT_EQ(set.job.regions[0].column, 1u);
    EXPECT_EQ(set.job.regions[0].rows, 4u);
}

TEST(SimPlan, RefusesAreasOutsideTheSensor)
{
    tcSimCamera camera = MakeCamera();
    tsSimPlan plan;
    EXPECT_NE(camera.PlanArea(Area(0, 0, 61, 1), &plan), "");
    EXPECT_NE(camera.PlanArea(Area(1, 0, 60, 1), &plan), "");
    EXPECT_NE(camera.PlanArea(Area(0, 40, 1, 1), &plan), "");
    EXPECT_NE(camera.PlanArea(Area(0, 1, 1, 40), &plan), "");
    EXPECT_NE(camera.PlanArea(Area(65535, 65535, 65535, 65535), &plan), "");
    EXPECT_NE(camera.SetArea({0, 0, 0, 1, 0}), "");
}

TEST(SimPlan, ReadsTheRegionsWhileTheyAreSet)
{
    tcSimCamera camera = MakeCamera();
    tsSetAreaExMsg message{};
    message.RegionCount = 2;
    message.FirstRows[1] = 30;
    message.FirstColumns[1] = 50;
    message.Heights[0] = message.Heights[1] = 10;
    message.Widths[0] = message.Widths[1] = 10;
    ASSERT_EQ(camera.SetRegions(message), "");
    tsSimPlan plan;
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 20, 10), &plan), "");
    ASSERT_EQ(plan.job.regions.size(), 2u);
    EXPECT_EQ(plan.job.regions[1].row, 30u);
    EXPECT_EQ(camera.GetRegions().RegionCount, 2);
    ASSERT_EQ(camera.SetArea({0, 0, 5, 5, 0}), "");
    EXPECT_EQ(camera.GetRegions().RegionCount, 0) << "a plain area ends them";
}

TEST(SimPlan, RefusesRegionsOutsideTheSensorAndKeepsTheOldOnes)
{
    tcSimCamera camera = MakeCamera();
    tsSetAreaExMsg message{};
    message.RegionCount = 1;
    message.Heights[0] = message.Widths[0] = 5;
    ASSERT_EQ(camera.SetRegions(message), "");
    message.FirstRows[0] = -1;
    EXPECT_NE(camera.SetRegions(message), "");
    message.FirstRows[0] = 36;
    EXPECT_NE(camera.SetRegions(message), "");
    message.RegionCount = 17;
    EXPECT_NE(camera.SetRegions(message), "");
    EXPECT_EQ(camera.GetRegions().RegionCount, 1);
    EXPECT_EQ(+camera.GetRegions().FirstRows[0], 0);
}

TEST(SimPlan, KnowsTheFlagsOfAnAreaReadout)
{
    tcSimCamera camera = MakeCamera();
    tsSimPlan plain, dark, bytes;
    camera.PlanArea(Area(0, 0, 1, 1, 1, 0), &plain);
    camera.PlanArea(Area(0, 0, 1, 1, 1, gnSimReadDark), &dark);
    camera.PlanArea(Area(0, 0, 1, 1, 1, gnSimReadBytes), &bytes);
    EXPECT_TRUE(plain.job.conditions.shutterOpen);
    EXPECT_FALSE(dark.job.conditions.shutterOpen);
    EXPECT_EQ(dark.job.kind, teSimKind::eArea16);
    EXPECT_EQ(bytes.job.kind, teSimKind::eArea8);
    EXPECT_TRUE(bytes.job.conditions.shutterOpen);
}

TEST(SimPlan, BinsTwoByTwoWhenNothingIsSet)
{
    const tsSimPlan plan = Binned(MakeCamera(5, 7));
    EXPECT_EQ(plan.groupings.at(0).rowEnds, (std::vector<uint32_t>{2, 4}));
    EXPECT_EQ(plan.groupings.at(0).columnEnds, (std::vector<uint32_t>{2, 4, 6}));
}

TEST(SimPlan, BinsBySimpleFactorsWhenTheyAreSet)
{
    tcSimCamera camera = MakeCamera(9, 10);
    ASSERT_EQ(camera.SetSimpleBinning({3, 5, 0.25f}), "");
    const tsSimPlan plan = Binned(camera);
    EXPECT_EQ(plan.groupings.at(0).rowEnds, (std::vector<uint32_t>{3, 6, 9}));
    EXPECT_EQ(plan.groupings.at(0).columnEnds, (std::vector<uint32_t>{5, 10}));
    EXPECT_EQ(plan.job.scale, 0.25);
}

TEST(SimPlan, BinsEachFrameByTheNextEntryOfTheSequence)
{
    tcSimCamera camera = MakeCamera(6, 6);
    tsSetBinningSequenceMsg message{};
    message.Entries = 2;
    message.Vertical[0] = 1;
    message.Horizontal[0] = 3;
    message.Vertical[1] = 6;
    ASSERT_EQ(camera.SetSequence(message), "");
    ASSERT_EQ(camera.SetSimpleBinning({2, 2, 1}), "");
    const tsSimPlan plan = Binned(camera);
    EXPECT_EQ(camera.JobOf(plan, 1).rowEnds.size(), 6u);
    EXPECT_EQ(camera.JobOf(plan, 1).columnEnds.size(), 2u);
    EXPECT_EQ(camera.JobOf(plan, 2).rowEnds.size(), 1u);
    EXPECT_EQ(camera.JobOf(plan, 2).columnEnds.size(), 6u) << "a factor of 0 leaves as it is";
    EXPECT_EQ(camera.JobOf(plan, 3).rowEnds.size(), 6u);
}

TEST(SimPlan, BinsByTheTableOfTheMode)
{
    tcSimCamera camera = MakeCamera(8, 6);
    ASSERT_EQ(camera.SetRowTable(Table(3, 8, {1, 5})), "");
    ASSERT_EQ(camera.SetColumnTable(Table(3, 6, {4})), "");
    ASSERT_EQ(camera.SetRowTable(Table(4, 8, {8})), "");
    EXPECT_EQ(Binned(camera, 3).groupings.at(0).rowEnds, (std::vector<uint32_t>{1, 5, 8}));
    EXPECT_EQ(Binned(camera, 3).groupings.at(0).columnEnds, (std::vector<uint32_t>{4, 6}));
    EXPECT_EQ(Binned(camera, 4).groupings.at(0).rowEnds, (std::vector<uint32_t>{8}));
    EXPECT_EQ(Binned(camera, 4).groupings.at(0).columnEnds.size(), 6u);
    EXPECT_EQ(Binned(camera, 0).groupings.at(0).rowEnds.size(), 4u);
    ASSERT_EQ(camera.SetRowTable(Table(4, 8, {})), "");
    EXPECT_EQ(Binned(camera, 4).groupings.at(0).rowEnds.size(), 4u) << "all zero unsets it";
    tsSimPlan plan;
    EXPECT_NE(camera.PlanBinned({1, 8, {}}, &plan), "");
}

TEST(SimPlan, NeedsAMaskForAMaskBinnedReadout)
{
    tcSimCamera camera = MakeCamera(4, 8);
    tsSimPlan plan;
    EXPECT_NE(camera.PlanMaskBinned({1, 0}, &plan), "");
    tsBinMaskMsg message{};
    message.Row = 3;
    message.Half = 2;
    ASSERT_EQ(camera.SetMask(message), "");
    EXPECT_NE(camera.PlanMaskBinned({1, 0}, &plan), "") << "all zero is no mask";
    message.HalfRow[1] = 200;
    message.HalfRow[4] = 9; // beyond half a row of eight columns
    ASSERT_EQ(camera.SetMask(message), "");
    ASSERT_EQ(camera.PlanMaskBinned({1, 0}, &plan), "");
    EXPECT_EQ((*plan.job.mask)[3 * 8 + 4 + 1], 200);
    EXPECT_EQ(tcSimPicture::Packets(plan.job), 1u);
    message.HalfRow[1] = 7;
    ASSERT_EQ(camera.SetMask(message), "");
    EXPECT_EQ((*plan.job.mask)[3 * 8 + 4 + 1], 200) << "a plan keeps its mask";
}

TEST(SimPlan, RefusesAFrameOfMorePacketsThanCanBeTold)
{
    tcSimCamera camera = MakeCamera(16384, 8190);
    tsSimPlan plan;
    EXPECT_EQ(camera.PlanArea(Area(0, 0, 8190, 16384), &plan), "");
    ASSERT_EQ(camera.SetSimpleBinning({1, 1, 1}), "");
    EXPECT_EQ(camera.PlanBinned({1, 0, {}}, &plan), "") << "two packets a row";
    tsSetAreaExMsg message{};
    message.RegionCount = 5;
    for (int i = 0; i < 5; ++i) {
        message.Heights[i] = 16384;
        message.Widths[i] = 1;
    }
    ASSERT_EQ(camera.SetRegions(message), "");
    tsSimPlan regions;
    EXPECT_NE(camera.PlanArea(Area(0, 0, 0, 0), &regions), "");
}

TEST(SimPlan, TakesPicturesUnderTheCircumstancesSet)
{
    tcSimCamera camera = MakeCamera();
    camera.SetExposure({2500});
    camera.SetGain({3});
    camera.SetOffset({500, 0});
    camera.SetMirroring({1, 0});
    camera.SetFilter({1, 0});
    camera.SetShutterOverride({1, 0});
    camera.SetImageInterval({4000});
    tsSimPlan plan;
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 1, 1), &plan), "");
    const tsSimConditions& conditions = plan.job.conditions;
    EXPECT_EQ(conditions.exposure, 2.5);
    EXPECT_EQ(conditions.gain, 4.0);
    EXPECT_EQ(conditions.offset, 500);
    EXPECT_TRUE(conditions.mirrorHorizontal);
    EXPECT_FALSE(conditions.mirrorVertical);
    EXPECT_FALSE(conditions.hotPixels);
    EXPECT_FALSE(conditions.shutterOpen);
    EXPECT_EQ(plan.timing.interval, 4.0);
    camera.SelectChannel({eCISChannelLowGain});
    tsSimPlan low;
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 1, 1), &low), "");
    EXPECT_EQ(low.job.conditions.gain, 1.0);
}

TEST(SimPlan, MakesEachFrameUnlikeTheOthersButRepeatable)
{
    tcSimCamera first = MakeCamera(), second = MakeCamera();
    tsSimPlan plan;
    ASSERT_EQ(first.PlanArea(Area(0, 0, 1, 1), &plan), "");
    first.StartReadout(plan);
    second.StartReadout(plan);
    EXPECT_EQ(first.JobOf(plan, 1).conditions.noiseKey, second.JobOf(plan, 1).conditions.noiseKey);
    EXPECT_NE(first.JobOf(plan, 1).conditions.noiseKey, first.JobOf(plan, 2).conditions.noiseKey);
    second.Readout().Abort();
    second.StartReadout(plan);
    EXPECT_NE(first.JobOf(plan, 1).conditions.noiseKey, second.JobOf(plan, 1).conditions.noiseKey);
}

TEST(SimPlan, TakesTheTemperatureOfTheMomentInTenthsOfADegree)
{
    tcSimCamera camera = MakeCamera();
    camera.SetTargetTemp({-300});
    camera.SetCooling({1});
    tsSimPlan plan;
    ASSERT_EQ(camera.PlanArea(Area(0, 0, 1, 1), &plan), "");
    EXPECT_EQ(camera.JobOf(plan, 1).conditions.temperature, 20.0);
    camera.SetTime(10.0);
    EXPECT_NEAR(camera.JobOf(plan, 1).conditions.temperature, -11.6, 1e-9);
    camera.SetTime(1000.0);
    EXPECT_EQ(camera.JobOf(plan, 1).conditions.temperature, -30.0);
}

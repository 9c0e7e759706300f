// Geometry of frames and memory for them; readouts themselves are tested through the program.
#include "readout.h"

#include "tool_support.h"

namespace {

const tsArea gtSensor{0, 0, 10000, 5000};

tsImageData Image(int rows, int columns)
{
    tsImageData image{};
    image.Rows = rows;
    image.Columns = columns;
    return image;
}

tsReadoutPlan Plan(teReadout kind, const tsArea& area)
{
    tsReadoutPlan plan;
    plan.kind = kind;
    plan.area = area;
    return plan;
}

std::vector<int> Numbers(const tsArea& area)
{
    return {area.firstColumn, area.firstRow, area.columns, area.rows};
}

// Geometry of a binned frame whose first row has `filled` columns.
std::vector<int> Binned(int rows, int columns, int filled)
{
    std::vector<uint32_t> row(static_cast<size_t>(gtSensor.columns));
    std::fill_n(row.begin(), filled, 7);
    return Numbers(FrameGeometry(Image(rows, columns), Plan(teReadout::eBinned, gtSensor), gtSensor,
                                 row.data()));
}

std::vector<int> Area(int rows, int columns, const tsArea& area)
{
    return Numbers(
        FrameGeometry(Image(rows, columns), Plan(teReadout::eArea, area), gtSensor, nullptr));
}

const std::vector<int> gaNone{0, 0, 0, 0};

} // namespace

TEST(FrameGeometry, AreaFramesLieAtTheirArea)
{
    EXPECT_EQ(Area(20, 30, {100, 200, 30, 20}), (std::vector<int>{100, 200, 30, 20}));
}

TEST(FrameGeometry, SmallerAreaFramesHaveTheSizeOfTheirRecord)
{
    EXPECT_EQ(Area(10, 15, {100, 200, 30, 20}), (std::vector<int>{100, 200, 15, 10}));
}

TEST(FrameGeometry, AreaRowsInSeveralPacketsHaveTheSizeOfTheArea)
{
    EXPECT_EQ(Area(10000, 1806, gtSensor), Numbers(gtSensor));
}

TEST(FrameGeometry, BinnedFramesLieAtTheStart)
{
    EXPECT_EQ(Binned(2500, 3000, 3000), (std::vector<int>{0, 0, 3000, 2500}));
}

TEST(FrameGeometry, BinnedRowsInSeveralPacketsAreToldFromTheBuffer)
{
    EXPECT_EQ(Binned(5000, 904, 5000), (std::vector<int>{0, 0, 5000, 2500}));
    EXPECT_EQ(Binned(9000, 1808, 10000), (std::vector<int>{0, 0, 10000, 3000}));
    EXPECT_EQ(Binned(5, 4096, 4096), (std::vector<int>{0, 0, 4096, 5}));
    EXPECT_EQ(Binned(6, 4096, 8192), (std::vector<int>{0, 0, 8192, 3}));
}

TEST(FrameGeometry, ABinnedFrameWhoseFirstRowIsDarkKeepsItsRecord)
{
    EXPECT_EQ(Binned(2500, 3000, 0), (std::vector<int>{0, 0, 3000, 2500}));
}

TEST(FrameGeometry, SenselessRecordsGiveNothing)
{
    EXPECT_EQ(Area(0, 10, gtSensor), gaNone);
    EXPECT_EQ(Area(10, 0, gtSensor), gaNone);
    EXPECT_EQ(Area(-1, 10, gtSensor), gaNone);
    EXPECT_EQ(Area(10, 10001, gtSensor), gaNone);
    EXPECT_EQ(Area(10, 9000, {5000, 0, 5000, 5000}), gaNone);
    EXPECT_EQ(Binned(5001, 10, 10), gaNone);
    EXPECT_EQ(Binned(10, 10001, 10), gaNone);
}

TEST(QueueCapacity, FollowsTheSizeOfAFrame)
{
    EXPECT_EQ(QueueCapacity(Plan(teReadout::eArea, {0, 0, 2048, 2048})), 8u);
    EXPECT_EQ(QueueCapacity(Plan(teReadout::eArea, {0, 0, 8192, 8192})), 2u);
    EXPECT_EQ(QueueCapacity(Plan(teReadout::eBinned, {0, 0, 8192, 8192})), 1u);
    EXPECT_EQ(QueueCapacity(Plan(teReadout::eArea, {0, 0, 60000, 60000})), 1u);
    EXPECT_EQ(QueueCapacity(Plan(teReadout::eArea, {0, 0, 0, 0})), 8u);
}

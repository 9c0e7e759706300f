#include "files_support.h"

#include <vxcamkit/exposure_search.h>

#include <cmath>

namespace vxcam {

namespace {

using State = ExposureSearch::State;

ExposureGoal goalOf(double level)
{
    ExposureGoal goal;
    goal.level = level;
    goal.offset = 1000;
    return goal;
}

// Searches under a light of so many ADU a second.
State search(const ExposureGoal& goal, double light, double* level, int* frames)
{
    ExposureSearch search(goal);
    State state = State::Searching;
    for (*frames = 0; state == State::Searching; ++*frames) {
        *level =
            std::min(1000 + light * static_cast<double>(search.exposure().count()) / 1000, 65535.0);
        state = search.add(*level);
    }
    return state;
}

} // namespace

TEST(ExposureSearch, FindsTheLevelUnderAnyLight)
{
    for (const double light : {100.0, 5000.0, 32000.0, 1e6, 1e7, 2.5e7}) {
        double level = 0;
        int frames = 0;
        EXPECT_EQ(search(goalOf(32768), light, &level, &frames), State::Found) << light;
        const double step = light / 1000; // of 1 ms
        EXPECT_NEAR(level - 1000, 31768, std::max(0.02 * 31768, step)) << light;
        EXPECT_LE(frames, 8) << light;
    }
}

TEST(ExposureSearch, SaysWhereThereIsNone)
{
    double level = 0;
    int frames = 0;
    EXPECT_EQ(search(goalOf(32768), 10, &level, &frames), State::TooDark);
    EXPECT_EQ(search(goalOf(32768), 0, &level, &frames), State::TooDark);
    EXPECT_EQ(search(goalOf(32768), 1e9, &level, &frames), State::TooBright);
    EXPECT_LE(frames, 8);
}

// 3.24e6 ADU a second ask for 9.8 ms, 3.1e6 for 10.2 ms.
TEST(ExposureSearch, SaysSoOnlyWhereTheExposureWouldHaveToGoBeyondItsLimit)
{
    ExposureGoal goal = goalOf(32768);
    goal.tolerance = 0.01;
    goal.most = std::chrono::milliseconds(10);
    double level = 0;
    int frames = 0;
    EXPECT_EQ(search(goal, 3.24e6, &level, &frames), State::Found);
    EXPECT_EQ(search(goal, 3.1e6, &level, &frames), State::TooDark);
    goal.least = goal.most;
    EXPECT_EQ(search(goal, 3.24e6, &level, &frames), State::TooBright);
    EXPECT_EQ(search(goalOf(32768), 5e7, &level, &frames), State::TooBright);
}

TEST(ExposureSearch, GivesUpUnderALightThatChangesAllTheTime)
{
    ExposureSearch search(goalOf(30000));
    State state = State::Searching;
    int frames = 0;
    for (; state == State::Searching && frames < 100; ++frames) {
        state = search.add(frames % 2 == 0 ? 50000 : 5000);
    }
    EXPECT_EQ(state, State::Unsteady);
    EXPECT_EQ(frames, 20);
}

TEST(ExposureSearch, RefusesLevelsThatCannotBe)
{
    for (const double level : {500.0, 1000.0, 65000.0, 1e9, std::nan("")}) {
        EXPECT_NE(refusalOf([&] { ExposureSearch{goalOf(level)}; }, ErrorKind::Usage), "");
    }
}

} // namespace vxcam

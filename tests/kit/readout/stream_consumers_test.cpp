// What slow consumers meet, and what they may keep.
#include "kit_support.h"
#include "stream_support.h"
#include "vxcamiface.h"

using namespace vxcam;

TEST_F(Streams, WaitHoldsTheCameraBackAndLosesNothing)
{
    options_.rows = options_.columns = 512;
    Camera& camera = open();
    Plan plan = planOf(60, 0ms);
    plan.buffers = 2;
    Stream stream = camera.stream(plan);
    std::this_thread::sleep_for(300ms); // in which the camera could send them all
    EXPECT_LT(stream.books().complete, 4u) << "memory is bounded";
    EXPECT_LT(sim_->Statistics().framesComplete, 60u) << "the camera waits";
    for (uint32_t i = 1; i <= 60; ++i) {
        const std::optional<Frame> frame = stream.next(kPatience);
        ASSERT_TRUE(frame.has_value());
        ASSERT_TRUE(frame->complete());
        ASSERT_EQ(frame->facts().number, static_cast<int>(i));
        ASSERT_EQ(frame->sum(), sumOf(1, i).value());
    }
    EXPECT_FALSE(stream.next(kPatience).has_value());
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
}

TEST_F(Streams, WaitLetsCommandsThrough)
{
    options_.rows = options_.columns = 512;
    Camera& camera = open();
    Plan plan = planOf(0, 0ms);
    plan.buffers = 2;
    Stream stream = camera.stream(plan);
    ASSERT_TRUE(waitUntil([&] { return stream.books().complete == 2; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_LT(timeOf([&] { camera.statistics(); }), kPromptly);
    EXPECT_EQ(errorOf([&] { camera.stream(planOf(1)); }).kind(), ErrorKind::Usage);
    EXPECT_LT(timeOf([&] { stream.stop(); }), kPromptly) << "a held camera can be stopped";
    EXPECT_LT(timeOf([&] { camera.close(); }), kPromptly) << "and closed";
}

TEST_F(Streams, DropNewestCounts)
{
    Camera& camera = open();
    Plan plan = planOf(100, 0ms);
    plan.buffers = 3;
    plan.whenFull = WhenFull::DropNewest;
    Stream stream = camera.stream(plan);
    ASSERT_TRUE(waitUntil([&] { return stream.end() != ReadoutEnd::Running; }));
    EXPECT_EQ(stream.books().complete, 3u);
    EXPECT_EQ(stream.books().dropped, 97u);
    EXPECT_EQ(camera.statistics().framesFailed, 0u) << "it was wanted: no error of the library's";
    EXPECT_EQ(stream.end(), ReadoutEnd::Incomplete);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(stream.next(kPatience)->facts().number, i);
    }
    EXPECT_FALSE(stream.next(kPatience).has_value()) << "dropping was wanted: no failure";
}

TEST_F(Streams, DroppedFramesAreToldWithTheNextOne)
{
    Camera& camera = open();
    Plan plan = planOf(0, 0ms);
    plan.buffers = 2;
    plan.whenFull = WhenFull::DropNewest;
    Stream stream = camera.stream(plan);
    ASSERT_TRUE(waitUntil([&] { return stream.books().dropped > 5; }));
    stream.next(kPatience);
    stream.next(kPatience);
    const std::optional<Frame> next = stream.next(kPatience);
    EXPECT_GT(next->facts().dropped, 5u);
    EXPECT_EQ(next->facts().number, static_cast<int>(next->facts().dropped) + 3);
}

TEST_F(Streams, ConsumersMayKeepAllFrames)
{
    Camera& camera = open();
    Plan plan = planOf(50, 0ms);
    plan.buffers = 4;
    Stream stream = camera.stream(plan);
    const std::vector<Frame> frames = all(stream);
    ASSERT_EQ(frames.size(), 50u);
    for (uint32_t i = 1; i <= 50; ++i) {
        EXPECT_EQ(frames[i - 1].sum(), sumOf(1, i).value());
    }
}

TEST_F(Streams, FramesOutliveStreamAndCamera)
{
    std::vector<Frame> frames;
    std::vector<uint64_t> sums;
    {
        Camera& camera = open();
        Stream stream = camera.stream(planOf(3));
        frames = all(stream);
        for (const Frame& frame : frames) {
            sums.push_back(sumOf(1, static_cast<uint32_t>(frame.facts().number)).value());
        }
        camera_.reset();
    }
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(frames[i].sum(), sums[i]);
    }
}

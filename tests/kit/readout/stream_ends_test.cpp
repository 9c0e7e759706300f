// How readouts end, and that nothing of one is left for the next.
#include "kit_support.h"
#include "stream_support.h"
#include "vxcamiface.h"

#include <atomic>
#include <future>

using namespace vxcam;
using testing::HasSubstr;

TEST_F(Streams, StoppingEndsThemQuietly)
{
    Camera& camera = open();
    Plan plan = planOf(0);
    Stream stream = camera.stream(plan);
    EXPECT_TRUE(stream.next(kPatience).has_value());
    EXPECT_LT(timeOf([&] { stream.stop(); }), kPromptly);
    all(stream);
    EXPECT_EQ(stream.end(), ReadoutEnd::Aborted);
    EXPECT_EQ(camera.grab(planOf(1)).facts().readout, 2u) << "the camera was stopped";
}

TEST_F(Streams, AbortIsToldToTheConsumer)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 1h));
    auto error = std::async(std::launch::async, [&] { return errorOf([&] { stream.next(); }); });
    EXPECT_TRUE(waitUntil([&] { return sim_->Statistics().commands > 0; }));
    const auto start = Clock::now();
    camera.abort();
    EXPECT_EQ(error.get().kind(), ErrorKind::Aborted);
    EXPECT_LT(Clock::now() - start, kPromptly);
    EXPECT_EQ(stream.end(), ReadoutEnd::Aborted);
    EXPECT_EQ(errorOf([&] { stream.next(); }).kind(), ErrorKind::Aborted) << "once and again";
}

TEST_F(Streams, AbandonedReadoutsLeaveNothingForTheNext)
{
    Camera& camera = open();
    Plan quick = planOf(1, 500ms);
    quick.area = Area{0, 0, 10, 10};
    {
        Stream stream = camera.stream(planOf(1, 1h));
        EXPECT_EQ(errorOf([&] { stream.next(100ms); }).kind(), ErrorKind::Timeout);
    }
    const auto start = Clock::now();
    const Frame frame = camera.grab(quick);
    EXPECT_GE(Clock::now() - start, 500ms);
    EXPECT_LT(Clock::now() - start, 500ms + kPromptly);
    EXPECT_EQ(frame.facts().readout, 2u);
    EXPECT_EQ(frame.facts().exposure, 500ms);
    EXPECT_EQ(frame.rows(), 10);
    EXPECT_EQ(frame.sum(), sumOf(2, 1).value());
}

TEST_F(Streams, NothingComesWhenAnAbandonedExposureWouldHaveEnded)
{
    Camera& camera = open();
    const auto start = Clock::now();
    {
        Stream stream = camera.stream(planOf(1, 2s));
        EXPECT_EQ(errorOf([&] { stream.next(100ms); }).kind(), ErrorKind::Timeout);
    }
    const Frame frame = camera.grab(planOf(1, 500ms));
    EXPECT_EQ(frame.facts().readout, 2u);
    EXPECT_EQ(frame.facts().exposure, 500ms);
    EXPECT_EQ(frame.sum(), sumOf(2, 1).value());
    const uint64_t packets = camera.statistics().packetsReceived;
    std::this_thread::sleep_until(start + 2500ms); // half a second behind its end
    camera.checkLink(1);                           // what had come before that was counted
    EXPECT_EQ(camera.statistics().packetsReceived, packets);
    EXPECT_EQ(camera.statistics().framesComplete, 1u);
    EXPECT_EQ(sim_->Frames().size(), 1u);
}

TEST_F(Streams, FramesOnTheirWayWhenAbandonedAreNotTheNextOnes)
{
    options_.rows = options_.columns = 512;
    Camera& camera = open();
    for (int round = 0; round < 20; ++round) {
        {
            Stream stream = camera.stream(planOf(0, 0ms));
            stream.next(kPatience);
        }
        const Frame frame = camera.grab(planOf(1, 0ms));
        const uint32_t readout = 2 * static_cast<uint32_t>(round) + 2;
        EXPECT_EQ(frame.facts().readout, readout);
        EXPECT_EQ(frame.facts().number, 1);
        ASSERT_EQ(frame.sum(), sumOf(readout, 1).value());
    }
}

TEST_F(Streams, LinkLossEndsThemAtOnce)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 1h));
    auto error = std::async(std::launch::async, [&] {
        const Error thrown = errorOf([&] { stream.next(); });
        return std::make_pair(thrown, Clock::now());
    });
    const auto start = Clock::now();
    sim_->Stop();
    const auto [thrown, when] = error.get();
    EXPECT_EQ(thrown.kind(), ErrorKind::LinkLost);
    EXPECT_LT(when - start, kPromptly);
    EXPECT_EQ(stream.end(), ReadoutEnd::LinkLost);
    EXPECT_FALSE(camera.waitForLink(10ms));
    auto waiting = std::async(std::launch::async,
                              [&] { return errorOf([&] { camera.waitForLink(kPatience); }); });
    camera.close();
    EXPECT_EQ(waiting.get().kind(), ErrorKind::Aborted);
}

// What the camera had told of an earlier one.
TEST_F(Streams, LinkLossDoesNotQuoteAnEarlierReadout)
{
    Camera& camera = open();
    Plan plan = planOf(1);
    plan.kind = ReadoutKind::MaskBinned; // for which no mask is set
    EXPECT_THROW(camera.grab(plan), Error);
    Stream stream = camera.stream(planOf(0, 10s));
    sim_->Stop();
    const Error lost = errorOf([&] { stream.next(kPatience); });
    EXPECT_EQ(lost.kind(), ErrorKind::LinkLost);
    EXPECT_THAT(lost.what(), testing::EndsWith("the connection was lost during the readout"));
}

TEST_F(Streams, GoOnAfterTheLinkIsBack)
{
    Camera& camera = open({"close:readout=1,frame=2,packet=10"});
    std::atomic<int> lost{0}, restored{0};
    const Subscription subscription = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::LinkLost) ++lost;
        if (event.kind == EventKind::LinkRestored) ++restored;
    });
    Stream stream = camera.stream(planOf(5));
    EXPECT_TRUE(stream.next(kPatience).has_value());
    EXPECT_EQ(errorOf([&] { stream.next(kPatience); }).kind(), ErrorKind::LinkLost);
    EXPECT_TRUE(camera.waitForLink(kPatience));
    const Frame frame = camera.grab(planOf(1));
    EXPECT_TRUE(waitUntil([&] { return restored == 1; }));
    EXPECT_EQ(lost, 1);
    EXPECT_EQ(frame.sum(), sumOf(2, 1).value());
}

TEST_F(Streams, CameraErrorsEndThemAtOnce)
{
    Camera& camera = open({"error-storm:readout=1,frame=2,packet=1,count=1,code=9,subcode=4"});
    Stream stream = camera.stream(planOf(3, 50ms));
    EXPECT_TRUE(stream.next(kPatience).has_value());
    const Error error = errorOf([&] { stream.next(kPatience); });
    EXPECT_EQ(error.kind(), ErrorKind::Camera);
    EXPECT_EQ(error.code(), 9);
    EXPECT_EQ(error.subCode(), 4);
    EXPECT_EQ(stream.end(), ReadoutEnd::CameraError);
    EXPECT_EQ(camera.grab(planOf(1)).facts().readout, 2u);
}

TEST_F(Streams, CameraErrorsAreNotedWhereThePlanSaysSo)
{
    Camera& camera = open({"error-storm:readout=1,frame=2,packet=1,count=3,code=9,subcode=4"});
    Plan plan = planOf(3);
    plan.endOnCameraError = false;
    Stream stream = camera.stream(plan);
    const std::vector<Frame> frames = all(stream);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_TRUE(frames[0].facts().complaints.empty());
    ASSERT_EQ(frames[1].facts().complaints.size(), 3u);
    EXPECT_EQ(frames[1].facts().complaints[0].code, 9);
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
}

TEST_F(Streams, SilenceBeyondTheDueTimeEndsThem)
{
    Camera& camera = open({"half-open:readout=1,frame=1,packet=1"});
    Plan plan = planOf(1, 2s);
    plan.timeout = 300ms;
    Stream stream = camera.stream(plan);
    const auto start = Clock::now();
    const Error error = errorOf([&] { stream.next(kPatience); });
    const auto took = Clock::now() - start;
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.end(), ReadoutEnd::TimedOut);
    EXPECT_GE(took, 2280ms) << "the exposure counts in full";
    EXPECT_LT(took, 2300ms + kPromptly);
}

TEST_F(Streams, TakeNothingOfAnEarlierReadoutForTheirOwn)
{
    Camera& camera = open();
    EXPECT_TRUE(camera.grab(planOf(1)).complete());
    Plan plan = planOf(1, 1200ms);
    plan.timeout = 1s;
    EXPECT_TRUE(camera.grab(plan).complete()) << "an exposure is no silence";
    VXSetTriggerMode(camera.handle(), eExtTrigStart, 0, 0);
    const Error error = errorOf([&] { camera.grab(plan); });
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_THAT(error.what(), HasSubstr("silent for 1 s while a trigger was waited for"));
    plan.timeout.reset();
    Stream stream = camera.stream(plan);
    EXPECT_EQ(errorOf([&] { stream.next(300ms); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.progress().phase, Progress::Phase::Waiting);
}

TEST_F(Streams, SilenceWithinAFrameEndsThem)
{
    Camera& camera = open({"stall:readout=1,frame=2,packet=30,seconds=60"});
    Plan plan = planOf(3);
    plan.timeout = 1s;
    Stream stream = camera.stream(plan);
    EXPECT_TRUE(stream.next(kPatience).has_value());
    const auto start = Clock::now();
    EXPECT_THAT(errorOf([&] { stream.next(kPatience); }).what(), HasSubstr("within a frame"));
    EXPECT_LT(Clock::now() - start, 1s + kPromptly);
    EXPECT_EQ(stream.end(), ReadoutEnd::TimedOut);
}

TEST_F(Streams, ImageIntervalsCountAsNoSilence)
{
    Camera& camera = open();
    VXSetImageInterval(camera.handle(), 1200);
    Plan plan = planOf(3, 10ms);
    plan.timeout = 1s;
    Stream stream = camera.stream(plan);
    EXPECT_EQ(all(stream).size(), 3u);
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
}

TEST_F(Streams, WaitForATriggerWithoutEnd)
{
    Camera& camera = open();
    VXSetTriggerMode(camera.handle(), eExtTrigFrame, 0, 0);
    Plan plan = planOf(2, 10ms);
    Stream stream = camera.stream(plan);
    EXPECT_EQ(errorOf([&] { stream.next(300ms); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.end(), ReadoutEnd::Running);
    EXPECT_EQ(stream.progress().phase, Progress::Phase::Waiting);
    VXSetTrigger(camera.handle(), 1);
    EXPECT_TRUE(stream.next(kPatience).has_value());
    stream.stop();
    plan.timeout = 200ms;
    Stream impatient = camera.stream(plan);
    EXPECT_EQ(errorOf([&] { impatient.next(kPatience); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(impatient.end(), ReadoutEnd::TimedOut) << "the time-out was given";
}

TEST_F(Streams, MarkIncompleteFrames)
{
    Camera& camera = open({"missing-packet:readout=1,frame=2,packet=11"});
    Stream stream = camera.stream(planOf(3));
    const std::vector<Frame> frames = all(stream);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_TRUE(frames[0].complete());
    EXPECT_FALSE(frames[1].complete());
    EXPECT_EQ(frames[1].missing(), 1);
    EXPECT_EQ(frames[1].facts().missingRows, (std::vector<int>{10}));
    EXPECT_TRUE(frames[1].facts().missingRowsKnown);
    for (int column = 0; column < kColumns; ++column) {
        ASSERT_EQ(frames[1].pixel(10, column), 0) << "not a row of the frame before";
    }
    EXPECT_TRUE(frames[2].complete());
    EXPECT_EQ(stream.end(), ReadoutEnd::Incomplete);
    EXPECT_EQ(stream.books().complete, 2u);
    EXPECT_EQ(stream.books().incomplete, 1u);
}

TEST_F(Streams, GrabThrowsAnIncompleteFrameWithTheFrame)
{
    Camera& camera = open({"missing-packet:readout=1,frame=1,packet=5"});
    try {
        camera.grab(planOf(1));
        ADD_FAILURE();
    } catch (const IncompleteFrame& incomplete) {
        EXPECT_EQ(incomplete.kind(), ErrorKind::Incomplete);
        EXPECT_EQ(incomplete.frame().facts().missingRows, (std::vector<int>{4}));
        EXPECT_THAT(incomplete.what(), HasSubstr("1 of 64 packets"));
    }
    EXPECT_TRUE(camera.grab(planOf(1)).complete());
}

TEST_F(Streams, EndWithTheFramesThatWereAskedForWhateverTheCameraSays)
{
    Camera& camera = open({"endless:readout=1"});
    Stream stream = camera.stream(planOf(3));
    EXPECT_EQ(all(stream).size(), 3u);
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
    EXPECT_EQ(camera.grab(planOf(1)).facts().readout, 2u) << "the camera was stopped";
}

TEST_F(Streams, HaveEndedWhenTheLastFrameIsTaken)
{
    Camera& camera = open();
    for (int i = 0; i < 200; ++i) {
        Stream stream = camera.stream(planOf(1, 0ms));
        ASSERT_TRUE(stream.next(kPatience).has_value());
        ASSERT_EQ(stream.end(), ReadoutEnd::Complete) << i;
    }
}

TEST_F(Streams, EndIsToldAsAnEvent)
{
    Camera& camera = open();
    std::promise<Event> told;
    const Subscription subscription = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::ReadoutEnded) told.set_value(event);
    });
    Stream stream = camera.stream(planOf(2));
    const Event event = told.get_future().get();
    EXPECT_EQ(event.text, "complete");
    EXPECT_EQ(event.readout, 1u);
}

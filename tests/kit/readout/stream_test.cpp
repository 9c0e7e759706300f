// Readouts, how they end, and what their consumers are told.
#include "kit_support.h"
#include "vxcamiface.h"

#include <atomic>
#include <cstring>
#include <future>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class Streams : public KitCamera
{
protected:
    // Takes frames until the end or a failure.
    static std::vector<Frame> all(Stream& stream)
    {
        std::vector<Frame> frames;
        while (std::optional<Frame> frame = stream.next(kPatience)) {
            frames.push_back(std::move(*frame));
        }
        return frames;
    }
};

} // namespace

TEST_F(Streams, BringEveryFrameAsTheCameraSentIt)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(20));
    const std::vector<Frame> frames = all(stream);
    ASSERT_EQ(frames.size(), 20u);
    for (uint32_t i = 0; i < 20; ++i) {
        const FrameFacts& facts = frames[i].facts();
        EXPECT_EQ(facts.number, static_cast<int>(i) + 1);
        EXPECT_EQ(facts.readout, 1u);
        EXPECT_EQ(facts.frames, 20);
        EXPECT_EQ(facts.bits, 16);
        EXPECT_EQ(facts.exposure, 1ms);
        EXPECT_EQ(facts.sensor, (Size{kColumns, kRows}));
        EXPECT_EQ(facts.area, (Area{0, 0, kColumns, kRows}));
        EXPECT_TRUE(frames[i].complete());
        EXPECT_EQ(frames[i].sum(), sumOf(1, i + 1).value());
    }
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
    EXPECT_EQ(stream.endText(), "");
    EXPECT_FALSE(stream.next().has_value()) << "the end stays the end";
    EXPECT_EQ(stream.books().complete, 20u);
    EXPECT_EQ(stream.books().taken, 20u);
}

TEST_F(Streams, ReadEachKindAndWidth)
{
    Camera& camera = open();
    Plan plan = planOf(1);
    plan.bits = 8;
    const Frame bytes = camera.grab(plan);
    EXPECT_EQ(bytes.bits(), 8);
    EXPECT_EQ(bytes.sum(), sumOf(1, 1).value());

    plan = planOf(1);
    plan.kind = ReadoutKind::Binned;
    plan.binningX = 4;
    plan.binningY = 2;
    const Frame binned = camera.grab(plan);
    EXPECT_EQ(binned.bits(), 32);
    EXPECT_EQ(binned.rows(), kRows / 2);
    EXPECT_EQ(binned.columns(), kColumns / 4);
    EXPECT_EQ(binned.facts().binningX, 4);
    EXPECT_EQ(binned.facts().binningY, 2);
    EXPECT_EQ(binned.sum(), sumOf(2, 1).value());

    plan = planOf(1);
    plan.area = Area{10, 20, 30, 40};
    const Frame part = camera.grab(plan);
    EXPECT_EQ(part.rows(), 40);
    EXPECT_EQ(part.columns(), 30);
    EXPECT_EQ(part.facts().area, (Area{10, 20, 30, 40}));
    EXPECT_EQ(part.sum(), sumOf(3, 1).value());

    const Frame whole = camera.grab(planOf(1));
    EXPECT_EQ(whole.rows(), kRows) << "the area held for its readout only";
}

TEST_F(Streams, StackRegionsAndLeaveNothingBesideNarrowOnes)
{
    Camera& camera = open();
    camera.set("area-regions", "0,0,96,10/0,20,96,10");
    const uint64_t sum = camera.grab(planOf(1)).sum();
    EXPECT_EQ(sum, sumOf(1, 1).value());
    camera.set("area-regions", "0,0,40,5/0,20,96,15");
    Plan plan = planOf(20);
    plan.buffers = 2;
    Stream stream = camera.stream(plan);
    for (uint32_t i = 1; i <= 20; ++i) {
        const Frame frame = *stream.next(kPatience);
        ASSERT_EQ(frame.rows(), 20);
        ASSERT_EQ(frame.columns(), 96);
        ASSERT_EQ(frame.sum(), sumOf(2, i).value()) << i;
        std::memset(const_cast<void*>(frame.data()), 0xFF, frame.bytes()); // for the next but one
    }
    const Frame last = camera.grab(planOf(1));
    EXPECT_EQ(last.facts().regions, (std::vector<Area>{Area{0, 0, 40, 5}, Area{0, 20, 96, 15}}));
    EXPECT_EQ(last.facts().area, (Area{0, 0, 96, 35}));
    EXPECT_EQ(last.pixel(4, 40), 0);
}

TEST_F(Streams, KeepTheShutterClosedForDarkFrames)
{
    Camera& camera = open();
    Plan plan = planOf(1, 200ms);
    const double light = static_cast<double>(camera.grab(plan).sum());
    plan.type = FrameType::Dark;
    const Frame dark = camera.grab(plan);
    EXPECT_LT(static_cast<double>(dark.sum()), light);
    EXPECT_EQ(dark.facts().type, FrameType::Dark);
    plan.type = FrameType::Light;
    plan.kind = ReadoutKind::Binned;
    const double binned = static_cast<double>(camera.grab(plan).sum());
    plan.type = FrameType::Dark;
    EXPECT_LT(static_cast<double>(camera.grab(plan).sum()), binned);
    plan.type = FrameType::Light;
    EXPECT_NEAR(static_cast<double>(camera.grab(plan).sum()), binned, binned / 100);
    Plan bias;
    bias.type = FrameType::Bias;
    EXPECT_EQ(camera.grab(bias).facts().exposure, 0ms);
}

TEST_F(Streams, LeaveTheCameraSetAsItWas)
{
    Camera& camera = open();
    VXSetExposure(camera.handle(), 7);
    VXSetCCDArea(camera.handle(), 1, 2, 30, 20);
    Plan plan = planOf(1, 3ms);
    plan.area = Area{0, 0, 5, 6};
    EXPECT_EQ(camera.grab(plan).facts().exposure, 3ms);
    const Frame frame = camera.grab();
    EXPECT_EQ(frame.facts().exposure, 7ms);
    EXPECT_EQ(frame.facts().area, (Area{1, 2, 30, 20}));
    EXPECT_EQ(frame.columns(), 30);
}

// The program that takes a picture and ends is the usual one.
TEST_F(Streams, LeaveTheCameraSetAsItWasWhenItIsClosedAtOnce)
{
    start();
    for (int i = 0; i < 20; ++i) {
        Camera camera = Camera::open(place());
        EXPECT_EQ(camera.get("exposure"), Value(1s));
        EXPECT_EQ(camera.grab(planOf(1, 2ms)).facts().exposure, 2ms);
        EXPECT_LT(timeOf([&] { camera.close(); }), 500ms);
    }
    Camera camera = Camera::open(place());
    Stream stream = camera.stream(planOf(1, 1h));
    EXPECT_LT(timeOf([&] { camera.close(); }), 500ms);
    EXPECT_EQ(Camera::open(place()).get("exposure"), Value(1s));
}

TEST_F(Streams, ReadTheRegionsThatTheCameraHas)
{
    start();
    {
        Camera camera = Camera::open(place());
        camera.set("area-regions", "8,4,16,10/8,40,16,20");
    }
    Camera camera = Camera::open(place());
    const Frame frame = camera.grab(planOf(1));
    EXPECT_EQ(frame.facts().regions, (std::vector<Area>{{8, 4, 16, 10}, {8, 40, 16, 20}}));
    EXPECT_EQ(frame.columns(), 16);
    EXPECT_EQ(frame.rows(), 30);
    EXPECT_EQ(frame.sum(), sumOf(1, 1));
}

TEST_F(Streams, ReadTheRegionsOfThePlan)
{
    Camera& camera = open();
    Plan plan = planOf(1);
    plan.regions = {{10, 6, 5, 3}, {40, 50, 7, 4}};
    const Frame whole = camera.grab(planOf(1)); // of which nothing may be left beside them
    const Frame frame = camera.grab(plan);
    EXPECT_EQ(frame.facts().regions, plan.regions);
    EXPECT_EQ(frame.facts().area, (Area{10, 6, 37, 48}));
    EXPECT_EQ(frame.columns(), 7);
    EXPECT_EQ(frame.rows(), 7);
    EXPECT_GT(frame.pixel(0, 4), 0);
    EXPECT_EQ(frame.pixel(0, 5), 0);
    EXPECT_GT(frame.pixel(6, 6), 0);
    EXPECT_EQ(frame.sum(), sumOf(2, 1));
    EXPECT_EQ(camera.grab(planOf(1)).rows(), kRows) << "they hold for one readout";
    EXPECT_EQ(camera.get("area-regions").text(), "none");
    for (const Area& wrong : {Area{0, 0, 0, 3}, Area{90, 0, 7, 1}}) {
        plan.regions = {wrong};
        EXPECT_EQ(errorOf([&] { camera.grab(plan); }).kind(), ErrorKind::Usage);
    }
    plan.regions.assign(17, Area{0, 0, 1, 1});
    EXPECT_EQ(errorOf([&] { camera.grab(plan); }).kind(), ErrorKind::Usage);
}

// It answers before the command is quite over on this side.
TEST_F(Streams, RefusedByTheCameraEndAtOnce)
{
    Camera& camera = open();
    Plan plan;
    plan.kind = ReadoutKind::MaskBinned; // without a mask
    for (int i = 0; i < 50; ++i) {
        const auto start = Clock::now();
        const Error error = errorOf([&] { camera.grab(plan); });
        EXPECT_EQ(error.kind(), ErrorKind::Camera);
        EXPECT_THAT(error.what(), HasSubstr("no binning mask is set"));
        EXPECT_LT(Clock::now() - start, 1s);
    }
}

TEST_F(Streams, RefusePlansBeforeAnythingIsSent)
{
    Camera& camera = open();
    std::vector<Plan> plans(16);
    plans[0].frames = -1;
    plans[1].frames = 32768;
    plans[2].bits = 32;
    plans[3].exposure = 1500us;
    plans[4].exposure = -1ms;
    plans[5].area = Area{0, 0, kColumns + 1, 1};
    plans[6].area = Area{-1, 0, 1, 1};
    plans[7].area = Area{0, 0, 0, 1};
    plans[8].kind = ReadoutKind::Area;
    plans[8].binningX = 2;
    plans[9].kind = ReadoutKind::Binned;
    plans[9].bits = 8;
    plans[10].kind = ReadoutKind::Binned;
    plans[10].binningY = 0;
    plans[11].kind = ReadoutKind::Binned;
    plans[11].mode = 8;
    plans[12].buffers = -1;
    plans[13].timeout = 0ms;
    plans[14].binningX = 2; // and so binned
    plans[14].area = Area{0, 0, 1, 1};
    plans[15].binningY = 2;
    plans[15].bits = 8;
    const uint64_t sent = camera.statistics().messagesSent;
    for (size_t i = 0; i < plans.size(); ++i) {
        EXPECT_EQ(errorOf([&] { camera.stream(plans[i]); }).kind(), ErrorKind::Usage) << i;
    }
    EXPECT_EQ(camera.statistics().messagesSent, sent);
}

TEST_F(Streams, BinAsTheCameraIsSetToUnlessThePlanSaysOtherwise)
{
    Camera& camera = open();
    const auto kindOfFrame = [&](const Plan& plan) {
        const ReadoutKind kind = camera.kindOf(plan);
        const FrameFacts facts = camera.grab(plan).facts();
        EXPECT_EQ(facts.kind, kind);
        return facts.kind;
    };
    Plan plan = planOf(1), area = plan, bytes = plan, pixels = plan, bins = plan;
    area.area = Area{0, 0, 8, 4};
    bytes.bits = 8;
    pixels.kind = ReadoutKind::Area;
    bins.binningX = bins.binningY = 2;
    EXPECT_EQ(kindOfFrame(plan), ReadoutKind::Area);
    EXPECT_EQ(kindOfFrame(bins), ReadoutKind::Binned);
    EXPECT_EQ(kindOfFrame(plan), ReadoutKind::Area);

    camera.set("simple-binning", "2,4");
    camera.set("area-regions", "0,0,16,4/0,8,16,4");
    EXPECT_EQ(kindOfFrame(plan), ReadoutKind::Binned);
    const Frame frame = camera.grab(plan);
    EXPECT_EQ(frame.bits(), 32);
    EXPECT_EQ(frame.rows(), kRows / 2);
    EXPECT_EQ(frame.columns(), kColumns / 4);
    EXPECT_EQ(kindOfFrame(area), ReadoutKind::Area);
    EXPECT_EQ(kindOfFrame(bytes), ReadoutKind::Area);
    EXPECT_EQ(kindOfFrame(pixels), ReadoutKind::Area);
    EXPECT_EQ(camera.grab(bins).columns(), kColumns / 2);
    EXPECT_EQ(camera.grab(plan).columns(), kColumns / 4);

    camera.set("simple-binning", "1,1");
    EXPECT_EQ(kindOfFrame(plan), ReadoutKind::Area);
    camera.set("simple-binning", "1,2");
    EXPECT_EQ(kindOfFrame(plan), ReadoutKind::Binned);
}

TEST_F(Streams, RunOneAtATime)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 1h));
    EXPECT_EQ(errorOf([&] { camera.stream(planOf(1)); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(stream.end(), ReadoutEnd::Running);
}

TEST_F(Streams, TimeOutOfAWaitIsNotTheEnd)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 300ms));
    const Error error = errorOf([&] { stream.next(10ms); });
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.end(), ReadoutEnd::Running);
    EXPECT_TRUE(stream.next(kPatience).has_value());
    EXPECT_FALSE(stream.next(kPatience).has_value());
}

// ---- Ends -------------------------------------------------------------------------------------

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
        Stream stream = camera.stream(planOf(1, 2s));
        EXPECT_EQ(errorOf([&] { stream.next(100ms); }).kind(), ErrorKind::Timeout);
    }
    const auto start = Clock::now();
    const Frame frame = camera.grab(quick);
    EXPECT_GE(Clock::now() - start, 500ms);
    EXPECT_LT(Clock::now() - start, 1500ms);
    EXPECT_EQ(frame.facts().readout, 2u);
    EXPECT_EQ(frame.facts().exposure, 500ms);
    EXPECT_EQ(frame.rows(), 10);
    EXPECT_EQ(frame.sum(), sumOf(2, 1).value());
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
    EXPECT_LT(when - start, 2 * kPromptly);
    EXPECT_EQ(stream.end(), ReadoutEnd::LinkLost);
    EXPECT_FALSE(camera.waitForLink(10ms));
    auto waiting = std::async(std::launch::async,
                              [&] { return errorOf([&] { camera.waitForLink(kPatience); }); });
    camera.close();
    EXPECT_EQ(waiting.get().kind(), ErrorKind::Aborted);
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
    Plan plan = planOf(1, 400ms);
    plan.timeout = 300ms;
    Stream stream = camera.stream(plan);
    const auto start = Clock::now();
    const Error error = errorOf([&] { stream.next(kPatience); });
    const auto took = Clock::now() - start;
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.end(), ReadoutEnd::TimedOut);
    EXPECT_GE(took, 680ms) << "the exposure counts in full";
    EXPECT_LT(took, 700ms + kPromptly);
}

TEST_F(Streams, TakeNothingOfAnEarlierReadoutForTheirOwn)
{
    Camera& camera = open();
    EXPECT_TRUE(camera.grab(planOf(1)).complete());
    Plan plan = planOf(1, 600ms);
    plan.timeout = 200ms;
    EXPECT_TRUE(camera.grab(plan).complete()) << "an exposure is no silence";
    VXSetTriggerMode(camera.handle(), eExtTrigStart, 0, 0);
    const Error error = errorOf([&] { camera.grab(plan); });
    EXPECT_EQ(error.kind(), ErrorKind::Timeout);
    EXPECT_THAT(error.what(), HasSubstr("silent for 0.2 s while a trigger was waited for"));
    plan.timeout.reset();
    Stream stream = camera.stream(plan);
    EXPECT_EQ(errorOf([&] { stream.next(300ms); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(stream.progress().phase, Progress::Phase::Waiting);
}

TEST_F(Streams, SilenceWithinAFrameEndsThem)
{
    Camera& camera = open({"stall:readout=1,frame=2,packet=30,seconds=3"});
    Plan plan = planOf(3);
    plan.timeout = 300ms;
    Stream stream = camera.stream(plan);
    EXPECT_TRUE(stream.next(kPatience).has_value());
    const auto start = Clock::now();
    EXPECT_THAT(errorOf([&] { stream.next(kPatience); }).what(), HasSubstr("within a frame"));
    EXPECT_LT(Clock::now() - start, 300ms + kPromptly + 50ms);
    EXPECT_EQ(stream.end(), ReadoutEnd::TimedOut);
}

TEST_F(Streams, ImageIntervalsCountAsNoSilence)
{
    Camera& camera = open();
    VXSetImageInterval(camera.handle(), 600);
    Plan plan = planOf(3, 10ms);
    plan.timeout = 200ms;
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

// ---- Slow consumers ---------------------------------------------------------------------------

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
    EXPECT_LT(timeOf([&] { camera.close(); }), 1s) << "and closed";
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

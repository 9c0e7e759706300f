// Readouts, and the frames that they bring.
#include "kit_support.h"
#include "stream_support.h"
#include "vxcamiface.h"

#include <cstring>

using namespace vxcam;
using testing::HasSubstr;

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

// Where several make frames of the same size.
TEST_F(Streams, TellTheBinsThatWereAskedFor)
{
    Camera& camera = open();
    const std::pair<int, int> asked[] = {{15, 11}, {13, kRows / 2 + 1}, {kColumns, kRows}};
    for (const auto& [columns, rows] : asked) {
        Plan plan = planOf(1);
        plan.kind = ReadoutKind::Binned;
        plan.binningX = columns;
        plan.binningY = rows;
        const Frame binned = camera.grab(plan);
        EXPECT_EQ(binned.columns(), kColumns / columns);
        EXPECT_EQ(binned.facts().binningX, columns);
        EXPECT_EQ(binned.facts().binningY, rows);
    }
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
        EXPECT_LT(timeOf([&] { camera.close(); }), kPromptly);
    }
    Camera camera = Camera::open(place());
    Stream stream = camera.stream(planOf(1, 1h));
    EXPECT_LT(timeOf([&] { camera.close(); }), kPromptly);
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
        EXPECT_LT(Clock::now() - start, kPromptly);
    }
}

TEST_F(Streams, RefusePlansBeforeAnythingIsSent)
{
    Camera& camera = open();
    std::vector<Plan> plans(18);
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
    plans[16].mode = 1; // a light whose shutter stays closed
    plans[17].mode = 8;
    const uint64_t sent = camera.statistics().messagesSent;
    for (size_t i = 0; i < plans.size(); ++i) {
        EXPECT_EQ(errorOf([&] { camera.stream(plans[i]); }).kind(), ErrorKind::Usage) << i;
    }
    EXPECT_EQ(camera.statistics().messagesSent, sent);
}

TEST_F(Streams, TellWhatOfAPlanCannotBeAndWhatCan)
{
    Camera& camera = open();
    const auto textOf = [&](const auto& change) -> std::string {
        Plan plan;
        change(&plan);
        return errorOf([&] { camera.stream(plan); }).what();
    };
    EXPECT_THAT(textOf([](Plan* plan) { plan->frames = 40000; }),
                HasSubstr("frames 40000: give 0 to 32767"));
    EXPECT_THAT(textOf([](Plan* plan) { plan->bits = 12; }), HasSubstr("bits 12: give 8 or 16"));
    EXPECT_THAT(textOf([](Plan* plan) { plan->buffers = -1; }),
                HasSubstr("buffers -1: give 0 to 1024"));
    EXPECT_THAT(textOf([](Plan* plan) { plan->exposure = 1500us; }),
                HasSubstr("exposure 1500 us: the finest step is 1 ms"));
    EXPECT_THAT(textOf([](Plan* plan) {
                    plan->area = Area{1, 2, 3, 4000};
                }),
                HasSubstr("area 1,2,3,4000: no part of the sensor of "));
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

// Sequences at a temperature: cold before the first frame, warm behind the last, whatever happens
// to the camera meanwhile.
#include "grab_support.h"
#include "sequence_support.h"
#include "simulated_support.h"

#include <atomic>

using testing::HasSubstr;

TEST_F(SequenceVerb, CoolsBeforeItTakesAndExposesFlatsToTheirLevel)
{
    Plan(R"(sensor: [96, 64]
steps:
  - temperature: {to: 5, tolerance: 1, settle: 2s}
  - flats: {count: 2, level: {mean: 3000, tolerance: 0.1, most: 10min}}
)");
    msTarget = "sim";
    ASSERT_EQ(RunOnce({"--sim-time-scale", "200"}), 0) << msErrors;
    ASSERT_EQ(Frames().size(), 2u);
    for (const std::string& file : Frames()) {
        const tsContent content = ReadFits(file);
        EXPECT_NEAR(static_cast<double>(content.sum) / (96 * 64), 3000, 300);
        EXPECT_NEAR(std::stod(content.keys.at("CCD-TEMP")), 5, 1.5);
        EXPECT_THAT(content.keys.at("IMAGETYP"), HasSubstr("Flat"));
    }
    Plan("folder: dark\nretries: 0\n"
         "steps: [{flats: {count: 1, level: {mean: 60000, most: 10ms}}}]\n");
    EXPECT_EQ(RunOnce(), 4);
    EXPECT_THAT(msErrors, HasSubstr("the level 60000 is out of reach"));
}

TEST_F(SequenceVerb, CoolsThoughNothingComesBehindIt)
{
    Start();
    Plan("steps: [{temperature: {to: -50, timeout: 50ms}}]\n");
    EXPECT_EQ(RunOnce(), 3);
    EXPECT_THAT(msOutput, HasSubstr("not complete: "));
}

TEST_F(SequenceVerb, WaitsForACameraThatIsLostWhileItsSettingsAreMade)
{
    constexpr const char* lost = "close:id=0x84,message=1"; // in front of the gain
    Start({lost});
    Plan("steps: [{set: {gain: 3}}, {bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce({"--json"}), 0) << msErrors;
    EXPECT_EQ(mDocument["failures"].size(), 1u) << mDocument["failures"];
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_EQ(std::stod(CardOf(Frames().front(), "GAIN")), 3);
}

// Where it is too cold for the temperature until the camera has come back.
TEST_F(SequenceVerb, MakesTheSettingsAgainOfACameraThatRebootsBeforeItsTemperatureIsReached)
{
    std::atomic<bool> isWarm{false}, isOrdered{false};
    tsSimOptions options = Talkative({});
    options.timeScale = 20;
    options.ambient = 0;
    options.tunables = [&isWarm] {
        tsSimTunables tunables;
        tunables.heartbeatSeconds = 0.05;
        tunables.ambient = isWarm ? 20 : 0;
        return tunables;
    };
    options.trace = true;
    options.events = [&isOrdered](const tsSimEvent& event) {
        if (event.text.rfind("GetCoolParam", 0) == 0) isOrdered = true;
    };
    Start(options);
    Plan(R"(steps:
  - set: {gain: 3}
  - temperature: {to: 20, tolerance: 10, settle: 1s}
  - bias: {count: 1}
)");
    tcRun run(Words(), In(mFolder));
    EXPECT_TRUE(WaitUntil([&] { return isOrdered.load(); }, gnRunPatience));
    const tsSimStatistics before = mpCamera->Statistics();
    EXPECT_TRUE(WaitUntil([&] { return mpCamera->Statistics().heartbeats > before.heartbeats + 4; },
                          gnRunPatience));
    mpCamera->Inject(ParseSimFault("reboot:seconds=0.1"));
    EXPECT_TRUE(WaitUntil([&] { return mpCamera->Statistics().connections > before.connections; },
                          gnRunPatience));
    isWarm = true;
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    ASSERT_EQ(Frames().size(), 1u);
    EXPECT_EQ(std::stod(CardOf(Frames().front(), "GAIN")), 3);
}

// The third answer about it is the one to "off".
TEST_F(SequenceVerb, EndsTheWarmUpNotBeforeTheCameraHasTakenThatCoolingIsOff)
{
    std::atomic<int> orders{0};
    tsSimOptions options = Talkative({"close:id=0x61,message=3"});
    options.timeScale = 20;
    options.trace = true;
    options.events = [&orders](const tsSimEvent& event) {
        if (event.text.rfind("SetCooling", 0) == 0) ++orders;
    };
    Start(options);
    Plan(R"(steps:
  - temperature: {to: 17, tolerance: 0.5, settle: 0s}
  - warm-up: {to: 19, ramp: 1000}
)");
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_EQ(mpCamera->Statistics().faults, 1u);
    EXPECT_GE(orders, 4);
    tcRun asked({"get", msTarget, "cooling"}, In(mFolder));
    EXPECT_EQ(asked.Exit(), 0) << asked.Errors();
    EXPECT_THAT(asked.Output(), HasSubstr("off"));
}

TEST_F(SequenceVerb, WaitsForColdOnceOnly)
{
    Start();
    Plan("steps: [{temperature: {to: -50, timeout: 50ms}}, {bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce({"--json"}), 3);
    EXPECT_EQ(mDocument["failures"].size(), 1u) << mDocument["failures"];
}

TEST_F(SequenceVerb, WarmsUpThoughTheRunBeforeEndedInIt)
{
    Start();
    Plan(R"(steps:
  - temperature: {to: -50, wait: false}
  - bias: {count: 1}
  - warm-up: {to: 90, timeout: 50ms}
)");
    EXPECT_EQ(RunOnce(), 3);
    EXPECT_EQ(RunOnce(), 3);
    EXPECT_THAT(msOutput, HasSubstr("not complete: 1 of 1 frame taken, 1 of them"));
    EXPECT_EQ(mpCamera->Frames().size(), 1u);
}

TEST_F(SequenceVerb, CountsNoTimeForTheCoolingOfRunsBefore)
{
    Start();
    Plan(R"(steps:
  - temperature: {to: 20, tolerance: 100, settle: 1s}
  - bias: {count: 1}
  - run: 'test -e ready'
  - bias: {count: 1}
)");
    EXPECT_EQ(RunOnce(), 6);
    MakeFile(mFolder.Path("ready"), "");
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_THAT(msOutput, HasSubstr("2 of 2, 0 ms left\n"));
}

// vxcam cool: down, and up again.
#include "tcSimServer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::vector<std::string> gaSim = {"--sim-sensor=64x32", "--sim-time-scale=200"};

void ExpectFailure(std::vector<std::string> words, int code, const std::string& text)
{
    words.insert(words.begin(), "cool");
    words.insert(words.end(), gaSim.begin(), gaSim.end());
    tcRun run(words);
    EXPECT_EQ(run.Exit(), code);
    EXPECT_THAT(run.Errors(), HasSubstr(text));
    EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
}

} // namespace

TEST(Cool, EndsWhenTheSensorHasSettled)
{
    std::vector<std::string> words = {"cool", "sim", "--to", "5", "--ramp", "30/min", "--json"};
    words.insert(words.end(), gaSim.begin(), gaSim.end());
    tcRun run(words);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["phase"], "settled");
    EXPECT_EQ(document["target"], "simulated camera");
    EXPECT_EQ(document["target_c"], 5.0);
    EXPECT_NEAR(document["temperature_c"], 5.0, 0.5);
    EXPECT_GE(document["seconds"], 30.0 / 200) << "15 degrees at 30 a minute";
}

TEST(Cool, LeavesTheSensorColdAndWarmsItUp)
{
    tsSimOptions options;
    options.columns = options.rows = 64;
    options.timeScale = 200;
    options.heartbeatSeconds = 0.05;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun cold({"cool", target, "--to", "10", "--settle", "1ms"});
    EXPECT_EQ(cold.Exit(), 0) << cold.Errors();
    EXPECT_THAT(cold.Output(), StartsWith("settled: "));
    tcRun first({"get", target, "cooling", "target-temp"});
    EXPECT_EQ(first.Exit(), 0);
    EXPECT_EQ(first.Output(), "cooling=on\ntarget-temp=10C\n");
    tcRun warm({"cool", target, "--warm-up", "--to", "15"});
    EXPECT_EQ(warm.Exit(), 0) << warm.Errors();
    EXPECT_THAT(warm.Output(), StartsWith("warm: "));
    tcRun then({"get", target, "cooling"});
    EXPECT_EQ(then.Exit(), 0);
    EXPECT_EQ(then.Output(), "cooling=off\n");
}

TEST(Cool, CoolsFirstAndWarmsUpThen)
{
    for (const std::string scale : {"200", "1000"}) {
        tcRun run({"cool", "sim", "--sim-sensor=64x32", "--sim-time-scale=" + scale, "--to", "-5",
                   "--ramp", "100/min", "--hold", "100s", "--warm-up"});
        EXPECT_EQ(run.Exit(), 0) << run.Errors();
        EXPECT_THAT(run.Output(), StartsWith("settled: -"));
        EXPECT_THAT(run.Output(), HasSubstr("target -5.0 C\nwarm: "));
        EXPECT_THAT(run.Output(), HasSubstr("target 20.0 C\n"));
    }
}

TEST(Cool, ToldAsADocumentItEndsWarm)
{
    std::vector<std::string> words = {"cool",   "sim",  "--to",         "5", "--json",
                                      "--hold", "100s", "--warm-up-to", "15"};
    words.insert(words.end(), gaSim.begin(), gaSim.end());
    tcRun run(words);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["phase"], "warm");
    EXPECT_EQ(document["target_c"], 15.0);
    EXPECT_GE(document["temperature_c"], 14.8);
    EXPECT_GE(document["seconds"], 110.0 / 200) << "settled for 10 s, held for 100 s";
}

TEST(Cool, WarmsUpAlsoWhatCannotBeCooledSoFar)
{
    tcRun run(
        {"cool", "sim", "--sim-sensor=64x32", "--sim-time-scale=1000", "--to", "-80", "--warm-up"});
    EXPECT_EQ(run.Exit(), 3);
    EXPECT_THAT(run.Errors(), HasSubstr("out of reach: the sensor stays at -"));
    EXPECT_THAT(run.Output(), StartsWith("warm: "));
}

TEST(Cool, SaysWhatIsWrong)
{
    ExpectFailure({"sim"}, 1, "--to is missing");
    ExpectFailure({"sim", "--to", "5", "--ramp", "fast"}, 1, "ramp 'fast': write degrees a minute");
    ExpectFailure({"sim", "--to", "5", "--ramp", "2/h"}, 1, "ramp '2/h'");
    ExpectFailure({"sim", "--to", "5", "--hold", "1min"}, 1, "--hold goes with --to and --warm-up");
    ExpectFailure({"sim", "--to", "5", "--warm-up-to", "-1"}, 1,
                  "--warm-up-to -1.0 C: colder than --to 5.0 C");
    ExpectFailure({"sim", "--warm-up-to", "5"}, 1,
                  "--warm-up-to 5.0 C: the sensor is warmer, 20.0 C");
    ExpectFailure({"sim", "--to", "-300"}, 1, "-273 to 273");
    ExpectFailure({"sim", "--to", "-200"}, 4, "the camera reports error");
    ExpectFailure({"sim", "--to", "-20", "--ramp", "0.1", "--timeout", "100ms"}, 3,
                  "target -20.0 C after 100 ms");
}

TEST(Cool, CtrlCLeavesEverythingAsItIs)
{
    tsSimOptions options;
    options.columns = options.rows = 64;
    options.heartbeatSeconds = 0.05;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun run({"cool", target, "--to", "-20", "--ramp", "1/min", "--json"});
    // The opening asks twice; a setting, and what asks for it, follow.
    ASSERT_TRUE(WaitUntil([&] { return camera.Statistics().commands > 6; }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_THAT(run.Errors(), HasSubstr("interrupted"));
    EXPECT_EQ(run.Document()["error"]["exit_code"], 130);
    EXPECT_EQ(run.Document()["phase"], "ramping");
    tcRun then({"get", target, "cooling"});
    EXPECT_EQ(then.Exit(), 0);
    EXPECT_EQ(then.Output(), "cooling=on\n");
}

// Photon transfer with the simulated camera, whose gain and noise are known.
#include "simulated_support.h"
#include "tool_support.h"

#include <gmock/gmock.h>

#include <cmath>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// 6 electrons of read noise, an offset of 1000 counts and 16 bits: docs/simulator.md.
void ExpectSimulated(const nlohmann::json& document, double gain)
{
    EXPECT_NEAR(document["gain_e_per_adu"].get<double>(), gain, 0.03 * gain);
    EXPECT_LT(document["gain_uncertainty_e_per_adu"].get<double>(), 0.03 * gain);
    EXPECT_GT(document["gain_uncertainty_e_per_adu"].get<double>(), 0);
    EXPECT_NEAR(document["read_noise_e"].get<double>(), 6, 0.03 * 6);
    const double well = (65535 - 1000) * gain;
    ASSERT_TRUE(document["full_well_e"].is_number());
    EXPECT_NEAR(document["full_well_e"].get<double>(), well, 0.03 * well);
    EXPECT_EQ(document["full_well_limit"], "converter");
    EXPECT_NEAR(document["offset_adu"].get<double>(), 1000, 1);
}

} // namespace

TEST(Ptc, FindsGainNoiseAndFullWellOfTheSimulatedCamera)
{
    tcRun run({"ptc", "--sim-time-scale", "10000", "--sim-sensor", "400x300", "--json"});
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    ExpectSimulated(run.Document(), 1);
    EXPECT_EQ(run.Document()["pairs"].size(), 16u);
}

// A gain set of 3 is 4 counts for an electron.
TEST(Ptc, FindsTheGainThatIsSet)
{
    for (const int gain : {1, 3}) {
        tcSimServer camera(Lamp(400, 300, 100));
        const std::string target = TargetOf(camera);
        ASSERT_EQ(tcRun({"set", target, "gain=" + std::to_string(gain)}).Exit(), 0);
        tcRun run({"ptc", target, "--json"});
        ASSERT_EQ(run.Exit(), 0) << run.Errors();
        ExpectSimulated(run.Document(), 1.0 / (1 + gain));
    }
}

TEST(Ptc, PrintsATableAndWritesFiles)
{
    tcFolder folder;
    tcSimServer camera(Lamp(400, 300, 100));
    tcRun run({"ptc", TargetOf(camera), "--from", "50ms", "--to", "1s", "--pairs", "5", "--csv",
               "a.csv", "--plot", "a.png"},
              In(folder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(folder.Names(), ElementsAre("a.csv", "a.png"));
    const std::string output = run.Output();
    double gain = 0;
    ASSERT_NE(output.find("\ngain"), std::string::npos) << output;
    ASSERT_EQ(std::sscanf(output.c_str() + output.find("\ngain"), " gain %lf electrons/ADU", &gain),
              1);
    EXPECT_NEAR(gain, 1, 0.03);
    EXPECT_THAT(run.Output(), HasSubstr("full well   not reached"));
    std::istringstream table(FileText(folder.Path("a.csv")));
    std::string line;
    std::getline(table, line);
    EXPECT_EQ(line, "exposure_s,level_adu,signal_adu,variance_adu2,used,saturated,fitted");
    int rows = 0;
    for (double before = 0; std::getline(table, line); ++rows) {
        double exposure = 0, level = 0, signal = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf,%lf", &exposure, &level, &signal), 3) << line;
        EXPECT_GT(exposure, before);
        before = exposure;
        // The lamp and, at 20 degrees, the dark current.
        EXPECT_NEAR(signal, exposure * (gnLamp + 20), 0.01 * signal) << line;
    }
    EXPECT_EQ(rows, 5);
    EXPECT_THAT(FileText(folder.Path("a.png")), StartsWith("\x89PNG"));
}

TEST(Ptc, TellsOfLightThatItCannotUse)
{
    tcRun dark({"ptc", "--sim-sensor", "64x64", "--longest", "20ms", "--json"});
    EXPECT_EQ(dark.Exit(), 4);
    EXPECT_EQ(dark.Errors(), "vxcam: too dark, even for 20ms\n");
    EXPECT_EQ(dark.Document()["error"]["exit_code"], 4);
}

TEST(Ptc, ChecksWhatItIsToldBeforeTheCamera)
{
    tcFolder folder;
    MakeFile(folder.Path("there.csv"), "");
    const auto fails = [&](const std::vector<std::string>& more, int code, const char* why) {
        std::vector<std::string> words{"ptc", "127.0.0.1:1"};
        words.insert(words.end(), more.begin(), more.end());
        tcRun run(words, In(folder));
        EXPECT_EQ(run.Exit(), code) << why;
        EXPECT_THAT(run.Errors(), HasSubstr(why));
    };
    fails({"--from", "1s"}, 1, "--from and --to go together");
    fails({"--from", "2s", "--to", "1s"}, 1, "less than --to");
    fails({"--pairs", "3"}, 1, "--pairs");
    fails({"--plot", "a.fits"}, 1, "it would be a PNG");
    fails({"--csv", "a", "--plot", "a"}, 1, "would be written twice");
    fails({"--area", "1,2"}, 1, "area '1,2'");
    fails({"--nonsense"}, 1, "--nonsense");
    fails({"--csv", "there.csv"}, 5, "there.csv");
    fails({"--plot", "nowhere/a.png"}, 5, "nowhere/a.png");
    fails({}, 2, "127.0.0.1:1");
    tcRun beyond({"ptc", "--sim-sensor", "64x64", "--area", "60,0,8,8"});
    EXPECT_EQ(beyond.Exit(), 1);
    EXPECT_THAT(beyond.Errors(), HasSubstr("beyond the sensor"));
}

TEST(Ptc, FramesThatComeIncompleteEndIt)
{
    tcRun run({"ptc", "sim?sensor=64x64&scale=10000&fault=missing-packet:packet=20", "--json"});
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_THAT(run.Errors(), HasSubstr("a frame is incomplete: 1 of 64 packets are missing"));
}

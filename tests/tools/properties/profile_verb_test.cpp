// vxcam profile: the settings of a camera, kept in a file.
#include "tcSimServer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

const std::string gsSmall = "--sim-sensor=64x32";
const std::string gsHead = R"({"format": "vxcam profile", "version": 1, "settings": )";

} // namespace

TEST(ProfileVerb, SavesAndLoads)
{
    tcSimServer server({});
    const std::string target = "127.0.0.1:" + std::to_string(server.Start());
    tcFolder folder;
    const std::string file = folder.Path("night.json");
    EXPECT_EQ(tcRun({"set", target, "exposure=250ms", "gain=2", "target-temp=-20.3"}).Exit(), 0);
    tcRun save({"profile", "save", target, file});
    EXPECT_EQ(save.Exit(), 0) << save.Errors();
    EXPECT_THAT(save.Output(), testing::MatchesRegex(".*night.json: [0-9]+ settings of 127.*\n"));
    const auto document = nlohmann::json::parse(FileText(file));
    EXPECT_EQ(document["camera"], target);
    EXPECT_EQ(document["settings"]["exposure"], 250);
    EXPECT_EQ(tcRun({"set", target, "exposure=1s", "gain=3", "target-temp=5"}).Exit(), 0);
    tcRun load({"profile", "load", target, file});
    EXPECT_EQ(load.Exit(), 0) << load.Errors();
    EXPECT_THAT(load.Output(), HasSubstr("exposure=250ms\n"));
    tcRun get({"get", target, "exposure", "gain", "target-temp"});
    EXPECT_EQ(get.Exit(), 0);
    EXPECT_EQ(get.Output(), "exposure=250ms\ngain=2\ntarget-temp=-20.3C\n");
}

TEST(ProfileVerb, SaysWhatCouldNotBeRestored)
{
    tcFolder folder;
    MakeFile(folder.Path("night.json"), gsHead + R"({"gain": 9, "exposure": "2s", "fan": false}})");
    tcRun run({"profile", "load", "sim", folder.Path("night.json"), gsSmall});
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_THAT(run.Output(), HasSubstr("exposure=2s\n"));
    EXPECT_THAT(run.Output(), HasSubstr("fan=off (sent; the camera does not tell it)\n"));
    EXPECT_THAT(run.Output(), HasSubstr("gain: not restored, "));
    EXPECT_THAT(run.Errors(), HasSubstr("1 of 3 settings could not be restored"));
    EXPECT_EQ(Lines(run.Errors()), 1);
    tcRun json({"profile", "load", "sim", folder.Path("night.json"), gsSmall, "--json"});
    EXPECT_EQ(json.Exit(), 4);
    const nlohmann::json document = json.Document();
    EXPECT_EQ(document["error"]["exit_code"], 4);
    ASSERT_EQ(document["outcomes"].size(), 3u);
    EXPECT_EQ(document["outcomes"][0]["outcome"], "confirmed");
    EXPECT_EQ(document["outcomes"][0]["value"], 2000);
    EXPECT_EQ(document["outcomes"][2]["outcome"], "refused");
}

TEST(ProfileVerb, LooksAtTheFileBeforeTheCamera)
{
    tcFolder folder;
    MakeFile(folder.Path("mine"), "mine");
    tcActor camera;
    tcRun save({"profile", "save", camera.Target(), folder.Path("mine")});
    EXPECT_EQ(save.Exit(), 5);
    EXPECT_THAT(save.Errors(), HasSubstr("exists already"));
    tcRun load({"profile", "load", camera.Target(), folder.Path("mine")});
    EXPECT_EQ(load.Exit(), 1);
    EXPECT_THAT(load.Errors(), HasSubstr("profile: it is no JSON object"));
    tcRun missing({"profile", "load", camera.Target(), folder.Path("other")});
    EXPECT_EQ(missing.Exit(), 5);
    EXPECT_THAT(missing.Errors(), HasSubstr("No such file"));
    EXPECT_FALSE(camera.Saw(0x34));
    EXPECT_EQ(FileText(folder.Path("mine")), "mine");
    tcRun forced({"profile", "save", "sim", folder.Path("mine"), "--force", gsSmall});
    EXPECT_EQ(forced.Exit(), 0) << forced.Errors();
    tcRun again({"profile", "load", "sim", folder.Path("mine"), "-q", gsSmall});
    EXPECT_EQ(again.Exit(), 0) << again.Errors();
    EXPECT_EQ(again.Output(), "");
}

TEST(ProfileVerb, NeedsAnActionAndAFile)
{
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"profile"}, {"profile", "save"}, {"profile", "load", "sim"}}) {
        tcRun run(words);
        EXPECT_EQ(run.Exit(), 1);
        EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
    }
}

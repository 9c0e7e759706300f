#include "property_samples.h"
#include "tcSimServer.h"
#include "tool_support.h"

#include <vxcamkit/property.h>

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string gsSmall = "--sim-sensor=64x32";

void ExpectFailure(const std::vector<std::string>& arguments, int code, const std::string& text)
{
    tcRun run(arguments);
    EXPECT_EQ(run.Exit(), code);
    EXPECT_THAT(run.Errors(), StartsWith("vxcam: "));
    EXPECT_THAT(run.Errors(), HasSubstr(text));
    EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
}

std::string CameraError(const std::string& text)
{
    return MessageBytes(0x75, "\3\x2A" + text + '\0');
}

} // namespace

TEST(GetSet, SetsAndReadsInOneCall)
{
    tcRun run({"set", "sim", "exposure=250ms", "gain=2", "target-temp=-20", "get", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_THAT(run.Output(), StartsWith("exposure=250ms\ngain=2\ntarget-temp=-20C\n"));
    EXPECT_THAT(run.Output(), HasSubstr("\nexposure=250ms\nexposure-ex=250\n")); // of the get
    EXPECT_THAT(run.Output(), HasSubstr("\ntarget-temp=-20C\nccd-temp=20C\n"));
}

TEST(GetSet, KeepsTheOrderOfWords)
{
    tcRun run({"get", "sim", "gain", "set", "gain=3", "get", "gain", "register:0x10", "set",
               "register:16=5", "gain=4", "get", "gain", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "gain=0\ngain=3\ngain=3\nregister:0x10=0x00000000\n"
                            "register:16=0x00000005\ngain=4\ngain=4\n");
}

TEST(GetSet, DocumentHoldsValuesAndSteps)
{
    tcRun run(
        {"set", "sim", "exposure=250ms", "fan=off", "get", "mirroring", "area", "--json", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["target"], "simulated camera");
    EXPECT_EQ(document["values"]["exposure"], 250);
    EXPECT_EQ(document["values"]["area"], nullptr);
    EXPECT_EQ(document["values"]["mirroring"]["horizontal"], false);
    const nlohmann::json& steps = document["steps"];
    ASSERT_EQ(steps.size(), 4u);
    EXPECT_EQ(steps[0], nlohmann::json({{"action", "set"},
                                        {"name", "exposure"},
                                        {"asked", 250},
                                        {"value", 250},
                                        {"unit", "ms"},
                                        {"confirmed", true}}));
    EXPECT_EQ(steps[1]["confirmed"], false);
    EXPECT_EQ(steps[2]["action"], "get");
}

TEST(GetSet, WithoutNamesEverythingThatHasOneValueIsRead)
{
    tcRun run({"get", "sim", "--json", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    const nlohmann::json values = run.Document()["values"];
    EXPECT_GE(values.size(), 25u);
    EXPECT_TRUE(values.contains("timing-data"));
    EXPECT_FALSE(values.contains("fan"));      // cannot be read
    EXPECT_FALSE(values.contains("bin-mask")); // takes long
}

TEST(GetSet, SaysWhenTheCameraTellsAnotherValue)
{
    tcActor camera({{0x4E, MessageBytes(0x7B, LittleEndian(static_cast<uint32_t>(-150), 4))}});
    tcRun run({"set", camera.Target(), "target-temp=-20"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "target-temp=-15C (asked for -20C)\n");
}

TEST(GetSet, SaysWhenASettingCannotBeReadBack)
{
    tcRun run({"set", "sim", "fan=off", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "fan=off (sent; the camera does not tell it)\n");
}

TEST(GetSet, SettingThatTheCameraRefusesIsACameraError)
{
    ExpectFailure({"set", "sim", "gain=2", "gain=9", gsSmall}, 4,
                  "the camera reports error 3-42: SetGain refused: gain 9 is above 7");
    tcActor camera({{0x48, CameraError("no fan")}});
    ExpectFailure({"set", camera.Target(), "fan=on"}, 4, "the camera reports error 3-42: no fan");
}

TEST(GetSet, FailureKeepsWhatWasDoneBefore)
{
    tcRun run({"set", "sim", "gain=2", "gain=9", "exposure=1s", "--json", gsSmall});
    EXPECT_EQ(run.Exit(), 4);
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["values"], nlohmann::json({{"gain", 2}}));
    EXPECT_EQ(document["error"]["exit_code"], 4);
    EXPECT_THAT(document["error"]["text"], HasSubstr("gain 9 is above 7"));
}

TEST(GetSet, MistakesAreFoundBeforeTheCameraIsAskedFor)
{
    tcActor camera;
    const std::string target = camera.Target();
    ExpectFailure({"set", target, "gain=2", "gian=2"}, 1, "unknown property 'gian', did you mean");
    ExpectFailure({"get", target, "gain", "gian"}, 1, "unknown property 'gian'");
    ExpectFailure({"set", target, "gain=x"}, 1, "gain 'x': write a whole number");
    ExpectFailure({"set", target, "target-temp=-300"}, 1, "out of range, it is -273 to 273 C");
    ExpectFailure({"set", target, "exposure=5days"}, 1, "exposure: time '5days'");
    ExpectFailure({"set", target}, 1, "nothing to set");
    ExpectFailure({"set", target, "gain=1", "set"}, 1, "nothing to set");
    ExpectFailure({"set", target, "gain"}, 1, "'gain': write gain=GAIN");
    ExpectFailure({"get", target, "gain=1"}, 1, "write set in front");
    ExpectFailure({"set", target, "ccd-temp=1"}, 1, "can only be read");
    ExpectFailure({"get", target, "fan"}, 1, "can only be set");
    ExpectFailure({"get", target, "gain@file"}, 1, "only blocks of bytes go to a file");
    ExpectFailure({"set", "gain=1"}, 1, "target 'gain=1'");
    EXPECT_FALSE(camera.Saw(0x34));
}

TEST(GetSet, ValuesThatDoNotFitTheSensorAreRefusedBeforeAnyIsSent)
{
    tcActor camera; // 8 x 4
    const std::string target = camera.Target();
    ExpectFailure({"set", target, "gain=2", "area=1,0,8,4"}, 1,
                  "area: reaches beyond the sensor of 8 x 4 pixels");
    EXPECT_FALSE(camera.Saw(0x2A));
    ExpectFailure({"set", "sim", "area-regions=0,0,1,1/0,30,1,3", gsSmall}, 1, "beyond the sensor");
    ExpectFailure({"set", "sim", "bin-mask=00", gsSmall}, 1, "bin-mask: 1 bytes, the sensor has");
    ExpectFailure({"set", "sim", "bin-table:0=0001020304", "--sim-sensor=64x4"}, 1,
                  "bin-table:0: 5 bytes, the sensor has 4 rows");
    ExpectFailure({"set", "sim", "hor-bin-table:0=0001020304", "--sim-sensor=4x64"}, 1,
                  "the sensor has 4 columns");
}

TEST(GetSet, BlocksOfBytesGoToFilesAndComeFromThem)
{
    tcFolder folder;
    std::string timing(4356, 'x');
    MakeFile(folder.Path("in"), timing);
    tcRun run({"set", "sim", "timing-data=@" + folder.Path("in"), "get",
               "timing-data@" + folder.Path("out"), gsSmall});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Output(), HasSubstr("\ntiming-data: 0x78"));
    EXPECT_THAT(run.Output(), HasSubstr("... (4356 bytes) in " + folder.Path("out")));
    EXPECT_EQ(FileText(folder.Path("out")), timing);
}

TEST(GetSet, FilesThatExistAreKept)
{
    tcFolder folder;
    MakeFile(folder.Path("mine"), "mine");
    tcActor camera;
    const std::string word = "timing-data@" + folder.Path("mine");
    ExpectFailure({"get", camera.Target(), word}, 5, "exists already");
    EXPECT_FALSE(camera.Saw(0x34));
    EXPECT_EQ(FileText(folder.Path("mine")), "mine");
    tcRun forced({"get", "sim", word, "--force", gsSmall});
    EXPECT_EQ(forced.Exit(), 0);
    EXPECT_EQ(FileText(folder.Path("mine")).size(), 4356u);
}

TEST(GetSet, HelpListsEveryProperty)
{
    for (const char* verb : {"get", "set"}) {
        tcRun run({verb, "--help"});
        EXPECT_EQ(run.Exit(), 0);
        EXPECT_THAT(run.Output(), HasSubstr("\n  exposure              TIME\n"));
        EXPECT_THAT(run.Output(), HasSubstr("\n  register:ADDRESS      VALUE\n"));
        EXPECT_THAT(run.Output(), HasSubstr("-273 to 273 C"));
    }
}

TEST(GetSet, QuietPrintsNothing)
{
    tcRun run({"set", "sim", "gain=1", "get", "-q", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output() + run.Errors(), "");
}

namespace {

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The lines of `get --for-set`, behind these words.
std::vector<std::string> ForSet(const std::string& target, std::vector<std::string> words)
{
    words.insert(words.begin(), {"get", target, "--for-set"});
    tcRun run(words);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    return LinesOf(run.Output());
}

void Set(const std::string& target, std::vector<std::string> words)
{
    words.insert(words.begin(), {"set", target});
    tcRun run(words);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
}

// A simulated camera of 64 x 32 pixels for several runs.
class tcCamera
{
public:
    tcCamera() : mServer(Options()), mnPort(mServer.Start()) {}
    std::string Target() const { return "127.0.0.1:" + std::to_string(mnPort); }

private:
    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.columns = 64;
        options.rows = 32;
        return options;
    }
    tcSimServer mServer;
    uint16_t mnPort;
};

} // namespace

TEST(GetSet, WhatIsPrintedOfWritablePropertiesCanBeHandedToSet)
{
    tcCamera camera;
    tcRun get({"get", camera.Target()});
    EXPECT_EQ(get.Exit(), 0) << get.Errors();
    std::vector<std::string> words = {"set", camera.Target()};
    for (const std::string& line : LinesOf(get.Output())) {
        const vxcam::PropertyName name = vxcam::findProperty(line.substr(0, line.find('=')));
        if (name.property->isWritable()) words.push_back(line);
    }
    EXPECT_GT(words.size(), 15u);
    tcRun set(words);
    EXPECT_EQ(set.Exit(), 0) << set.Errors();
    tcRun again({"get", camera.Target()});
    EXPECT_EQ(again.Exit(), 0);
    EXPECT_EQ(again.Output(), get.Output());
}

TEST(GetSet, LongBlocksAreShortOnATerminalButNotWhereTheyAreAskedFor)
{
    const auto shownOf = [](const std::string& words) {
        tcRun::tsHow how;
        how.program = "script"; // which has a terminal for it
        const std::string command = std::string(VXCAM_PROGRAM) + " get sim " + gsSmall + words;
        tcRun run({"--quiet", "--return", "--command", command, "/dev/null"}, how);
        EXPECT_EQ(run.Exit(), 0) << run.Errors();
        return run.Output();
    };
    const std::string all = shownOf("");
    EXPECT_THAT(all, HasSubstr("timing-data: 0x00"));
    EXPECT_THAT(all, HasSubstr("... (4356 bytes)\r\n"));
    EXPECT_THAT(all, HasSubstr("exposure=1s\r\n"));
    for (const char* words : {" timing-data", " --for-set"}) {
        EXPECT_THAT(shownOf(words), HasSubstr("timing-data=0x" + std::string(4356 * 2, '0')));
    }
}

// Each property that can be read and set, with a value that is not the one it has from the start.
TEST(GetSet, WhatIsPrintedForSetCanBeHandedToSet)
{
    tcCamera camera;
    for (const Sample& sample : allSamples()) {
        const vxcam::PropertyName named = vxcam::findProperty(sample.name);
        if (!named.property->isReadable()) continue;
        Set(camera.Target(), {sample.name + "=" + sample.first});
        const bool isRemembered = sample.name != "area"; // which is what one run has set
        const std::vector<std::string> lines = ForSet(camera.Target(), {sample.name});
        ASSERT_EQ(lines.size(), isRemembered ? 1u : 0u) << sample.name;
        if (!isRemembered) continue;
        Set(camera.Target(), {sample.name + "=" + sample.second});
        Set(camera.Target(), {lines[0]});
        EXPECT_EQ(ForSet(camera.Target(), {sample.name}), lines);
    }
}

TEST(GetSet, AllThatIsPrintedForSetMakesAnotherCameraTheSame)
{
    tcCamera one, other;
    Set(one.Target(),
        {"exposure=250ms", "gain=2", "target-temp=-20.3", "trigger-mode=frame,3,-4",
         "binning-sequence=1,2/3,4", "area-regions=0,0,8,4/0,8,8,4", "timing-data=0102030405"});
    const std::vector<std::string> lines = ForSet(one.Target(), {});
    EXPECT_THAT(lines, testing::Contains("target-temp=-20.3C"));
    EXPECT_THAT(lines, testing::Contains("area-regions=0,0,8,4/0,8,8,4"));
    for (const std::string& line : lines) {
        for (const char* name : {"area=", "ccd-temp=", "hardware-info=", "trigger=", "gpio="}) {
            EXPECT_NE(line.rfind(name, 0), 0u) << line;
        }
    }
    EXPECT_NE(ForSet(other.Target(), {}), lines);
    Set(other.Target(), lines);
    EXPECT_EQ(ForSet(other.Target(), {}), lines);
}

TEST(GetSet, ForSetLeavesOutWhatCannotBeSet)
{
    EXPECT_TRUE(ForSet("sim", {"ccd-temp", "gpio", gsSmall}).empty());
    tcRun run({"get", "sim", "gain", "ccd-temp", "--for-set", "--json", gsSmall});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Document()["values"], nlohmann::json({{"gain", 0}}));
    tcActor camera({{0x5F, MessageBytes(0x87, words({9, 0, 0}))}}); // a mode that nobody knows
    EXPECT_TRUE(ForSet(camera.Target(), {"trigger-mode"}).empty());
}

TEST(GetSet, TextsOfACameraCannotWriteOnTheTerminal)
{
    tcActor camera({{0x14, MessageBytes(0x8D, words({7, 0}) + "a\x1b[2J\nb\\")}});
    tcRun run({"get", camera.Target(), "parameter-text:7"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "parameter-text:7=a\\x1b[2J\\nb\\\\\n");
    tcRun json({"get", camera.Target(), "parameter-text:7", "--json"});
    EXPECT_EQ(json.Exit(), 0);
    EXPECT_EQ(json.Document()["values"]["parameter-text:7"], "a\x1b[2J\nb\\");
    ExpectFailure({"set", camera.Target(), "parameter-text:7=C:\\temp\\x"}, 1,
                  "a backslash is written \\\\");
}

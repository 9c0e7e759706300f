// Recordings of the wire, made and read by the program.
#include "shell.h"
#include "tool_support.h"
#include "wire_support.h"

#include <gmock/gmock.h>

#include <unistd.h>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int64_t gnUtc = 1'700'000'000'000'000'000; // 2023-11-14T22:13:20
constexpr int64_t gnSteady = 1'000'000'000;

// The camera is opened, is told an exposure, answers, and sends a heartbeat a second later; then
// three bytes of nothing, and the connection is lost.
std::string Recording()
{
    const std::string first = wireRecord(1, gnSteady, R"({"target":"sim"})") +
                              wireRecord(3, gnSteady + 1000, wireMessage(0x20, low(500, 4), 7)) +
                              wireRecord(2, gnSteady + 2000, wireMessage(0x60, low(500, 4), 8));
    const std::string second =
        wireRecord(2, gnSteady + 1'000'000'000,
                   wireMessage(0x69, low(0, 2) + low(250, 2) + low(200, 2), 9)) +
        wireRecord(2, gnSteady + 1'000'001'000, "abc" + wireMessage(0xC1, "\x01\x7f", 10)) +
        wireRecord(4, gnSteady + 2'000'000'000, "");
    return wireHead() + wireBlock(0, gnUtc, gnSteady, first, 3) +
           wireBlock(1, gnUtc, gnSteady, second, 3) + wireEnd(2);
}

class Decoding : public testing::Test
{
protected:
    std::string Output(std::vector<std::string> arguments, int exit = 0)
    {
        arguments.insert(arguments.begin(), {"decode", msFile});
        tcRun run(arguments);
        EXPECT_EQ(run.Exit(), exit) << run.Errors();
        msErrors = run.Errors();
        return run.Output();
    }
    void SetUp() override { MakeFile(msFile, Recording()); }

    tcFolder mFolder;
    const std::string msFile = mFolder.Path("run.vxw");
    std::string msErrors;
};

const std::string gsDay = "2023-11-14T22:13:";

} // namespace

TEST_F(Decoding, PrintsALineForEachThing)
{
    EXPECT_EQ(Output({}), gsDay + "20.000000Z = opened {\"target\":\"sim\"}\n" + gsDay +
                              "20.000001Z > SetExposure 0x20 #7 exposure_ms=500\n" + gsDay +
                              "20.000002Z < Exposure time 0x60 #8 exposure_ms=500\n" + gsDay +
                              "21.000000Z < Heartbeat 0x69 #9 board_temperature=250 "
                              "ccd_temperature=200\n" +
                              gsDay + "21.000001Z < 3 bytes that belong to no message 616263\n" +
                              gsDay + "21.000001Z < user-defined 0xc1 #10 2 bytes 017f\n" + gsDay +
                              "22.000000Z = connection lost\n");
    EXPECT_EQ(msErrors, "");
}

// As "| head" does, or a pager that is left.
TEST_F(Decoding, EndsQuietlyWhenNobodyReadsAnyMore)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    for (const char* const options : {"", "--json"}) {
        int status = -1;
        EXPECT_EQ(::Output(VXCAM_PROGRAM " decode " + msFile + " " + options + " 2>&1 >&" +
                               std::to_string(ends[1]),
                           &status),
                  "");
        EXPECT_EQ(status, 0);
    }
    ::close(ends[1]);
}

TEST_F(Decoding, PrintsAnObjectForEachThing)
{
    std::istringstream lines(Output({"--json", "--payload"}));
    std::vector<nlohmann::json> objects;
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(objects.size(), 8u);
    EXPECT_EQ(objects[0]["about"]["target"], "sim");
    const nlohmann::json sent = {{"time", "2023-11-14T22:13:20.000001000Z"},
                                 {"t", 1e-6},
                                 {"event", "message"},
                                 {"camera", 0},
                                 {"direction", "sent"},
                                 {"name", "SetExposure"},
                                 {"id", 0x20},
                                 {"number", 7},
                                 {"length", 4},
                                 {"fields", {{"exposure_ms", 500}}},
                                 {"payload", "f4010000"}};
    EXPECT_EQ(objects[1], sent);
    EXPECT_EQ(objects[4]["event"], "stray");
    EXPECT_EQ(objects[4]["payload"], "616263");
    EXPECT_EQ(objects[6]["event"], "lost");
    EXPECT_EQ(objects[7]["whole"], true);
    EXPECT_EQ(objects[7]["messages"], 4);
    EXPECT_EQ(objects[7]["blocks"], 3);
}

TEST_F(Decoding, ChoosesByDirectionNameAndTime)
{
    EXPECT_THAT(Output({"--direction", "sent", "--name", "SetExposure"}), HasSubstr("> SetExp"));
    EXPECT_EQ(Lines(Output({"--direction", "sent"})), 3) << "with what is no message";
    EXPECT_EQ(Lines(Output({"--name", "exposure-time", "--name", "0xc1"})), 2);
    EXPECT_EQ(Lines(Output({"--without", "heartbeat"})), 6);
    EXPECT_EQ(Lines(Output({"--from", "500ms", "--to", "1.5s"})), 3);
    EXPECT_EQ(Output({"--name", "pixels"}), "");
    EXPECT_EQ(Output({"--name", "nonsense"}, 1), "");
    EXPECT_THAT(msErrors, HasSubstr("no message is called 'nonsense'"));
    EXPECT_EQ(Output({"--name", "0x1000000c1"}, 1), "") << "more than an id can be";
    EXPECT_THAT(msErrors, HasSubstr("no message is called '0x1000000c1'"));
}

TEST_F(Decoding, TellsWhatIsWhollyThereOfADamagedFile)
{
    MakeFile(msFile, Recording().substr(0, Recording().size() - 41));
    EXPECT_EQ(Lines(Output({}, 4)), 3);
    EXPECT_THAT(msErrors, HasSubstr("run.vxw: 1 block is whole; "));
    EXPECT_THAT(msErrors, EndsWith("are no whole block; it was not ended\n"));
    const std::string last = Output({"--json", "--name", "Heartbeat"}, 4);
    EXPECT_EQ(nlohmann::json::parse(last)["whole"], false);
    EXPECT_EQ(nlohmann::json::parse(last)["blocks"], 1);
}

TEST_F(Decoding, TellsWhereBlocksAreMissing)
{
    const std::string cut = wireRecord(2, gnSteady, wireMessage(0x60, low(500, 4)).substr(0, 14));
    const std::string heartbeat =
        wireRecord(2, gnSteady, wireMessage(0x69, low(0, 2) + low(250, 2) + low(200, 2), 9));
    MakeFile(msFile, wireHead() + wireBlock(0, gnUtc, gnSteady, cut, 1) +
                         wireBlock(2, gnUtc, gnSteady, heartbeat, 1) + wireEnd(3));
    const std::string time = gsDay + "20.000000Z ";
    EXPECT_EQ(Output({}, 4),
              time + "< 14 bytes that belong to no message 50fa04000000000003600000f401\n" + time +
                  "= blocks of the recording are missing here\n" + time +
                  "< Heartbeat 0x69 #9 board_temperature=250 ccd_temperature=200\n");
    std::istringstream lines(Output({"--json"}, 4));
    std::vector<std::string> events;
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line)["event"]);
    }
    EXPECT_THAT(events, testing::ElementsAre("stray", "gap", "message", "end"));
}

TEST_F(Decoding, TellsMessagesThatAreDroppedForTheirVersion)
{
    std::string answer = wireMessage(0x60, low(500, 4), 7);
    answer[8] = 2; // the version
    MakeFile(msFile, wireHead() +
                         wireBlock(0, gnUtc, gnSteady, wireRecord(2, gnSteady, answer), 1) +
                         wireEnd(1));
    EXPECT_EQ(Output({}), gsDay + "20.000000Z < Exposure time 0x60 #7 (dropped: of version 2) "
                                  "exposure_ms=500\n");
    std::istringstream lines(Output({"--json"}));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(nlohmann::json::parse(line)["version"], 2);
}

TEST_F(Decoding, RefusesWhatItCannotRead)
{
    MakeFile(msFile, "SIMPLE  = T");
    EXPECT_EQ(Output({}, 5), "");
    EXPECT_THAT(msErrors, HasSubstr("is no recording of the wire"));
    MakeFile(msFile, wireHead(2));
    EXPECT_EQ(Output({}, 5), "");
    EXPECT_THAT(msErrors, HasSubstr("is of version 2"));
    std::filesystem::remove(msFile);
    EXPECT_EQ(Output({}, 5), "");
    EXPECT_THAT(msErrors, HasSubstr("No such file"));
}

TEST(Capturing, RecordsWhatAVerbDoesAndEndsAsItDoes)
{
    tcFolder folder;
    const tcActor camera;
    const std::string file = folder.Path("run.vxw");
    tcRun run({"capture", camera.Target(), "-o", file, "get", "exposure"});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(run.Output(), "exposure=5ms\n");
    tcRun decode({"decode", file});
    EXPECT_EQ(decode.Exit(), 0) << decode.Errors();
    EXPECT_THAT(decode.Output(), HasSubstr("> EnableNoOps 0x5d #0 ")) << "the first message";
    EXPECT_THAT(decode.Output(), HasSubstr("< Hardware info 0x64 #0 rows=4 columns=8\n"));
    EXPECT_THAT(decode.Output(), HasSubstr("> GetExposureTime 0x30 "));
    EXPECT_THAT(decode.Output(), HasSubstr("< Exposure time 0x60 #0 exposure_ms=5\n"));

    tcRun failing({"capture", camera.Target(), "-o", file, "--force", "get", "nonsense"});
    EXPECT_EQ(failing.Exit(), 1);
    EXPECT_THAT(failing.Errors(), HasSubstr("nonsense"));
    EXPECT_EQ(Lines(failing.Errors()), 1);
}

TEST(Capturing, TakesVerbsWithActionsAndOptionsOfTheirOwn)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw");
    tcRun saved({"capture", "sim", "-o", file, "profile", "save", folder.Path("p.json")});
    EXPECT_EQ(saved.Exit(), 0) << saved.Errors();
    EXPECT_TRUE(std::filesystem::exists(folder.Path("p.json")));
    tcRun grabbed({"capture", "sim", "--force", "-o", file, "grab", "--sim-sensor", "16x8", "-e",
                   "1ms", "-o", folder.Path("a.fits")});
    EXPECT_EQ(grabbed.Exit(), 0) << grabbed.Errors();
    tcRun decode({"decode", file, "--name", "pixels"});
    EXPECT_EQ(decode.Exit(), 0);
    EXPECT_EQ(Lines(decode.Output()), 8) << "a packet for each row";
}

TEST(Capturing, TakesPlans)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw"), plan = folder.Path("night.yaml");
    MakeFile(plan, "steps: [{bias: {count: 1}}]\n");
    tcRun run({"capture", "sim?sensor=16x8", "-o", file, "sequence", plan, "-o", folder.Path("")});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    tcRun decode({"decode", file, "--name", "pixels"});
    EXPECT_EQ(decode.Exit(), 0) << decode.Errors();
    EXPECT_EQ(Lines(decode.Output()), 8) << "a packet for each row";
    tcRun none({"capture", "sim", "-o", file, "--force", "sequence"});
    EXPECT_EQ(none.Exit(), 1);
    EXPECT_THAT(none.Errors(), HasSubstr("FILE"));
}

TEST(Capturing, ListensUntilItsTimeIsOverOrASignal)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw");
    tcRun timed({"capture", "sim", "-o", file, "--for", "100ms"});
    EXPECT_EQ(timed.Exit(), 0) << timed.Errors();
    EXPECT_THAT(timed.Output(), HasSubstr("run.vxw: "));
    const std::string second = folder.Path("second.vxw");
    tcRun run({"capture", "sim", "-o", second});
    EXPECT_TRUE(WaitUntil([&] { // it has been opened when heartbeats are told
        const std::string text = FileText(second), id("\3\x69\0\0", 4);
        const size_t first = text.find(id);
        return first != std::string::npos && text.find(id, first + 1) != std::string::npos;
    }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    tcRun decode({"decode", second, "-q"});
    EXPECT_EQ(decode.Exit(), 0) << decode.Errors();
}

TEST(Capturing, RefusesWhatCannotBeBeforeTheCameraIsOpened)
{
    tcFolder folder;
    MakeFile(folder.Path("mine"), "mine");
    for (const auto& [file, code] : std::vector<std::pair<std::string, int>>{
             {"/dev/full", 5}, {"/nowhere/run.vxw", 5}, {folder.Path("mine"), 5}}) {
        tcRun run({"capture", "127.0.0.1:1", "-o", file, "get", "exposure"});
        EXPECT_EQ(run.Exit(), code) << file;
        EXPECT_THAT(run.Errors(), StartsWith("vxcam: " + file + ": "));
    }
    EXPECT_EQ(FileText(folder.Path("mine")), "mine");
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"list"}, {"nonsense"}, {"--nonsense"}, {"decode", "x"}, {"capture"}}) {
        std::vector<std::string> arguments{"capture", "sim", "-o", folder.Path("run.vxw")};
        arguments.insert(arguments.end(), words.begin(), words.end());
        tcRun run(arguments);
        EXPECT_EQ(run.Exit(), 1) << words[0];
        EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
    }
    EXPECT_FALSE(std::filesystem::exists(folder.Path("run.vxw")));
}

TEST(Capturing, OfAVerbThatIsCalledWronglyMakesAndReplacesNoFile)
{
    tcFolder folder;
    MakeFile(folder.Path("mine"), "mine");
    for (const auto& verb : std::vector<std::vector<std::string>>{
             {"get", "nonsense"}, {"grab", "--frames", "-1"}, {"grab", "--area", "1,1"}}) {
        for (const char* file : {"mine", "run.vxw"}) {
            std::vector<std::string> arguments{"capture", "sim", "--force", "-o",
                                               folder.Path(file)};
            arguments.insert(arguments.end(), verb.begin(), verb.end());
            tcRun run(arguments);
            EXPECT_EQ(run.Exit(), 1) << verb.back();
        }
    }
    EXPECT_EQ(FileText(folder.Path("mine")), "mine");
    EXPECT_FALSE(std::filesystem::exists(folder.Path("run.vxw")));
}

// A limit for files stands in for a full disk.
TEST(Capturing, OfAFullDiskEndsWithTheVerbAndACodeOfItsOwn)
{
    tcFolder folder;
    tcRun::tsHow how;
    how.fileLimit = 100000;
    tcRun run({"capture", "sim", "-o", folder.Path("run.vxw"), "grab", "--sim-sensor", "512x512",
               "-e", "1ms", "-o", folder.Path("%d.fits"), "--area", "0,0,8,8"},
              how);
    EXPECT_EQ(run.Exit(), 0) << "small enough";
    tcRun large({"capture", "sim", "-o", folder.Path("large.vxw"), "ping", "-n", "5000"}, how);
    EXPECT_EQ(large.Exit(), 5) << large.Errors();
    EXPECT_THAT(large.Errors(), HasSubstr("large.vxw: File too large"));
    tcRun decode({"decode", folder.Path("large.vxw"), "-q"});
    EXPECT_EQ(decode.Exit(), 4);
    EXPECT_THAT(decode.Errors(), EndsWith("it was not ended\n"));
}

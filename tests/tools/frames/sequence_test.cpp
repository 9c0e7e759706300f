// Frames taken by a plan, whatever happens meanwhile.
#include "grab_support.h"
#include "sequence_support.h"
#include "simulated_support.h"

#include <random>
#include <set>
#include <thread>

using testing::EndsWith;
using testing::HasSubstr;

TEST_F(SequenceVerb, EndsWithAllFramesAfterTwoPowerCutsAndAReboot)
{
    Start();
    Plan(R"(steps:
  - set: {gain: 3}
  - lights: {count: 40, exposure: 20ms}
  - repeat: {times: 20, steps: [{darks: {count: 2, exposure: 50ms}}, {wait: 10ms}]}
)");
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto kill = [&](long least, long most) {
        tcRun run(Words(), In(mFolder));
        const long until = std::uniform_int_distribution<long>(least, most)(random);
        EXPECT_TRUE(WaitUntil([&] { return Taken() >= until; }, gnRunPatience)) << run.Errors();
        const int moment = std::uniform_int_distribution<>(0, 40000)(random);
        std::this_thread::sleep_for(std::chrono::microseconds(moment));
        run.Signal(SIGKILL);
        EXPECT_EQ(run.Exit(), 1000 + SIGKILL);
    };
    kill(3, 15);
    mpCamera->Inject(ParseSimFault("reboot:seconds=0.3,packet=3"));
    kill(20, 45);
    ASSERT_EQ(RunOnce({"--json"}), 0) << msErrors;

    const std::vector<std::string> files = Frames();
    ASSERT_EQ(files.size(), 80u);
    ExpectGood(files);
    std::set<std::string> numbers, begins, sequences;
    for (const std::string& file : files) {
        numbers.insert(CardOf(file, "SEQFRAME"));
        begins.insert(CardOf(file, "DATE-OBS"));
        sequences.insert(CardOf(file, "SEQID"));
        EXPECT_EQ(std::stod(CardOf(file, "GAIN")), 3) << file;
        char ending[32];
        std::snprintf(ending, sizeof ending, "-%04d.fits", std::stoi(CardOf(file, "SEQFRAME")));
        EXPECT_THAT(file, EndsWith(ending));
    }
    EXPECT_EQ(numbers.size(), 80u);
    EXPECT_EQ(begins.size(), 80u);
    EXPECT_EQ(sequences.size(), 1u);
    EXPECT_EQ(mDocument["taken"], 80);
    EXPECT_EQ(mDocument["runs"], 3);
    EXPECT_EQ(mDocument["complete"], true);
    ASSERT_EQ(mDocument["failures"].size(), 1u) << mDocument["failures"];
    EXPECT_THAT(mDocument["failures"][0]["text"].get<std::string>(), HasSubstr("connection"));
}

TEST_F(SequenceVerb, HasNothingToDoWhenAllIsTakenUntilAFrameIsRemoved)
{
    Start();
    Plan("steps: [{bias: {count: 3}}]\n");
    ASSERT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_THAT(msOutput, HasSubstr("night/bias-0002.fits: 2 of 3, "));
    EXPECT_THAT(msOutput, HasSubstr("complete: 3 of 3 frames taken, 0 of them in earlier runs"));
    const auto readouts = mpCamera->Frames().size();
    EXPECT_EQ(RunOnce(), 0);
    EXPECT_THAT(msOutput, HasSubstr("complete: 3 of 3 frames taken, 3 of them in earlier runs"));
    EXPECT_EQ(mpCamera->Frames().size(), readouts);
    std::filesystem::remove(mFolder.Path("night/bias-0002.fits"));
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_THAT(msOutput, HasSubstr("complete: 3 of 3 frames taken, 2 of them in earlier runs"));
    EXPECT_EQ(mpCamera->Frames().size(), readouts + 1);
    ExpectGood(Frames());
    EXPECT_EQ(Frames().size(), 3u);
}

// Killed between a frame's file and its line in the journal, and while the next one was written.
TEST_F(SequenceVerb, CountsAFrameWhoseFileIsThereThoughTheJournalDoesNotSayIt)
{
    Start();
    Plan("steps: [{bias: {count: 3}}]\n");
    ASSERT_EQ(RunOnce(), 0) << msErrors;
    const std::string journal = mFolder.Path("night/night.journal");
    const std::string text = FileText(journal), third = FileText(Frames().back());
    MakeFile(journal, text.substr(0, text.find(" frame 2") - 10));
    const size_t at = text.find(" run ") + 5;
    const std::string process = text.substr(at, text.find('\n', at) - at);
    MakeFile(mFolder.Path("night/.vxcam-" + process + "-9.part"), "half");
    ASSERT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_EQ(mpCamera->Frames().size(), 3u);
    EXPECT_EQ(Frames().size(), 3u);
    EXPECT_EQ(FileText(Frames().back()), third);
    MakeFile(journal, text.substr(0, text.find(" frame 2") - 10));
    MakeFile(Frames().back(), third.substr(0, third.size() / 2));
    EXPECT_EQ(RunOnce(), 5);
    EXPECT_THAT(msErrors, HasSubstr("bias-0003.fits: exists already"));
}

TEST_F(SequenceVerb, TakesAFrameAgainThatCameIncomplete)
{
    Start({"missing-packet:readout=2,packet=1"});
    Plan("steps: [{lights: {count: 3, exposure: 1ms}}]\n");
    ASSERT_EQ(RunOnce({"--json"}), 0) << msErrors;
    EXPECT_EQ(mDocument["failures"].size(), 1u);
    EXPECT_THAT(mDocument["failures"][0]["text"].get<std::string>(), HasSubstr("light 2: "));
    ExpectGood(Frames());
    EXPECT_EQ(Frames().size(), 3u);
}

TEST_F(SequenceVerb, EndsWhenTheCameraReportsErrorsAgainAndAgain)
{
    Start({"error-storm:count=1,code=7,subcode=3,readout=2,packet=1"});
    Plan("retries: 0\nsteps: [{lights: {count: 3, exposure: 1ms}}]\n");
    EXPECT_EQ(RunOnce(), 4);
    EXPECT_THAT(msErrors, HasSubstr("7-3"));
    EXPECT_THAT(msOutput, HasSubstr("not complete: 1 of 3 frames taken"));
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_EQ(Frames().size(), 3u);
}

TEST_F(SequenceVerb, WaitsForACameraNoLongerThanThePlanSays)
{
    Start({"reboot:readout=2,packet=1,seconds=1000"});
    Plan("link: 300ms\nsteps: [{lights: {count: 3, exposure: 1ms}}]\n");
    EXPECT_EQ(RunOnce(), 3);
    EXPECT_THAT(msErrors, HasSubstr("the connection was lost"));
    EXPECT_EQ(Frames().size(), 1u);
}

TEST_F(SequenceVerb, EndsWithCodeFiveAtADiskThatTakesNoMore)
{
    Start();
    Plan("steps: [{lights: {count: 2, exposure: 1ms}}]\n");
    EXPECT_EQ(RunOnce({}, 10000), 5);
    EXPECT_THAT(msErrors, HasSubstr("night/light-0001.fits: "));
    EXPECT_TRUE(Frames().empty());
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    EXPECT_EQ(Frames().size(), 2u);
}

TEST_F(SequenceVerb, TakesNothingWhenTheDiskIsTooSmall)
{
    tsSimOptions large = Talkative({});
    large.columns = 8192;
    large.rows = 8192;
    Start(large);
    Plan("steps: [{bias: {count: 100000}}]\n"); // 13 TB
    EXPECT_EQ(RunOnce(), 5);
    EXPECT_THAT(msErrors, HasSubstr("MiB, and the disk has "));
    EXPECT_TRUE(mpCamera->Frames().empty());
    EXPECT_TRUE(Frames().empty());
}

TEST_F(SequenceVerb, TakesNothingWhenTheFolderCannotBe)
{
    Start();
    Plan("folder: night.yaml/frames\nsteps: [{bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce(), 5);
    EXPECT_THAT(msErrors, HasSubstr("night.yaml/frames: Not a directory"));
    Plan("steps: [{bias: {count: 1}}]\n");
    std::filesystem::create_directories(mFolder.Path("night"));
    MakeFile(mFolder.Path("night/bias-0001.fits"), "precious");
    EXPECT_EQ(RunOnce(), 5);
    EXPECT_THAT(msErrors,
                EndsWith("bias-0001.fits: exists already; move it away, or choose another "
                         "folder\n"));
    EXPECT_EQ(FileText(mFolder.Path("night/bias-0001.fits")), "precious");
    EXPECT_TRUE(mpCamera->Frames().empty());
}

TEST_F(SequenceVerb, RunsCommandsAndEndsWithCodeSixWhenOneFails)
{
    Start();
    Plan(R"(steps:
  - lights: {count: 5, exposure: 1ms,
             dither: {every: 2, command: 'echo "$VXCAM_TAKEN $VXCAM_FILE" >> dithered'}}
  - run: {command: "exit 3", may-fail: true}
  - run: 'test -e ready'
  - run: 'echo once >> dithered'
)");
    EXPECT_EQ(RunOnce(), 6);
    EXPECT_THAT(msErrors, HasSubstr("'test -e ready' ended with code 1"));
    EXPECT_THAT(msOutput, HasSubstr("'exit 3' ended with code 3"));
    MakeFile(mFolder.Path("ready"), "");
    EXPECT_EQ(RunOnce(), 0) << msErrors;
    const std::string night = std::filesystem::canonical(mFolder.Path("night")).string();
    EXPECT_EQ(FileText(mFolder.Path("dithered")),
              "2 " + night + "/light-0002.fits\n4 " + night + "/light-0004.fits\nonce\n");
    Plan("folder: other\nsteps: [{run: {command: sleep 100, timeout: 100ms}}]\n");
    EXPECT_EQ(RunOnce(), 6);
    EXPECT_THAT(msErrors, HasSubstr("'sleep 100' did not end within 100ms"));
}

TEST_F(SequenceVerb, TellsCommandsTheirOwnVariablesThoughItWasStartedWithSuch)
{
    Start();
    Plan(R"(steps:
  - run: 'echo "$VXCAM_PLAN $VXCAM_FOLDER $VXCAM_FILE." > before'
  - bias: {count: 1}
  - run: 'echo "$VXCAM_TAKEN $VXCAM_FILE" > told'
)");
    tcRun::tsHow how = In(mFolder);
    how.environment = {{"VXCAM_TAKEN", "7"}, {"VXCAM_FILE", "other.fits"}};
    tcRun run(Words(), how);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const std::string here = std::filesystem::canonical(mFolder.Path()).string();
    EXPECT_EQ(FileText(mFolder.Path("before")), here + "/night.yaml " + here + "/night .\n");
    EXPECT_EQ(FileText(mFolder.Path("told")), "1 " + here + "/night/bias-0001.fits\n");
}

TEST_F(SequenceVerb, KnowsThatACommandFailedThoughItsParentIgnoredTheEndOfChildren)
{
    Start();
    tcRun::tsHow how = In(mFolder);
    how.program = "env";
    const auto codeOf = [&](const std::string& command) {
        Plan("folder: " + command + "\nsteps: [{run: '" + command + "'}]\n");
        std::vector<std::string> words = Words();
        words.insert(words.begin(), {"--ignore-signal=CHLD", VXCAM_PROGRAM});
        tcRun run(words, how);
        return run.Exit();
    };
    EXPECT_EQ(codeOf("false"), 6);
    EXPECT_EQ(codeOf("true"), 0);
}

// Whose failure has nothing to do with the camera's.
TEST_F(SequenceVerb, RunsACommandThatFailedOnceThoughTheLinkWasLostMeanwhile)
{
    Start();
    Plan(R"(steps:
  - bias: {count: 1}
  - run: 'echo once >> ran; until test -e ready; do sleep 0.02; done; exit 3'
)");
    tcRun run(Words(), In(mFolder));
    ASSERT_TRUE(WaitUntil([&] { return !FileText(mFolder.Path("ran")).empty(); }, gnRunPatience));
    const uint64_t before = mpCamera->Statistics().connections;
    mpCamera->Inject(ParseSimFault("close"));
    EXPECT_TRUE(
        WaitUntil([&] { return mpCamera->Statistics().connections > before; }, gnRunPatience));
    MakeFile(mFolder.Path("ready"), "");
    EXPECT_EQ(run.Exit(), 6) << run.Errors();
    EXPECT_EQ(FileText(mFolder.Path("ran")), "once\n");
}

TEST_F(SequenceVerb, GoesOnBehindCtrlC)
{
    Start();
    Plan("steps: [{lights: {count: 2, exposure: 1ms}}, {wait: 1h}, {bias: {count: 1}}]\n");
    tcRun run(Words(), In(mFolder));
    ASSERT_TRUE(WaitUntil([&] { return Taken() == 2; }, gnRunPatience)) << run.Errors();
    EXPECT_EQ(RunOnce(), 5);
    EXPECT_THAT(msErrors, HasSubstr("this sequence runs already"));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_THAT(run.Output(), HasSubstr("not complete: 2 of 3 frames taken"));
    Plan("steps: [{lights: {count: 2, exposure: 1ms}}, {bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce(), 1);
    EXPECT_THAT(msErrors, HasSubstr("is of another plan, or the plan was changed since"));
}

TEST_F(SequenceVerb, TellsWhichSensorACameraOfAnotherPlanHas)
{
    Start();
    Plan("sensor: [64, 64]\nsteps: [{bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce(), 1);
    EXPECT_THAT(msErrors,
                HasSubstr("night.yaml: the plan is for a sensor of 64 x 64 pixels, and the "
                          "camera has 96 x 64\n"));
}

TEST_F(SequenceVerb, EndsWithCodeFourWhereAnotherCameraTakesThePlaceOfItsOwn)
{
    Start({"reboot-resized:rows=32,columns=40,readout=3,packet=1,seconds=0.05"});
    Plan("steps: [{lights: {count: 4, exposure: 1ms}}]\n");
    EXPECT_EQ(RunOnce({"--json"}), 4);
    ASSERT_EQ(mDocument["failures"].size(), 2u);
    EXPECT_THAT(mDocument["failures"][1]["text"].get<std::string>(),
                HasSubstr("begun with another camera (vxcamsim"));
    EXPECT_THAT(mDocument["error"]["text"].get<std::string>(), HasSubstr("40 x 32 pixels"));
    EXPECT_EQ(RunOnce(), 1);
    EXPECT_THAT(msErrors, HasSubstr("choose another folder"));
    EXPECT_EQ(Frames().size(), 2u);
}

TEST_F(SequenceVerb, ChecksThePlanBeforeAnything)
{
    Start();
    Plan("steps:\n  - lights: {count: 3}\n");
    EXPECT_EQ(RunOnce({"--json"}), 1);
    EXPECT_THAT(msErrors, HasSubstr("night.yaml:2: lights: 'exposure' is missing"));
    EXPECT_THAT(mDocument["error"]["text"].get<std::string>(), HasSubstr("night.yaml:2"));
    Plan("steps:\n  - bias: {count: 3, area: [90, 0, 10, 10]}\n");
    EXPECT_EQ(RunOnce(), 1);
    EXPECT_THAT(msErrors, HasSubstr("night.yaml:2: the area reaches beyond the sensor of 96 x 64"));
    EXPECT_TRUE(mpCamera->Frames().empty());
    tcRun none({"sequence", "none.yaml"}, In(mFolder));
    EXPECT_EQ(none.Exit(), 5);
}

TEST_F(SequenceVerb, SaysOfAPlanNothingThatItHasNot)
{
    msTarget = "sim";
    Plan("steps: [{run: 'true'}]\n");
    EXPECT_EQ(RunOnce({"--dry-run"}), 0) << msErrors;
    EXPECT_EQ(msOutput, "night.yaml: 0 frames to night; 1 command, not counted\n");
    Plan("steps: [{bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce({"--dry-run"}), 0) << msErrors;
    EXPECT_THAT(msOutput, HasSubstr("night.yaml: 1 frame to night, 0 ms exposed, about "));
}

// The example of the page, and what the page says that comes of it.
TEST_F(SequenceVerb, TellsOfTheExampleWhatItsPageSays)
{
    const std::string page = FileText(VXCAM_SEQUENCE_PAGE);
    const auto behind = [&](const std::string& mark, const std::string& end) {
        const size_t at = page.find(mark);
        EXPECT_NE(at, std::string::npos) << mark;
        const size_t start = at + mark.size();
        return page.substr(start, page.find(end, start) - start);
    };
    Plan(behind("```yaml\n", "```"));
    tcRun run({"sequence", "night.yaml", "--dry-run"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(run.Output(), behind("$ vxcam sequence night.yaml --dry-run\n", "```"));
    EXPECT_EQ(mFolder.Names(), std::vector<std::string>{"night.yaml"});
}

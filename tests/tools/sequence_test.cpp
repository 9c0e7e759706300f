// Frames taken by a plan, whatever happens meanwhile.
#include "grab_support.h"
#include "simulated_support.h"

#include <atomic>
#include <random>
#include <set>
#include <thread>

using testing::EndsWith;
using testing::HasSubstr;

namespace {

std::string CardOf(const std::string& path, const char* word)
{
    fitsfile* file = nullptr;
    int status = 0;
    char value[FLEN_VALUE] = "";
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_read_key(file, TSTRING, word, value, nullptr, &status);
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << path << " " << word;
    return value;
}

class tcSequenceTest : public testing::Test
{
protected:
    void Start(const std::vector<std::string>& faults = {}) { Start(Talkative(faults)); }
    void Start(const tsSimOptions& options)
    {
        mpCamera = std::make_unique<tcSimServer>(options);
        msTarget = TargetOf(*mpCamera);
    }
    void Plan(const std::string& text) const { MakeFile(mFolder.Path("night.yaml"), text); }
    std::vector<std::string> Words(const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> words = {"sequence", "night.yaml", msTarget};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    // A run to its end: its exit code.
    int RunOnce(const std::vector<std::string>& more = {}, rlim_t fileLimit = 0)
    {
        tcRun::tsHow how = In(mFolder);
        how.fileLimit = fileLimit;
        tcRun run(Words(more), how);
        const int code = run.Exit();
        msOutput = run.Output();
        msErrors = run.Errors();
        mDocument = run.Document();
        return code;
    }
    long Taken() const
    {
        const std::string text = FileText(mFolder.Path("night/night.journal"));
        long count = 0;
        for (size_t at = 0; (at = text.find(" frame ", at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    }
    std::vector<std::string> Frames() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder.Path("night"))) {
            const std::string name = entry.path().filename().string();
            if (name != "night.journal") names.push_back(entry.path().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void ExpectGood(const std::vector<std::string>& files) const
    {
        std::vector<std::string> words = {"verify", "--quiet"};
        words.insert(words.end(), files.begin(), files.end());
        tcRun verifier(words);
        EXPECT_EQ(verifier.Exit(), 0) << verifier.Errors();
    }

    std::unique_ptr<tcSimServer> mpCamera;
    std::string msTarget, msOutput, msErrors;
    nlohmann::json mDocument;
    tcFolder mFolder;
};

} // namespace

using SequenceVerb = tcSequenceTest;

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
    EXPECT_EQ(FileText(mFolder.Path("dithered")),
              "2 night/light-0002.fits\n4 night/light-0004.fits\nonce\n");
    Plan("folder: other\nsteps: [{run: {command: sleep 100, timeout: 100ms}}]\n");
    EXPECT_EQ(RunOnce(), 6);
    EXPECT_THAT(msErrors, HasSubstr("'sleep 100' did not end within 100ms"));
}

TEST_F(SequenceVerb, TellsCommandsTheirOwnVariablesThoughItWasStartedWithSuch)
{
    Start();
    Plan("steps: [{bias: {count: 1}}, {run: 'echo \"$VXCAM_TAKEN $VXCAM_FILE\" > told'}]\n");
    tcRun::tsHow how = In(mFolder);
    how.environment = {{"VXCAM_TAKEN", "7"}, {"VXCAM_FILE", "other.fits"}};
    tcRun run(Words(), how);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(FileText(mFolder.Path("told")), "1 night/bias-0001.fits\n");
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
    EXPECT_THAT(msOutput, HasSubstr("not complete: 1 of 1 frames taken, 1 of them"));
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

TEST_F(SequenceVerb, TellsWhichSensorACameraOfAnotherPlanHas)
{
    Start();
    Plan("sensor: [64, 64]\nsteps: [{bias: {count: 1}}]\n");
    EXPECT_EQ(RunOnce(), 1);
    EXPECT_THAT(msErrors,
                HasSubstr("night.yaml: the plan is for a sensor of 64 x 64 pixels, and the "
                          "camera has 96 x 64\n"));
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

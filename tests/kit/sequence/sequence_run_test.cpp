// Runs that are watched and stopped by whoever embeds them.
#include "breaking_camera.h"
#include "files_support.h"
#include "kit_support.h"

#include <vxcamkit/sequence.h>

#include <filesystem>
#include <future>
#include <mutex>

namespace vxcam {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class SequenceRunTest : public KitCamera
{
protected:
    SequencePlan plan(const std::string& text) const
    {
        return parseSequence(text, folder_.path("night.yaml"));
    }
    // Runs it on a thread of its own until `doing` is told; then stops it. What run() threw.
    Error stopped(Sequence& sequence, const std::string& doing, SequenceStop when)
    {
        auto run = std::async(std::launch::async,
                              [&] { return errorOf([&] { sequence.run(*camera_); }); });
        EXPECT_TRUE(waitUntil([&] { return hasTold(doing); })) << doing;
        sequence.stop(when);
        return run.get();
    }
    SequenceOptions options()
    {
        SequenceOptions options;
        options.onProgress = [this](const SequenceProgress& progress) {
            std::lock_guard<std::mutex> guard(mutex_);
            told_.push_back(progress.doing);
            progress_.push_back(progress);
            if (!progress.file.empty()) written_.push_back(progress.file);
        };
        return options;
    }
    bool hasTold(const std::string& doing)
    {
        std::lock_guard<std::mutex> guard(mutex_);
        return std::any_of(told_.begin(), told_.end(),
                           [&](const std::string& text) { return text.rfind(doing, 0) == 0; });
    }

    Folder folder_;
    std::mutex mutex_;
    std::vector<std::string> told_, written_;
    std::vector<SequenceProgress> progress_;
};

} // namespace

TEST_F(SequenceRunTest, TellsStepsFramesSettingsAndFailures)
{
    open({"missing-packet:readout=2,packet=1"});
    Sequence sequence(plan("steps:\n"
                           "  - set: {gain: 3}\n"
                           "  - lights: {count: 2, exposure: 1ms}\n"
                           "  - run: {command: 'exit 3', may-fail: true}\n"
                           "  - bias: {count: 1}\n"));
    std::vector<int> lines;
    std::vector<std::string> settings, failures;
    std::vector<bool> frames; // whether they were complete
    SequenceWatch watch;
    watch.onStep = [&](int line) { lines.push_back(line); };
    watch.onFrame = [&](const Frame& frame) { frames.push_back(frame.complete()); };
    watch.onSetting = [&](const std::string& name, const Value& value) {
        settings.push_back(name + "=" + value.text());
    };
    watch.onFailure = [&](const SequenceFailure& failure) { failures.push_back(failure.text); };
    sequence.watch(watch);
    sequence.run(*camera_);
    EXPECT_THAT(lines, ElementsAre(2, 3, 4, 5));
    EXPECT_THAT(settings, ElementsAre("gain=3"));
    EXPECT_THAT(frames, ElementsAre(true, false, true, true));
    EXPECT_THAT(failures, ElementsAre(HasSubstr("light 2: "), HasSubstr("ended with code 3")));
}

TEST_F(SequenceRunTest, IsAsFarAsTheTimeThatItTook)
{
    options_.heartbeatSeconds = 0.05;
    open();
    Sequence sequence(plan("steps:\n"
                           "  - temperature: {to: 20, ramp: 600, settle: 400ms}\n"
                           "  - wait: 300ms\n"
                           "  - lights: {count: 2, exposure: 300ms}\n"),
                      options());
    std::vector<int> lines;
    std::vector<size_t> toldBefore; // each of them
    SequenceWatch watch;
    watch.onStep = [&](int line) {
        lines.push_back(line);
        toldBefore.push_back(progress_.size());
    };
    sequence.watch(watch);
    sequence.run(*camera_);
    EXPECT_THAT(lines, ElementsAre(2, 3, 4));
    ASSERT_THAT(toldBefore, SizeIs(3));
    EXPECT_EQ(toldBefore[0], 0U);
    EXPECT_EQ(progress_[0].doing, "temperature");
    EXPECT_LT(progress_[0].done, 0.01);
    EXPECT_GE(progress_[0].left, 1300ms); // and more for the readouts
    EXPECT_EQ(progress_[toldBefore[1]].doing, "wait 300ms");
    EXPECT_EQ(progress_[toldBefore[2]].doing, "light 1");
    EXPECT_GT(progress_[toldBefore[2]].done, 0.1);
    EXPECT_EQ(progress_.back().done, 1);
    EXPECT_EQ(progress_.back().left, 0s);
    std::vector<SequenceProgress> exposing;
    std::copy_if(progress_.begin(), progress_.end(), std::back_inserter(exposing),
                 [](const SequenceProgress& one) { return one.doing == "light 1: exposing"; });
    ASSERT_GT(exposing.size(), 1U);
    EXPECT_LT(exposing.back().left, exposing.front().left);
    EXPECT_GT(exposing.back().done, exposing.front().done);
}

TEST_F(SequenceRunTest, GoesOnAsFarAsItHadCome)
{
    open();
    const SequencePlan night = plan("steps:\n"
                                    "  - set: {gain: 3}\n"
                                    "  - lights: {count: 2, exposure: 100ms}\n"
                                    "  - darks: {count: 2, exposure: 100ms}\n"
                                    "  - lights: {count: 1, exposure: 1h}\n");
    {
        Sequence sequence(night, options());
        stopped(sequence, "light 5: exposing", SequenceStop::Now);
    }
    const SequenceProgress last = progress_.back();
    EXPECT_GE(last.left, 1h); // nothing of that frame is done
    EXPECT_GT(last.done, 0);
    progress_.clear();
    told_.clear();
    Sequence sequence(night, options());
    std::vector<int> lines;
    SequenceWatch watch;
    watch.onStep = [&](int line) { lines.push_back(line); };
    sequence.watch(watch);
    stopped(sequence, "light 5: exposing", SequenceStop::Now);
    EXPECT_THAT(lines, ElementsAre(5));
    EXPECT_EQ(progress_[0].taken, 4);
    EXPECT_GE(progress_[0].left, 1h);
    EXPECT_NEAR(progress_[0].done, 0.8 / 3601, 0.3 / 3601); // 0.2 s each, with the readout
}

// Which the host does not know.
TEST_F(SequenceRunTest, KnowsWhatIsLeftWithACameraWhoseClockIsFast)
{
    options_.timeScale = 100;
    open();
    Sequence sequence(plan("steps:\n"
                           "  - darks: {count: 2, exposure: 10s}\n"
                           "  - bias: {count: 1}\n"
                           "  - lights: {count: 5, exposure: 20s}\n"),
                      options());
    sequence.run(*camera_);
    std::vector<std::chrono::milliseconds> left; // when a frame was written
    for (const SequenceProgress& one : progress_) {
        if (!one.file.empty()) left.push_back(one.left);
    }
    ASSERT_THAT(left, SizeIs(8));
    EXPECT_GT(left[2], 1s); // really 1 s, and more for the readouts
    EXPECT_LT(left[2], 20s);
    EXPECT_GT(left[3], 800ms);
    EXPECT_LT(left[3], 20s);
    EXPECT_EQ(left[7], 0s);
}

TEST_F(SequenceRunTest, KnowsHowLongACommandTookBefore)
{
    open();
    Sequence sequence(
        plan("steps:\n"
             "  - set: {exposure: 5ms}\n"
             "  - repeat: {times: 3, steps: [{run: 'sleep 0.3'}, {bias: {count: 1}}]}\n"),
        options());
    sequence.run(*camera_);
    const auto first = std::find_if(progress_.begin(), progress_.end(), [](const auto& one) {
        return one.doing == "run 'sleep 0.3': done";
    });
    ASSERT_NE(first, progress_.end());
    EXPECT_GE(first->left, 600ms);
    EXPECT_EQ(progress_.back().left, 0s);
}

TEST_F(SequenceRunTest, CountsNothingOfAFrameThatFailed)
{
    open({"missing-packet:readout=1,packet=1"});
    Sequence sequence(plan("retries: 0\nsteps: [{lights: {count: 1, exposure: 100ms}}]\n"),
                      options());
    EXPECT_EQ(errorOf([&] { sequence.run(*camera_); }).kind(), ErrorKind::Incomplete);
    EXPECT_EQ(progress_.back().doing, "light 1: failed");
    EXPECT_LT(progress_.back().done, 0.01);
    EXPECT_GE(progress_.back().left, 100ms);
}

TEST_F(SequenceRunTest, IsCheckedWithACameraThatIsSentNothing)
{
    Camera& camera = open();
    const uint64_t sent = camera.statistics().messagesSent;
    const auto refusal = [&](const std::string& text) {
        return std::string(errorOf([&] { checkSequence(plan(text), camera); }).what());
    };
    const std::string lights = "steps: [{lights: {count: 2, exposure: 1ms}}]\n";
    const SequenceNeeds needs = checkSequence(plan(lights), camera);
    EXPECT_EQ(needs.frames, 2);
    EXPECT_GT(needs.bytes.value_or(0), uint64_t{2} * kRows * kColumns * 2);
    EXPECT_THAT(refusal("sensor: [8, 8]\n" + lights), HasSubstr("sensor of 8 x 8"));
    EXPECT_THAT(refusal("steps: [{lights: {count: 1, exposure: 1ms, area: [0, 0, 97, 1]}}]\n"),
                HasSubstr("night.yaml:1: the area"));
    EXPECT_THAT(refusal("steps: [{repeat: {times: 2, steps: [{set: {area: '90,0,10,1'}}]}}]\n"),
                HasSubstr("area"));
    EXPECT_EQ(camera.statistics().messagesSent, sent);
}

TEST_F(SequenceRunTest, FindsWhatStandsInItsWayBeforeAnythingIsDone)
{
    open();
    const std::string text = "steps: [{lights: {count: 20, exposure: 1ms}}]\n";
    const std::string name = plan(text).folder + "/light-0017.fits";
    std::filesystem::create_directories(plan(text).folder);
    std::filesystem::create_symlink("nowhere", name);
    Sequence sequence(plan(text));
    const Error error = errorOf([&] { sequence.run(*camera_); });
    EXPECT_EQ(error.kind(), ErrorKind::File);
    EXPECT_THAT(error.what(), HasSubstr(name));
    EXPECT_THAT(sequence.report().files, IsEmpty());
}

TEST_F(SequenceRunTest, CountsWhatRepeatsComeTo)
{
    open();
    const SequencePlan many =
        plan("steps: [{repeat: {times: 999, steps: [{bias: {count: 1000}}]}}]\n");
    const SequenceNeeds needs = checkSequence(many, *camera_);
    EXPECT_EQ(needs.frames, 999000);
    EXPECT_EQ(needs.bytes.value_or(0),
              checkSequence(plan("steps: [{bias: {count: 1}}]\n"), *camera_).bytes.value_or(0) *
                  999000);
}

TEST_F(SequenceRunTest, TellsTheSettingsThatAreMadeAgain)
{
    open({"close:readout=1,packet=1"});
    Sequence sequence(plan("steps: [{set: {gain: 3}}, {lights: {count: 1, exposure: 1ms}}]\n"));
    int settings = 0;
    SequenceWatch watch;
    watch.onSetting = [&](const std::string&, const Value&) { ++settings; };
    sequence.watch(watch);
    sequence.run(*camera_);
    EXPECT_EQ(settings, 2);
}

// The forwarder to a camera that is off takes connections, and ends them.
TEST_F(SequenceRunTest, WaitsForACameraWhoseConnectionsEndAtOnce)
{
    BreakingCamera there;
    camera_.emplace(Camera::open(there.place()));
    Sequence sequence(plan("retries: 1\nsteps: [{wait: 300ms}, {set: {exposure: 20ms}}]\n"),
                      options());
    auto run = std::async(std::launch::async, [&] { sequence.run(*camera_); });
    ASSERT_TRUE(waitUntil([&] { return hasTold("wait "); }));
    BreakingCamera::Manners manners;
    manners.hangsUp = true;
    there.breakOff("", manners);
    ASSERT_TRUE(waitUntil([&] { return hasTold("waiting for the camera"); }));
    const uint64_t before = camera_->statistics().connectionsLost;
    EXPECT_TRUE(waitUntil([&] { return camera_->statistics().connectionsLost > before + 3; }));
    there.breakOff("", {});
    EXPECT_NO_THROW(run.get());
    EXPECT_EQ(camera_->get("exposure").toTime(), 20ms);
    EXPECT_THAT(sequence.report().failures, SizeIs(1));
}

TEST_F(SequenceRunTest, EndsWithWhatAWatcherThrows)
{
    open();
    Sequence sequence(plan("steps: [{lights: {count: 2, exposure: 1ms}}]\n"));
    SequenceWatch watch;
    watch.onFrame = [](const Frame&) { throw std::runtime_error("no more"); };
    sequence.watch(watch);
    EXPECT_THROW(sequence.run(*camera_), std::runtime_error);
    EXPECT_THAT(sequence.report().files, IsEmpty());
}

TEST_F(SequenceRunTest, IsStoppedAtOnceAndGoesOnBehindItsLastFrame)
{
    open();
    const SequencePlan night =
        plan("steps: [{bias: {count: 2}}, {lights: {count: 1, exposure: 1h}}]\n");
    {
        Sequence sequence(night, options());
        const Error error = stopped(sequence, "light 3: exposing", SequenceStop::Now);
        EXPECT_EQ(error.kind(), ErrorKind::Aborted);
        EXPECT_STREQ(error.what(), "the sequence was stopped");
        EXPECT_THAT(sequence.report().files, SizeIs(2));
        EXPECT_THAT(sequence.report().failures, IsEmpty());
        EXPECT_EQ(errorOf([&] { sequence.run(*camera_); }).kind(), ErrorKind::Aborted);
        EXPECT_EQ(sequence.report().runs, 1);
    }
    EXPECT_EQ(camera_->grab(planOf(1)).facts().number, 1); // none runs on the camera
    Sequence sequence(night, options());
    stopped(sequence, "light 3: exposing", SequenceStop::Now);
    EXPECT_EQ(sequence.report().before, 2);
    EXPECT_THAT(written_, SizeIs(2));
}

TEST_F(SequenceRunTest, IsStoppedBehindTheFrameThatIsUnderWay)
{
    open();
    Sequence sequence(plan("steps: [{lights: {count: 3, exposure: 300ms}}]\n"), options());
    stopped(sequence, "light 2: exposing", SequenceStop::BehindFrame);
    EXPECT_THAT(sequence.report().files, SizeIs(2));
    EXPECT_THAT(written_, SizeIs(2)); // the last one is told, too
}

TEST_F(SequenceRunTest, IsStoppedAtOnceWhereNoFrameIsUnderWay)
{
    open();
    for (const auto& [step, doing] : std::vector<std::pair<std::string, std::string>>{
             {"wait: 1h", "wait "}, {"run: sleep 3600", "run 'sleep 3600'"}}) {
        for (const SequenceStop when : {SequenceStop::Now, SequenceStop::BehindFrame}) {
            SequencePlan night = plan("steps: [{" + step + "}, {bias: {count: 1}}]\n");
            night.folder = folder_.path(std::to_string(told_.size()));
            told_.clear();
            Sequence sequence(night, options());
            EXPECT_EQ(stopped(sequence, doing, when).kind(), ErrorKind::Aborted) << step;
            EXPECT_THAT(sequence.report().files, IsEmpty());
        }
    }
}

TEST_F(SequenceRunTest, StopsForGoodWhenItIsStoppedTwice)
{
    open();
    Sequence sequence(plan("steps: [{lights: {count: 1, exposure: 1h}}]\n"), options());
    auto run =
        std::async(std::launch::async, [&] { return errorOf([&] { sequence.run(*camera_); }); });
    ASSERT_TRUE(waitUntil([&] { return hasTold("light 1: exposing"); }));
    sequence.stop(SequenceStop::BehindFrame);
    sequence.stop(SequenceStop::Now);
    sequence.stop(SequenceStop::BehindFrame);
    EXPECT_EQ(run.get().kind(), ErrorKind::Aborted);
}

TEST_F(SequenceRunTest, LeavesTheTemperatureAsItIsWhenItIsStopped)
{
    options_.timeScale = 20;
    options_.heartbeatSeconds = 0.05;
    open();
    Sequence sequence(plan("steps: [{temperature: {to: -50, ramp: 1}}, {bias: {count: 1}}]\n"),
                      SequenceOptions());
    auto run =
        std::async(std::launch::async, [&] { return errorOf([&] { sequence.run(*camera_); }); });
    ASSERT_TRUE(
        waitUntil([&] { return camera_->cooler().state().phase == CoolingPhase::Ramping; }));
    sequence.stop();
    EXPECT_EQ(run.get().kind(), ErrorKind::Aborted);
    EXPECT_EQ(camera_->cooler().state().phase, CoolingPhase::Idle);
}

TEST_F(SequenceRunTest, IsReportedFromItsJournalAlsoWhileItRuns)
{
    open();
    const SequencePlan night =
        plan("steps: [{bias: {count: 2}}, {lights: {count: 1, exposure: 1h}}]\n");
    EXPECT_FALSE(reportOf(night));
    EXPECT_THAT(folder_.names(), IsEmpty()); // nothing is made
    Sequence sequence(night, options());
    EXPECT_EQ(reportOf(night)->runs, 0);
    auto run =
        std::async(std::launch::async, [&] { return errorOf([&] { sequence.run(*camera_); }); });
    ASSERT_TRUE(waitUntil([&] { return hasTold("light 3: exposing"); }));
    const auto report = reportOf(night);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->runs, 1);
    EXPECT_EQ(report->frames, 3);
    EXPECT_FALSE(report->complete);
    ASSERT_THAT(report->files, SizeIs(2));
    EXPECT_EQ(report->files[1].path, folder_.path("night/bias-0002.fits"));
    EXPECT_EQ(report->files[1].bytes, std::filesystem::file_size(report->files[1].path));
    sequence.stop();
    run.get();
    const SequencePlan other = plan("steps: [{bias: {count: 3}}]\n");
    EXPECT_EQ(errorOf([&] { reportOf(other); }).kind(), ErrorKind::Usage);
}

} // namespace vxcam

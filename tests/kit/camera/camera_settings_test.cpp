// Properties of an open camera, and what becomes of them when the link was lost.
#include "kit_support.h"

#include <future>
#include <map>
#include <mutex>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class CameraSettings : public KitCamera
{
protected:
    // Opens one that loses its link on the next heartbeat after so long, and is back as at
    // power-up.
    Camera& openRebooting(const OpenOptions& options, const std::string& fault = "reboot")
    {
        options_.heartbeatSeconds = 0.01;
        start(
            {fault + (fault.find(':') == std::string::npos ? ":" : ",") + "time=0.3,seconds=0.05"});
        camera_.emplace(Camera::open(place(), options));
        subscription_ = camera_->onEvent([this](const Event& event) {
            std::lock_guard<std::mutex> guard(lock_);
            told_[event.kind].push_back(event);
        });
        return *camera_;
    }
    std::vector<Event> told(EventKind kind)
    {
        std::lock_guard<std::mutex> guard(lock_);
        return told_[kind];
    }
    bool await(EventKind kind)
    {
        return waitUntil([&] { return !told(kind).empty(); });
    }

    std::mutex lock_;
    std::map<EventKind, std::vector<Event>> told_;
    Subscription subscription_;
};

} // namespace

TEST_F(CameraSettings, AreReadAndSet)
{
    Camera& camera = open();
    EXPECT_EQ(camera.set("gain", 2).toInt(), 2);
    EXPECT_EQ(camera.get("gain").toInt(), 2);
    EXPECT_EQ(camera.set("exposure", 250ms).toTime(), 250ms);
    EXPECT_EQ(camera.set("trigger-mode", "frame,3,-4").text(), "frame,3,-4");
    EXPECT_EQ(camera.set("register:0x10", 77).toInt(), 77);
}

TEST_F(CameraSettings, AreCheckedBeforeAnythingIsSent)
{
    Camera& camera = open();
    const uint64_t sent = camera.statistics().messagesSent;
    const Error name = errorOf([&] { camera.set("gian", 2); });
    EXPECT_EQ(name.kind(), ErrorKind::Usage);
    EXPECT_THAT(name.what(), HasSubstr("did you mean gain"));
    EXPECT_EQ(errorOf([&] { camera.set("area", "0,0,1000,1"); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] { camera.set("cooling", "maybe"); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] { camera.set("ccd-temp", 1); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(camera.statistics().messagesSent, sent);
}

TEST_F(CameraSettings, RefusedByTheCameraAreItsError)
{
    Camera& camera = open();
    const Error error = errorOf([&] { camera.set("target-temp", -200); });
    EXPECT_EQ(error.kind(), ErrorKind::Camera);
    EXPECT_EQ(error.code(), 3);
    EXPECT_THAT(error.what(), HasSubstr(place()));
    EXPECT_EQ(camera.set("target-temp", -20).toDouble(), -20);
}

TEST_F(CameraSettings, OfManyOneMayBeRefused)
{
    Camera& camera = open();
    std::string why;
    EXPECT_EQ(camera.tryGet("gain", &why), Value(0));
    EXPECT_EQ(why, "");
    EXPECT_FALSE(camera.tryGet("parameter:4000000000", &why).has_value());
    EXPECT_THAT(why, HasSubstr("has no such parameter"));
    EXPECT_EQ(errorOf([&] { camera.tryGet("gian", &why); }).kind(), ErrorKind::Usage);
    camera_->close();
    EXPECT_EQ(errorOf([&] { camera.tryGet("gain", &why); }).kind(), ErrorKind::Aborted);
}

TEST_F(CameraSettings, AreCheckedWithoutBeingSent)
{
    Camera& camera = open();
    const uint64_t sent = camera.statistics().messagesSent;
    EXPECT_EQ(camera.checked("exposure", "250ms"), Value(250ms));
    EXPECT_EQ(errorOf([&] { camera.checked("area", "0,0,97,1"); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(camera.statistics().messagesSent, sent);
}

TEST_F(CameraSettings, AreKeptInAProfileAndRestored)
{
    Camera& camera = open();
    camera.set("gain", 3);
    camera.set("fan", false); // which cannot be read
    const Profile profile = camera.profile();
    EXPECT_EQ(profile.camera(), place());
    ASSERT_NE(profile.settings().find("fan"), nullptr);
    camera.set("gain", 1);
    for (const Outcome& outcome : camera.apply(profile)) {
        EXPECT_TRUE(outcome.isRestored()) << outcome.name << ": " << outcome.why;
    }
    EXPECT_EQ(camera.get("gain"), Value(3));
    EXPECT_EQ(camera.grab(planOf(1)).facts().settings.value("gain"), Value(3));
}

TEST_F(CameraSettings, RefusedMeanwhileDoNotEndAReadout)
{
    Camera& camera = open();
    Stream stream = camera.stream(planOf(1, 300ms));
    EXPECT_EQ(errorOf([&] { camera.set("target-temp", -200); }).kind(), ErrorKind::Camera);
    const std::optional<Frame> frame = stream.next(kPatience);
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->facts().complaints.size(), 1u);
}

TEST_F(CameraSettings, AreNotBlamedForALostLinkThatTheCameraExplains)
{
    options_.heartbeatSeconds = 0.01;
    Camera& camera = open();
    std::promise<void> complained;
    std::promise<std::string> told;
    const Subscription listening = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::CameraError && event.code == 77) complained.set_value();
        if (event.kind == EventKind::LinkLost) told.set_value(event.text);
    });
    EXPECT_EQ(errorOf([&] { camera.set("gain", 99); }).kind(), ErrorKind::Camera);
    sim_->Inject(ParseSimFault("error-storm:count=1,code=77,subcode=5"));
    ASSERT_EQ(complained.get_future().wait_for(kPatience), std::future_status::ready);
    sim_->Inject(ParseSimFault("close"));
    auto words = told.get_future();
    ASSERT_EQ(words.wait_for(kPatience), std::future_status::ready);
    EXPECT_NE(words.get(), "");
}

TEST_F(CameraSettings, RefusedEarlierAreNoReasonOfALostLink)
{
    Camera& camera = open();
    std::promise<std::string> told;
    const Subscription listening = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::LinkLost) told.set_value(event.text);
    });
    EXPECT_EQ(errorOf([&] { camera.set("gain", 99); }).kind(), ErrorKind::Camera);
    sim_.reset();
    auto words = told.get_future();
    ASSERT_EQ(words.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(words.get(), "");
}

TEST_F(CameraSettings, RefusedEarlierAreNoReasonWhereTheLinkIsLostDuringALaterCommand)
{
    Camera& camera = open();
    std::promise<std::string> told;
    const Subscription listening = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::LinkLost) told.set_value(event.text);
    });
    EXPECT_EQ(errorOf([&] { camera.set("gain", 99); }).kind(), ErrorKind::Camera);
    sim_->Inject(ParseSimFault("no-answer"));
    const uint64_t asked = camera.statistics().requestsSent;
    auto later = std::async(std::launch::async, [&] { errorOf([&] { camera.get("gain"); }); });
    ASSERT_TRUE(waitUntil([&] { return camera.statistics().requestsSent > asked; }));
    sim_.reset();
    EXPECT_EQ(told.get_future().get(), "");
    camera.close();
}

TEST_F(CameraSettings, OfAReadoutAreNotNamedWhereTheLinkIsLost)
{
    Camera& camera = open();
    std::promise<void> told;
    const Subscription listening = camera.onEvent([&](const Event& event) {
        if (event.kind == EventKind::LinkLost) told.set_value();
    });
    sim_.reset();
    told.get_future().wait();
    EXPECT_EQ(std::string(errorOf([&] { camera.grab(planOf(1)); }).what()),
              place() + ": readout: the connection is lost");
}

TEST_F(CameraSettings, GoWithEachFrame)
{
    Camera& camera = open();
    camera.set("exposure", 33ms);
    camera.set("gain", 3);
    camera.set("target-temp", -12.5);
    camera.set("filter", "on,off");
    const Frame frame = camera.grab(planOf(1, 20ms));
    const Snapshot& settings = frame.facts().settings;
    ASSERT_NE(settings.find("gain"), nullptr);
    EXPECT_EQ(*settings.find("gain"), "3");
    EXPECT_EQ(*settings.find("exposure"), "20ms") << "that of the plan";
    EXPECT_EQ(*settings.find("filter"), "on,off") << "which the camera does not tell";
    EXPECT_EQ(frame.facts().targetTemperature.value(), -12.5);
    EXPECT_GT(settings.size(), 10u);
    camera.set("gain", 4);
    EXPECT_EQ(*camera.grab(planOf(1)).facts().settings.find("gain"), "4");
    EXPECT_EQ(camera.get("exposure").toTime(), 33ms) << "the plan's was put back";
}

TEST_F(CameraSettings, OfFramesAreThoseWithANumberToo)
{
    Camera& camera = open();
    camera.set("gpio:3", "high");
    camera.set("bin-table:2", Value(std::vector<uint8_t>(kRows, 1)));
    const Snapshot before = camera.grab(planOf(1)).facts().settings;
    camera.set("gpio:4", "high");
    camera.set("exposure", 20ms); // exposure-ex is the same in other words
    const Snapshot settings = camera.grab().facts().settings;
    EXPECT_EQ(before.value("gpio:3").text(), "high");
    EXPECT_EQ(before.find("gpio:4"), nullptr);
    EXPECT_EQ(settings.value("gpio:4").text(), "high");
    EXPECT_EQ(settings.value("exposure-ex"), camera.get("exposure-ex"));
    EXPECT_EQ(settings.find("bin-table:2"), nullptr) << "a block of bytes";
}

TEST_F(CameraSettings, OfOneThatIsNotAnsweredToHoldUpAReadoutOnce)
{
    Camera& camera = open({"no-answer:id=0x61,times=0"}); // the cooling
    Plan plan = planOf(1);
    const Snapshot first = camera.grab(plan).facts().settings;
    EXPECT_EQ(first.value("cooling").text(), "none");
    EXPECT_LT(timeOf([&] { camera.grab(plan); }), kPromptly);
    const Snapshot settings = camera.grab(plan).facts().settings;
    EXPECT_EQ(settings.value("gain"), Value(0));
    EXPECT_TRUE(settings.value("cooling").isNothing());
}

TEST_F(CameraSettings, AreLeftOutWhereThePlanSaysSo)
{
    Camera& camera = open();
    Plan plan;
    plan.settings = false;
    EXPECT_TRUE(camera.grab(plan).facts().settings.empty());
}

TEST_F(CameraSettings, OnesThatTheCameraDoesNotAnswerToAreAskedForOnce)
{
    options_.heartbeatSeconds = 0.02;
    Camera& camera = open({"no-answer:id=0x8A,times=0"});
    const Snapshot first = camera.snapshot();
    EXPECT_GT(first.size(), 10u);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(camera.snapshot(), first); }), kPromptly);
}

TEST_F(CameraSettings, AreSentAgainWhenTheCameraIsBack)
{
    Camera& camera = openRebooting({});
    camera.set("gain", 3);
    camera.set("exposure", 7ms);
    camera.set("parameter:1001", 99);
    camera.set("register:5", 99);
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_EQ(told(EventKind::SettingsRestored)[0].text, "");
    EXPECT_EQ(told(EventKind::LinkLost).size(), 1u);
    EXPECT_EQ(camera.get("gain").toInt(), 3);
    EXPECT_EQ(camera.get("exposure").toTime(), 7ms);
    EXPECT_EQ(camera.get("parameter:1001").toInt(), 99);
    EXPECT_EQ(camera.get("register:5").toInt(), 0) << "setting one may do something";
    EXPECT_EQ(*camera.grab().facts().settings.find("gain"), "3");
}

TEST_F(CameraSettings, AreNotSentAgainWhereThatIsNotWanted)
{
    OpenOptions options;
    options.restore = Restore::None;
    Camera& camera = openRebooting(options);
    camera.set("gain", 3);
    ASSERT_TRUE(await(EventKind::LinkRestored));
    EXPECT_EQ(camera.get("gain").toInt(), 0);
    EXPECT_TRUE(told(EventKind::SettingsRestored).empty());
}

TEST_F(CameraSettings, AreSentAgainWhenAskedFor)
{
    OpenOptions options;
    options.restore = Restore::Ask;
    Camera& camera = openRebooting(options);
    camera.set("gain", 3);
    ASSERT_TRUE(await(EventKind::RestoreAsked));
    EXPECT_EQ(camera.get("gain").toInt(), 0);
    EXPECT_EQ(camera.restore(), "");
    EXPECT_EQ(camera.get("gain").toInt(), 3);
}

TEST_F(CameraSettings, ThatCannotBeRestoredAreTold)
{
    options_.heartbeatSeconds = 0.01;
    Camera& camera = openRebooting({}, "reboot-resized:rows=32,columns=32");
    camera.set("gain", 3);
    camera.set("area", "0,0,96,64");
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_THAT(told(EventKind::SettingsRestored)[0].text, HasSubstr("area"));
    EXPECT_EQ(camera.get("gain").toInt(), 3);
}

TEST_F(CameraSettings, CanBeReadWhileASlowConsumerHoldsTheCamera)
{
    options_.rows = options_.columns = 512;
    Camera& camera = open();
    Plan plan = planOf(40, 0ms);
    plan.buffers = 2;
    Stream stream = camera.stream(plan);
    ASSERT_TRUE(waitUntil([&] { return stream.books().complete == 2; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(camera.get("gain").toInt(), 0); }), Within(2s));
    for (uint32_t i = 1; i <= 40; ++i) {
        const std::optional<Frame> frame = stream.next(kPatience);
        ASSERT_TRUE(frame.has_value());
        ASSERT_EQ(frame->sum(), sumOf(1, i).value()) << i;
    }
    EXPECT_FALSE(stream.next(kPatience).has_value());
    EXPECT_EQ(stream.end(), ReadoutEnd::Complete);
}

TEST_F(CameraSettings, GoIntoAProfileAndComeBack)
{
    Camera& camera = open();
    camera.set("gain", 3);
    camera.set("filter", "on,off");
    EXPECT_EQ(*camera.grab(planOf(1)).facts().settings.find("gain"), "3");
    const Profile profile = Profile::parse(camera.profile().json());
    EXPECT_EQ(profile.camera(), place());
    camera.set("gain", 1);
    for (const Outcome& outcome : camera.apply(profile)) {
        EXPECT_TRUE(outcome.isRestored()) << outcome.name << ": " << outcome.why;
    }
    const Snapshot settings = camera.grab(planOf(1)).facts().settings;
    EXPECT_EQ(*settings.find("gain"), "3");
    EXPECT_EQ(*settings.find("filter"), "on,off");
}

TEST_F(CameraSettings, OfProfilesAreSentAgainWhenTheCameraIsBack)
{
    Camera& camera = openRebooting({});
    camera.apply(Profile::parse(
        R"({"format": "vxcam profile", "version": 1, "settings": {"gain": 3, "auto-rearm": false}})"));
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_EQ(camera.get("gain").toInt(), 3);
}

TEST_F(CameraSettings, OfTriggersStartFrames)
{
    Camera& camera = open();
    camera.set("trigger-mode", "frame");
    Stream stream = camera.stream(planOf(10, 5ms));
    std::chrono::nanoseconds best = 1h;
    for (int i = 1; i <= 10; ++i) {
        camera.set("trigger", 1);
        const std::optional<Frame> frame = stream.next(kPatience);
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->times().how, FrameTimes::How::Triggered);
        best = std::min(best, frame->times().uncertainty);
    }
    EXPECT_LT(best, 20ms);
}

// Cameras that are others when their connection was made anew.
#include "kit_support.h"

#include <algorithm>
#include <map>
#include <mutex>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class ChangedCamera : public KitCamera
{
protected:
    // One that is gone for a moment on its first heartbeat after a while.
    Camera& openRebooting(const std::string& fault, std::vector<std::string> others = {})
    {
        options_.heartbeatSeconds = 0.01;
        const char separator = fault.find(':') == std::string::npos ? ':' : ',';
        others.push_back(fault + separator + "time=0.3,seconds=0.05");
        open(others);
        listen();
        return *camera_;
    }
    void listen()
    {
        subscription_ = camera_->onEvent([this](const Event& event) {
            std::lock_guard<std::mutex> guard(lock_);
            if (event.kind != EventKind::Heartbeat) told_.push_back(event);
            if (event.kind == EventKind::CameraChanged) toldSensor_ = camera_->sensor();
        });
    }
    std::vector<Event> told(EventKind kind)
    {
        std::lock_guard<std::mutex> guard(lock_);
        std::vector<Event> events;
        std::copy_if(told_.begin(), told_.end(), std::back_inserter(events),
                     [&](const Event& event) { return event.kind == kind; });
        return events;
    }
    bool await(EventKind kind)
    {
        return waitUntil([&] { return !told(kind).empty(); });
    }
    std::vector<EventKind> kinds()
    {
        std::lock_guard<std::mutex> guard(lock_);
        std::vector<EventKind> kinds;
        for (const Event& event : told_) {
            kinds.push_back(event.kind);
        }
        return kinds;
    }
    void expectWhole(const Frame& frame, const Size& size)
    {
        EXPECT_EQ(frame.rows(), size.rows);
        EXPECT_EQ(frame.columns(), size.columns);
        EXPECT_EQ(frame.facts().sensor, size);
        EXPECT_EQ(frame.facts().area.size(), size);
        EXPECT_EQ(frame.sum(), sumOf(frame.facts().readout, 1).value());
    }

    Size toldSensor_; // as it is for whoever hears of the change

private:
    std::mutex lock_;
    std::vector<Event> told_;
    Subscription subscription_;
};

const std::string kResized = "reboot-resized:rows=32,columns=40";
constexpr Size kSmall{40, 32};

} // namespace

TEST_F(ChangedCamera, IsToldWithItsSensorBeforeAnythingIsRestored)
{
    Camera& camera = openRebooting(kResized);
    EXPECT_EQ(camera.grab(planOf(1)).rows(), kRows);
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_EQ(kinds(), (std::vector<EventKind>{EventKind::ReadoutEnded, EventKind::LinkLost,
                                               EventKind::LinkRestored, EventKind::CameraChanged,
                                               EventKind::SettingsRestored}));
    EXPECT_EQ(told(EventKind::CameraChanged)[0].text,
              "its sensor has 40 x 32 pixels, before 96 x 64 pixels");
    EXPECT_STREQ(nameOf(EventKind::CameraChanged), "camera-changed");
    EXPECT_EQ(toldSensor_, kSmall);
    EXPECT_EQ(camera.sensor(), kSmall);
    expectWhole(camera.grab(planOf(1)), kSmall);
    EXPECT_THAT(camera.flight(), HasSubstr("its sensor has 40 x 32 pixels"));
}

TEST_F(ChangedCamera, HasNoAreaThatDoesNotFit)
{
    Camera& camera = openRebooting(kResized);
    camera.set("area", "0,0,96,64");
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_THAT(told(EventKind::SettingsRestored)[0].text, HasSubstr("area"));
    expectWhole(camera.grab(planOf(1)), kSmall);
    Plan plan = planOf(1);
    plan.area = Area{0, 0, 96, 64};
    EXPECT_THAT(errorOf([&] { camera.grab(plan); }).what(), HasSubstr("40 x 32"));
    EXPECT_EQ(errorOf([&] { camera.set("area", "0,0,41,1"); }).kind(), ErrorKind::Usage);
}

TEST_F(ChangedCamera, KeepsAnAreaThatFits)
{
    Camera& camera = openRebooting(kResized);
    camera.set("area", "4,8,16,12");
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_EQ(told(EventKind::SettingsRestored)[0].text, "");
    const Frame frame = camera.grab(planOf(1));
    EXPECT_EQ(frame.facts().area, (Area{4, 8, 16, 12}));
    EXPECT_EQ(frame.rows(), 12);
    EXPECT_EQ(frame.sum(), sumOf(1, 1).value());
}

TEST_F(ChangedCamera, TakesNothingOfAPlanThatRanBefore)
{
    Camera& camera = openRebooting(kResized);
    camera.set("area", "0,0,90,60");
    Plan plan = planOf(0, 5ms);
    plan.area = Area{0, 0, 80, 50};
    Stream stream = camera.stream(plan);
    const Error error = errorOf([&] {
        while (const auto frame = stream.next(kPatience)) {
            EXPECT_EQ(frame->columns(), 80);
        }
    });
    EXPECT_EQ(error.kind(), ErrorKind::LinkLost);
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    const Frame frame = camera.grab(planOf(1));
    EXPECT_EQ(frame.facts().readout, 2u);
    expectWhole(frame, kSmall);
}

TEST_F(ChangedCamera, IsNotToldOfOneThatIsAsItWas)
{
    Camera& camera = openRebooting("reboot");
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_TRUE(told(EventKind::CameraChanged).empty());
    expectWhole(camera.grab(planOf(1)), {kColumns, kRows});
}

// The rows of the sensor are at byte 42 of the answer.
TEST_F(ChangedCamera, IsNotToldOfAnAnswerThatWasDamaged)
{
    Camera& camera = openRebooting("reboot", {"flip-payload:id=0x64,connection=2,bit=339"});
    ASSERT_TRUE(await(EventKind::SettingsRestored));
    EXPECT_TRUE(told(EventKind::CameraChanged).empty());
    EXPECT_EQ(camera.sensor().rows, kRows);
    EXPECT_EQ(sim_->Statistics().faults, 2u) << "an answer was damaged";
}

TEST_F(ChangedCamera, IsToldWithItsNameWhereAnotherOneTakesItsPlace)
{
    options_.serial = 7;
    Camera& camera = open();
    listen();
    const Identity& before = camera.identity();
    sim_.reset();
    ASSERT_TRUE(await(EventKind::LinkLost));
    options_.serial = 8;
    options_.port = port_;
    start();
    ASSERT_TRUE(await(EventKind::CameraChanged));
    EXPECT_EQ(told(EventKind::CameraChanged)[0].text,
              "it is vxcamsim with serial number 8, before vxcamsim with serial number 7");
    EXPECT_EQ(camera.identity().serial, "8");
    EXPECT_EQ(before.serial, "7") << "what an application looks at stays";
    EXPECT_EQ(camera.grab(planOf(1)).facts().serial, "8");
}

#include "kit_support.h"

#include <vxcamkit/cooler.h>

#include <atomic>
#include <cmath>
#include <future>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class Coolers : public KitCamera
{
protected:
    void TearDown() override
    {
        camera_.reset();
        sim_.reset();
    }

    // Runs an action on the camera's side whenever an order to cool to this target arrives, before
    // the camera obeys it.
    Camera& openWatched(double target, const std::function<void(Cooler&)>& action)
    {
        options_.heartbeatSeconds = 0.01;
        options_.trace = true;
        options_.events = [=](const tsSimEvent& event) {
            Cooler* cooler = cooler_;
            const bool isOrder = event.text.find("SetCCDTargetTemp") != std::string::npos;
            if (isOrder && cooler && cooler->state().target == target) action(*cooler);
        };
        Camera& camera = open();
        cooler_ = &camera.cooler();
        return camera;
    }

    // Of the camera that is open, until the test ends.
    void countRefusals()
    {
        listening_ = camera_->onEvent([this](const Event& event) {
            if (event.kind == EventKind::CameraError) ++refusals_;
            if (event.kind == EventKind::Heartbeat) ++heartbeats_;
        });
    }

    Camera& openFast(const std::string& more = "")
    {
        return camera_.emplace(Camera::open("sim?sensor=8x8&scale=200&heartbeat=0.01" + more));
    }

    std::atomic<Cooler*> cooler_{nullptr};
    std::atomic<int> refusals_{0}, heartbeats_{0};
    Subscription listening_;
};

} // namespace

TEST_F(Coolers, CoolAndSettle)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = -20;
    cooling.ramp = 60;
    camera.cooler().cool(cooling);
    EXPECT_TRUE(camera.get("cooling").toBool());
    const auto state = camera.cooler().wait(kPatience);
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->phase, CoolingPhase::Settled) << state->text;
    EXPECT_NEAR(*state->temperature, -20, 0.6);
    EXPECT_NEAR(camera.get("target-temp").toDouble(), -20, 0.01);
}

TEST_F(Coolers, SayWhenATargetIsOutOfReach)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = -80;
    cooling.patience = 20s;
    camera.cooler().cool(cooling);
    const auto state = camera.cooler().wait(kPatience);
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->phase, CoolingPhase::Failed);
    EXPECT_THAT(state->text, HasSubstr("out of reach: the sensor stays at -"));
}

TEST_F(Coolers, WarmUpAndSwitchOff)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = -10;
    camera.cooler().cool(cooling);
    ASSERT_TRUE(camera.cooler().wait(kPatience).has_value());
    Warming warming;
    warming.ramp = 60;
    warming.target = 15;
    camera.cooler().warmUp(warming);
    const auto state = camera.cooler().wait(kPatience);
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->phase, CoolingPhase::Warm) << state->text;
    EXPECT_FALSE(camera.get("cooling").toBool());
}

// Whose camera goes through its patience between two temperatures.
TEST_F(Coolers, BearAFastClock)
{
    Camera& camera = camera_.emplace(Camera::open("sim?sensor=8x8&scale=1000&heartbeat=0.3"));
    Cooling cooling;
    cooling.target = -20;
    for (const double ramp : {0.0, 120.0}) {
        cooling.ramp = ramp;
        camera.cooler().cool(cooling);
        const auto cold = camera.cooler().wait(kPatience);
        ASSERT_TRUE(cold.has_value());
        EXPECT_EQ(cold->phase, CoolingPhase::Settled) << cold->text;
        Warming warming;
        warming.ramp = 60;
        warming.target = 15;
        camera.cooler().warmUp(warming);
        const auto warm = camera.cooler().wait(kPatience);
        ASSERT_TRUE(warm.has_value());
        EXPECT_EQ(warm->phase, CoolingPhase::Warm);
        EXPECT_GT(*warm->temperature, 14);
    }
}

TEST_F(Coolers, SayWhatIsOutOfReachAlsoWithAFastClock)
{
    Camera& camera = camera_.emplace(Camera::open("sim?sensor=8x8&scale=1000&heartbeat=0.1"));
    Cooling cooling;
    cooling.target = -80;
    camera.cooler().cool(cooling);
    const auto state = camera.cooler().wait(kPatience);
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->phase, CoolingPhase::Failed);
    EXPECT_THAT(state->text, HasSubstr("out of reach: the sensor stays at -"));
}

TEST_F(Coolers, WarmUpBeforeTheCameraIsClosed)
{
    options_.timeScale = 1000;
    options_.heartbeatSeconds = 0.02;
    Warming warming;
    warming.target = 15;
    for (const bool isAsked : {true, false}) {
        std::vector<CoolingState> told;
        {
            Camera& camera = open();
            Cooling cooling;
            cooling.target = -10;
            cooling.settle = 10ms; // of this host: it does not know the camera's clock
            camera.cooler().warmUpBeforeClose(warming, kPatience,
                                              [&](const auto& state) { told.push_back(state); });
            if (!isAsked) camera.cooler().warmUpBeforeClose(std::nullopt);
            camera.cooler().cool(cooling);
            ASSERT_TRUE(camera.cooler().wait(kPatience).has_value());
            camera_.reset(); // as close()
        }
        EXPECT_EQ(told.empty(), !isAsked);
        if (isAsked) {
            EXPECT_EQ(told.front().phase, CoolingPhase::WarmingUp);
            EXPECT_EQ(told.back().phase, CoolingPhase::Warm);
            EXPECT_GT(*told.back().temperature, 14.5);
        }
        camera_.emplace(Camera::open(place()));
        EXPECT_EQ(camera_->get("cooling").toBool(), !isAsked);
        camera_.reset();
    }
}

TEST_F(Coolers, WarmUpNoLongerThanACloseMayTake)
{
    Camera& camera = openFast();
    camera.set("cooling", true);
    Warming warming;
    warming.ramp = 0.01;
    std::vector<CoolingState> told;
    camera.cooler().warmUpBeforeClose(warming, 100ms,
                                      [&](const auto& state) { told.push_back(state); });
    camera.set("target-temp", -10);
    ASSERT_TRUE(waitUntil([&] { return camera.get("ccd-temp").toDouble() < -9; }));
    camera.close();
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back().phase, CoolingPhase::WarmingUp);
    warming.ramp = -1;
    EXPECT_EQ(errorOf([&] { camera.cooler().warmUpBeforeClose(warming); }).kind(),
              ErrorKind::Usage);
}

TEST_F(Coolers, WarmUpBeforeACloseWhateverIsThrownAtThem)
{
    Camera& camera = openFast();
    camera.set("cooling", true);
    Warming warming;
    warming.ramp = 0.01;
    int told = 0;
    camera.cooler().warmUpBeforeClose(warming, 100ms, [&](const auto&) {
        if (++told % 2 == 0) throw std::runtime_error("no more");
        throw told;
    });
    camera.set("target-temp", -10);
    ASSERT_TRUE(waitUntil([&] { return camera.get("ccd-temp").toDouble() < -9; }));
    camera_.reset();
    EXPECT_GT(told, 1);
}

TEST_F(Coolers, RefuseWhatIsImpossible)
{
    Camera& camera = openFast();
    std::vector<Cooling> wrong(6);
    wrong[0].target = -300;
    wrong[1].target = NAN;
    wrong[2].ramp = -1;
    wrong[3].tolerance = 0;
    wrong[4].settle = -1ms;
    wrong[5].patience = 0ms;
    for (size_t i = 0; i < wrong.size(); ++i) {
        EXPECT_EQ(errorOf([&] { camera.cooler().cool(wrong[i]); }).kind(), ErrorKind::Usage) << i;
    }
    EXPECT_EQ(camera.cooler().state().phase, CoolingPhase::Idle);
}

TEST_F(Coolers, GoOnWhereANewTargetIsRefused)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = -20;
    camera.cooler().cool(cooling);
    countRefusals();
    cooling.target = 100; // more than the camera takes
    EXPECT_EQ(errorOf([&] { camera.cooler().cool(cooling); }).kind(), ErrorKind::Camera);
    const auto state = camera.cooler().wait(kPatience);
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->phase, CoolingPhase::Settled) << state->text;
    EXPECT_NEAR(state->target, -20, 0.01);
    EXPECT_NEAR(camera.get("target-temp").toDouble(), -20, 0.01);
    EXPECT_TRUE(waitUntil([&] { return refusals_ > 0; }));
    EXPECT_EQ(refusals_, 1);
}

TEST_F(Coolers, ATargetThatIsRefusedAtFirstIsNotSentAgain)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = 100;
    countRefusals();
    EXPECT_EQ(errorOf([&] { camera.cooler().cool(cooling); }).kind(), ErrorKind::Camera);
    EXPECT_EQ(camera.cooler().state().phase, CoolingPhase::Idle);
    EXPECT_TRUE(waitUntil([&] { return refusals_ > 0; }));
    heartbeats_ = 0;
    EXPECT_TRUE(waitUntil([&] { return heartbeats_ > 20; })) << "time for many more orders";
    EXPECT_EQ(refusals_, 1);
}

TEST_F(Coolers, AreStoppedWhileANewTargetIsBeingRefused)
{
    Camera& camera = openWatched(100, [](Cooler& cooler) { cooler.stop(); });
    Cooling cooling;
    cooling.target = -20;
    camera.cooler().cool(cooling);
    cooling.target = 100;
    EXPECT_EQ(errorOf([&] { camera.cooler().cool(cooling); }).kind(), ErrorKind::Camera);
    EXPECT_EQ(camera.cooler().state().phase, CoolingPhase::Idle);
}

TEST_F(Coolers, GiveAnOrderLaterThatTheLinkPreventsAtFirst)
{
    std::atomic<int> orders{0};
    Camera& camera = openWatched(-20, [&](Cooler&) {
        if (++orders == 1) sim_->Inject(ParseSimFault("reboot:seconds=0.1"));
    });
    Cooling cooling;
    cooling.target = -20;
    EXPECT_THROW(camera.cooler().cool(cooling), Error);
    ASSERT_TRUE(waitUntil([&] { return orders > 1; }));
    EXPECT_TRUE(waitUntil([&] { return camera.get("cooling").toBool(); }));
    EXPECT_NEAR(camera.get("target-temp").toDouble(), -20, 0.01);
}

TEST_F(Coolers, GiveAnOrderLaterAlsoWhereANewTargetIsRefusedMeanwhile)
{
    std::atomic<int> orders{0};
    Camera& camera = openWatched(-20, [&](Cooler&) {
        if (++orders == 1) sim_->Inject(ParseSimFault("reboot:seconds=0.1"));
    });
    countRefusals();
    Cooling cooling;
    cooling.target = -20;
    EXPECT_THROW(camera.cooler().cool(cooling), Error);
    ASSERT_TRUE(waitUntil([&] { return camera.statistics().reconnects > 0; }));
    ASSERT_TRUE(camera.waitForLink(kPatience));
    heartbeats_ = 0;
    ASSERT_TRUE(waitUntil([&] { return heartbeats_ > 0; }));
    cooling.target = 100;
    EXPECT_EQ(errorOf([&] { camera.cooler().cool(cooling); }).kind(), ErrorKind::Camera);
    ASSERT_TRUE(waitUntil([&] { return orders > 1; }));
    EXPECT_TRUE(waitUntil([&] { return camera.get("cooling").toBool(); }));
    EXPECT_NEAR(camera.get("target-temp").toDouble(), -20, 0.01);
}

TEST_F(Coolers, WaitingEndsWithTheCamera)
{
    Camera& camera = openFast();
    Cooling cooling;
    cooling.target = -20;
    cooling.ramp = 0.01;
    camera.cooler().cool(cooling);
    auto error = std::async(std::launch::async, [&] {
        return errorOf([&] { camera.cooler().wait(kPatience); }).kind();
    });
    std::this_thread::sleep_for(20ms);
    camera.close();
    EXPECT_EQ(error.get(), ErrorKind::Aborted);
    EXPECT_EQ(errorOf([&] { camera.cooler().cool(cooling); }).kind(), ErrorKind::Aborted);
}

TEST_F(Coolers, SayWhenTheCoolerFails)
{
    Camera& camera = openFast("&fault=cooler-failure:time=0.3");
    Cooling cooling;
    cooling.target = -20;
    cooling.patience = 30s;
    camera.cooler().cool(cooling);
    ASSERT_TRUE(waitUntil([&] { return camera.cooler().state().phase == CoolingPhase::Failed; }));
    EXPECT_THAT(camera.cooler().state().text, HasSubstr("out of reach"));
}

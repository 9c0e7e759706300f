// vxcam trigger: triggers for a camera that another run of the program has.
#include "failure.h"
#include "tcSimServer.h"
#include "tcTriggerHook.h"
#include "tool_support.h"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string Unique(const std::string& name)
{
    return name + "-" + std::to_string(::getpid());
}

// What a call fails with.
int CodeOf(const std::function<void()>& call, std::string* text = nullptr)
{
    try {
        call();
    } catch (const tcFailure& failure) {
        if (text != nullptr) *text = failure.what();
        return failure.Code();
    }
    return 0;
}

// What a hook was told.
struct tsTold {
    std::mutex lock;
    std::vector<bool> all;

    void Add(bool active)
    {
        std::lock_guard<std::mutex> guard(lock);
        all.push_back(active);
    }
    std::vector<bool> All()
    {
        std::lock_guard<std::mutex> guard(lock);
        return all;
    }
};

} // namespace

TEST(Trigger, EachOneTakesAFrameOfAGrabThatWaits)
{
    tsSimOptions options;
    options.columns = 64;
    options.rows = 64;
    options.heartbeatSeconds = 0.05;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun set({"set", target, "trigger-mode=frame"});
    ASSERT_EQ(set.Exit(), 0) << set.Errors();

    tcFolder folder;
    tcRun::tsHow how;
    how.folder = folder.Path();
    tcRun grab({"grab", target, "-e", "1ms", "--frames", "2"}, how);
    const auto triggered = [&] {
        tcRun trigger({"trigger", target});
        return trigger.Exit() == 0 && trigger.Output() == target + ": triggered\n";
    };
    ASSERT_TRUE(WaitUntil(triggered, gnRunPatience)) << grab.Errors();
    const std::vector<std::string> first{"frame-0001.fits"};
    EXPECT_TRUE(WaitUntil([&] { return folder.Names() == first; }, gnRunPatience));
    const auto goesOn = [&] {
        triggered();
        return folder.Names() != first;
    };
    EXPECT_TRUE(WaitUntil(goesOn, gnRunPatience));
    EXPECT_EQ(grab.Exit(), 0) << grab.Errors();
    EXPECT_THAT(folder.Names(), ElementsAre("frame-0001.fits", "frame-0002.fits"));
}

TEST(Trigger, ACameraThatNobodyReadsOutIsNoCamera)
{
    tcRun run({"trigger", "127.0.0.1:1"});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_EQ(run.Errors(), "vxcam: 127.0.0.1:1: no vxcam grab of yours reads this camera out\n");
    tcRun sim({"trigger", "sim"});
    EXPECT_EQ(sim.Exit(), 1);
    tcRun none({"trigger"});
    EXPECT_EQ(none.Exit(), 1);
}

TEST(Trigger, IsActiveForItsTime)
{
    const std::string target = "127.0.0.1:" + std::to_string(::getpid());
    std::mutex lock;
    std::vector<std::chrono::steady_clock::time_point> times;
    tcTriggerHook hook(target, [&](bool) {
        std::lock_guard<std::mutex> guard(lock);
        times.push_back(std::chrono::steady_clock::now());
    });
    tcRun run({"trigger", target, "--for", "300ms", "-q"});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(run.Output(), "");
    std::lock_guard<std::mutex> guard(lock);
    ASSERT_EQ(times.size(), 2u);
    EXPECT_GE(times[1] - times[0], std::chrono::milliseconds(300));
}

TEST(Trigger, IsInactiveAgainWhenItIsInterrupted)
{
    const std::string target = "127.0.0.1:" + std::to_string(::getpid());
    tsTold told;
    tcTriggerHook hook(target, [&](bool active) { told.Add(active); });
    tcRun run({"trigger", target, "--for", "1h"});
    EXPECT_TRUE(WaitUntil([&] { return told.All().size() == 1; }, gnRunPatience));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_TRUE(WaitUntil([&] { return told.All().size() == 2; }, gnRunPatience));
    EXPECT_THAT(told.All(), ElementsAre(true, false));
}

TEST(Trigger, WhatTheCameraRefusesIsTold)
{
    const std::string name = Unique("refuses");
    tcTriggerHook hook(name, [](bool) { throw std::runtime_error("no such thing"); });
    tcTriggerCall call(name);
    std::string text;
    EXPECT_EQ(CodeOf([&] { call.Set(true); }, &text), eExitCamera);
    EXPECT_EQ(text, "no such thing");
}

TEST(Trigger, CallersAreToldThatTheGrabHasEnded)
{
    const std::string name = Unique("ends");
    auto hook = std::make_unique<tcTriggerHook>(name, [](bool) {});
    tcTriggerCall call(name);
    call.Set(true);
    hook.reset();
    EXPECT_EQ(CodeOf([&] { call.Set(false); }), eExitTimeout);
    EXPECT_EQ(CodeOf([&] { tcTriggerCall late(name); }), eExitNoCamera);
}

TEST(Trigger, TheFirstOfTwoGrabsHasTheName)
{
    const std::string name = Unique("twice");
    tsTold first, second;
    tcTriggerHook one(name, [&](bool active) { first.Add(active); });
    {
        tcTriggerHook other(name, [&](bool active) { second.Add(active); });
    }
    tcTriggerCall call(name);
    call.Set(true);
    EXPECT_THAT(first.All(), ElementsAre(true));
    EXPECT_THAT(second.All(), ElementsAre());
}

TEST(Trigger, OfLongNamesTheEndCounts)
{
    const std::string start = Unique(std::string(200, 'h')) + ":";
    tsTold first, second;
    tcTriggerHook one(start + "1000", [&](bool active) { first.Add(active); });
    tcTriggerHook other(start + "1001", [&](bool active) { second.Add(active); });
    tcTriggerCall call(start + "1001");
    call.Set(true);
    EXPECT_THAT(first.All(), ElementsAre());
    EXPECT_THAT(second.All(), ElementsAre(true));
}

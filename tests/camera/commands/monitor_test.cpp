// The thread that times requests out, and no-operation messages.
#include "requests_support.h"
#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

using std::chrono::milliseconds;

// ---- Monitor thread

TEST(Monitor, TimesOutByItself)
{
    tcTestCamera camera(tcVXCamera::teMonitor::eRun);
    camera.OverrideImageTimout(150);
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.ReadCCDArea(nullptr, 1, 0), 0);
    ASSERT_TRUE(Eventually([&] { return VXisCameraReady(camera.GetHandle()) == 0; }));
    EXPECT_GE(SecondsSince(start), 0.05);
    EXPECT_TRUE(camera.Logged(ErrorRecord("tcVXCamera::MonitorStack Timing Out ID 6")));
}

TEST(Monitor, SaysThatItStarted)
{
    setenv("VXCAM1_DEBUGLEVEL", "4", 1);
    static auto* recorder = new tcRecorder;
    tcLog::mpDefaultConsumer = recorder;
    tcTestCamera camera(tcVXCamera::teMonitor::eRun);
    const auto wanted = DebugRecord(4, "tcVXCamera::MonitorStack Entered");
    EXPECT_TRUE(Eventually([&] {
        const auto records = recorder->Records();
        return camera.Logged(wanted) || std::count(records.begin(), records.end(), wanted) == 1;
    }));
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
}

TEST(Monitor, EndsWithTheCamera)
{
    int quick = 0;
    for (int i = 0; i < 50; ++i) {
        const auto start = steady_clock::now();
        {
            tcTestCamera camera(tcVXCamera::teMonitor::eRun);
            camera.InitReqStackItem(eItemTrigger, 1);
        }
        if (SecondsSince(start) < 0.08) ++quick;
    }
    EXPECT_GE(quick, 10) << "one that sleeps looks after 100 ms";
}

TEST(Monitor, ThatDoesNotEndIsReportedOnceAndWaitedFor)
{
    const auto wanted = ErrorRecord("~tcVXCamera unable to kill monitor thread");
    std::atomic<bool> stuck{false};
    size_t seen = 0;
    {
        tcTestCamera camera(tcVXCamera::teMonitor::eRun);
        camera.EnableNoOps(1000, 1); // due for renewal by one of the next ticks
        camera.SetScript([&](const tsSentMessage&) {
            if (stuck.exchange(true)) return;
            EXPECT_TRUE(Eventually([&] { return camera.Logged(wanted); }));
            std::this_thread::sleep_for(milliseconds(250)); // two more checks
            seen = camera.Count(wanted);
        });
        ASSERT_TRUE(Eventually([&] { return stuck.load(); }));
    }
    EXPECT_EQ(seen, 1U);
}

// ---- No-operation messages

TEST(NoOps, AreAskedForWithCountAndInterval)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.EnableNoOps(250, 40), 0);
    EXPECT_EQ(camera.LastSent().id, 0x5DU);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(40).U32(250).Take());
    EXPECT_TRUE(camera.Logged(DebugRecord(1, "EnableNoOps 40 messages at 250 ms per message")));
    camera.RefuseToSend(true);
    EXPECT_EQ(camera.EnableNoOps(250, 40), -1);
}

TEST(NoOps, AreRenewedBeforeTheyRunOut)
{
    tcTestCamera camera;
    camera.EnableNoOps(100, 10); // 1000 ms
    camera.Tick(4);
    EXPECT_EQ(camera.SentCount(), 1U);
    camera.Tick(); // 500 ms are left
    EXPECT_EQ(camera.SentCount(), 2U);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(10).U32(100).Take());
    EXPECT_EQ(camera.Count(DebugRecord(1, "EnableNoOps 10 messages at 100 ms per message")), 2U);
    camera.Tick(4);
    EXPECT_EQ(camera.SentCount(), 2U);
    camera.Tick();
    EXPECT_EQ(camera.SentCount(), 3U);
}

TEST(NoOps, OfCountZeroEnd)
{
    tcTestCamera camera;
    camera.Tick(20);
    EXPECT_EQ(camera.SentCount(), 0U) << "none are asked for from the start";
    camera.EnableNoOps(100, 6);
    camera.Tick();
    EXPECT_EQ(camera.SentCount(), 2U);
    camera.EnableNoOps(100, 0);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(0).U32(100).Take());
    camera.Tick(100);
    EXPECT_EQ(camera.SentCount(), 3U);
}

TEST(NoOps, SurviveLargeSeries)
{
    tcTestCamera camera;
    camera.EnableNoOps(INT_MAX, INT_MAX);
    camera.Tick(100);
    EXPECT_EQ(camera.SentCount(), 1U);
}

TEST(NoOps, ThatEndWhileTheyAreRenewedStayEnded)
{
    tcTestCamera camera;
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> stop{false};
        camera.EnableNoOps(1, 1); // renewed by every tick
        std::thread monitor([&] {
            while (!stop) {
                camera.Tick();
            }
        });
        camera.EnableNoOps(0, 0);
        stop = true;
        monitor.join();
        camera.ForgetSent();
        camera.Tick(3);
        ASSERT_EQ(camera.SentCount(), 0U) << round;
    }
}

// Waiting until nothing is pending any more.
#include "requests_support.h"
#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

TEST(WaitCompletion, WithNothingPendingReturnsAtOnce)
{
    tcTestCamera camera;
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.WaitCompletion(60000), 0);
    EXPECT_EQ(camera.WaitCompletion(0), 0);
    EXPECT_EQ(camera.WaitCompletion(-1), 0);
    EXPECT_EQ(camera.WaitCompletion(INT_MAX), 0);
    EXPECT_LT(SecondsSince(start), Within(3.0));
    EXPECT_EQ(camera.Count(DebugRecord(4, "tcVXCamera::WaitCompletion Entered")), 4U);
    EXPECT_TRUE(camera.Errors().empty());
}

TEST(WaitCompletion, OfZeroSleepsOnceAndTimesEverythingOut)
{
    for (int timeout : {0, -1, INT_MIN}) {
        tcTestCamera camera;
        camera.InitReqStackItem(eItemCooling, 1);
        camera.InitReqStackItem(eItemImage16, 1);
        camera.InitReqStackItem(eItemTrigger, 3);
        const auto start = steady_clock::now();
        EXPECT_EQ(camera.WaitCompletion(timeout), -2);
        EXPECT_GE(SecondsSince(start), 0.0199);
        EXPECT_LT(SecondsSince(start), Within(3.0));
        EXPECT_EQ(camera.numOpsPending(), 0);
        EXPECT_EQ(camera.Errors(), (std::vector<std::string>{"WaitCompletion timeout event!",
                                                             "WaitCompletion timing out 1",
                                                             "WaitCompletion timing out 6",
                                                             "WaitCompletion timing out 22"}));
    }
}

TEST(WaitCompletion, WaitsInStepsOf20)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemCooling, 1);
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.WaitCompletion(50), -2);
    EXPECT_GE(SecondsSince(start), 0.0599);
}

TEST(WaitCompletion, ThatTimesOutForgetsTheResultVariables)
{
    tcTestCamera camera;
    int value = 4711;
    int result = 0;
    std::thread caller([&] { result = camera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    EXPECT_EQ(camera.WaitCompletion(0), -2);
    caller.join();
    EXPECT_EQ(result, -2) << "the getter's item is timed out";
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
    EXPECT_EQ(camera.WaitCompletion(0), 0);
}

TEST(WaitCompletion, WakesAsSoonAsTheLastRequestEnds)
{
    tcTestCamera camera;
    tcWorker receiver;
    int quick = 0;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(camera.ReadCCDArea(nullptr, 1, 0), 0);
        const auto start = steady_clock::now();
        receiver.Post([&camera] {
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // it waits by now
            camera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0));
        });
        ASSERT_EQ(camera.WaitCompletion(10000), 0);
        if (SecondsSince(start) < 0.018) ++quick;
    }
    EXPECT_GE(quick, 20) << "with polls of 20 ms none would be";
}

TEST(WaitCompletion, ReturnsBehindTheCallbackOfTheFinishedReadout)
{
    static std::atomic<bool> returned;
    tcTestCamera camera;
    camera.SetImageDataCallback([](int, tsImageData*) {
        for (int i = 0; i < 20; ++i) {
            std::this_thread::yield();
        }
        returned = true;
    });
    tcWorker receiver;
    for (int i = 0; i < 100; ++i) {
        returned = false;
        camera.ReadCCDArea(nullptr, 1, 0);
        receiver.Post(
            [&camera] { camera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0)); });
        ASSERT_EQ(camera.WaitCompletion(10000), 0);
        ASSERT_TRUE(returned);
    }
}

TEST(WaitCompletion, EndsWithTheMonitorsTimeout)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    std::thread monitor([&] { camera.Tick(100); });
    EXPECT_EQ(camera.WaitCompletion(20000), 0) << "a timed-out item counts as answered";
    monitor.join();
}

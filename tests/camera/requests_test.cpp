#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <future>
#include <optional>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

const char* const gaRefused = "%s would wait for the thread it was called on";

// Ticks until nothing is pending; how many that took.
int TicksUntilIdle(tcTestCamera& camera, int most)
{
    for (int ticks = 0; ticks < most; ++ticks) {
        if (camera.numOpsPending() == 0) return ticks;
        camera.Tick();
    }
    return most;
}

tcMessage TriggerRequest()
{
    return tcMessage(cmdGetTrigger.id, {});
}

double SecondsSince(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

} // namespace

// ---- Arming

TEST(RequestItem, CanBeArmedOnceUntilItIsAnswered)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), -1);
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
}

TEST(RequestItem, CountsSeveralAnswers)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 3), 0);
    EXPECT_EQ(camera.numOpsPending(), 3);
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.numOpsPending(), 2);
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), -1);
}

TEST(RequestItem, OutsideTheStackIsRefused)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(-1, 1), -1);
    EXPECT_EQ(camera.InitReqStackItem(35, 1), -1);
    EXPECT_EQ(camera.InitReqStackItem(INT_MAX, 1), -1);
    EXPECT_EQ(camera.numOpsPending(), 0);
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), 35, nullptr, nullptr, 1), -1);
    EXPECT_EQ(camera.SentCount(), 0U);
}

TEST(RequestItem, EveryItemStartsIdleAndCanBeArmed)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.numOpsPending(), 0);
    for (int item = 0; item < 35; ++item) {
        EXPECT_EQ(camera.InitReqStackItem(item, 1), 0) << item;
    }
    EXPECT_EQ(camera.numOpsPending(), 35);
}

TEST(RequestItem, PendingOnesAreLoggedWithTheirNumberAndCount)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 2);
    camera.InitReqStackItem(eItemCooling, 1);
    camera.ForgetRecords();
    EXPECT_EQ(camera.numOpsPending(), 3);
    EXPECT_EQ(camera.Records(),
              (std::vector<tsLogRecord>{DebugRecord(21, "Command 1 has 1 requests pending"),
                                        DebugRecord(21, "Command 22 has 2 requests pending")}));
}

// ---- Time-outs

TEST(RequestTimeout, EveryItemEndsAfterItsTime)
{
    for (int item = 0; item < gnItems; ++item) {
        int want = 200; // ticks
        if (item <= 5 || item == 10 || item == 14 || item == 15 || (item >= 19 && item <= 28) ||
            item >= 30) {
            want = 100;
        }
        if (item == 11 || item == 12) want = 50;
        if (item == 13) want = 30;
        tcTestCamera camera;
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), want) << item;
    }
}

TEST(RequestTimeout, OfImagesGrowsWithTheExposureHoweverItIsLearnt)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.SetExposure(5000);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 250) << item;
        camera.SetExposureEx(1000);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 210) << item;
        camera.Feed(0x60, tcPayload().U32(3000));
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 230) << item;
    }
}

TEST(RequestTimeout, SurvivesAbsurdExposures)
{
    tcTestCamera camera;
    camera.SetExposure(LONG_MAX);
    camera.InitReqStackItem(6, 1);
    camera.Tick(2000);
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.AbortRead();
    camera.SetExposure(LONG_MIN);
    camera.InitReqStackItem(6, 1);
    EXPECT_EQ(TicksUntilIdle(camera, 1000), 200);
}

TEST(RequestTimeout, OfImagesIsTheOverrideWhenThereIsOne)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.SetExposure(5000);
        EXPECT_EQ(camera.OverrideImageTimout(700), 0);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 7) << item;
        camera.OverrideImageTimout(0);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 250) << item;
    }
}

TEST(RequestTimeout, OfAnOverrideOf150TakesTwoTicks)
{
    tcTestCamera camera;
    camera.OverrideImageTimout(150);
    camera.InitReqStackItem(6, 1);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(RequestTimeout, ANegativeOverrideMeansNone)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.OverrideImageTimout(-1);
        camera.InitReqStackItem(item, 1);
        camera.Tick(36000); // one hour
        EXPECT_EQ(camera.numOpsPending(), 1) << item;
    }
}

TEST(RequestTimeout, OverrideDoesNotConcernOtherItems)
{
    tcTestCamera camera;
    camera.OverrideImageTimout(100);
    camera.InitReqStackItem(eItemTrigger, 1);
    EXPECT_EQ(TicksUntilIdle(camera, 1000), 100);
}

TEST(RequestTimeout, IsAnErrorRecordWithTheItemInHexadecimal)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    camera.Tick(100);
    EXPECT_EQ(camera.Errors(),
              std::vector<std::string>{"tcVXCamera::MonitorStack Timing Out ID 16"});
    camera.Tick(100);
    EXPECT_EQ(camera.Errors().size(), 1U);
}

TEST(RequestTimeout, OfSeveralAnswersDrainsOneEveryTickWhileRealAnswersCountToo)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemLinkTest, 10000);
    camera.Tick(29);
    EXPECT_EQ(camera.numOpsPending(), 10000);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 9999);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 9998);
    camera.Feed(0x74, tcPayload().Fill(12, 0));
    EXPECT_EQ(camera.numOpsPending(), 9997);
    camera.Tick(10);
    EXPECT_EQ(camera.numOpsPending(), 9987);
}

TEST(RequestTimeout, AnAnswerInTimeIsNotTimedOut)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    camera.Tick(99);
    camera.Feed(0x7F, tcPayload().U32(1));
    camera.Tick(200);
    EXPECT_TRUE(camera.Errors().empty());
    EXPECT_EQ(camera.numOpsPending(), 0);
}

// ---- Send and wait

TEST(SendAndWait, StoresTheAnswerAndReturnsZero)
{
    tcTestCamera camera;
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(0xCAFE));
    auto message = TriggerRequest();
    long value = 0;
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), 0);
    EXPECT_EQ(value, 0xCAFE);
    EXPECT_EQ(camera.SentCount(), 1U);
    EXPECT_EQ(camera.LastSent().id, 0x59U);
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(SendAndWait, LogsTheArmedItem)
{
    tcTestCamera camera;
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(1));
    int value = 0;
    camera.GetTrigger(&value);
    camera.GetTrigger(&value);
    EXPECT_TRUE(
        camera.Logged(DebugRecord(4, "SendAndWait: Item = 22, respNeeded = 1, respCount = 0")));
    EXPECT_TRUE(
        camera.Logged(DebugRecord(4, "SendAndWait: Item = 22, respNeeded = 2, respCount = 1")));
}

TEST(SendAndWait, FillsBothResults)
{
    tcTestCamera camera;
    camera.AnswerTo(0x52, 0x7C, tcPayload().U32(5).U32(6));
    tcMessage message(0x52, {});
    long first = 0, second = 0;
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemMirroring, &first, &second, 1), 0);
    EXPECT_EQ(first, 5);
    EXPECT_EQ(second, 6);
}

TEST(SendAndWait, OnABusyItemSendsNothing)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    int value = 4711;
    EXPECT_EQ(camera.GetTrigger(&value), -1);
    EXPECT_EQ(camera.SentCount(), 0U);
    EXPECT_EQ(camera.SendAttempts(), 0U);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
}

TEST(SendAndWait, OfNoAnswersReturnsAtOnce)
{
    tcTestCamera camera;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, nullptr, nullptr, 0), 0);
    EXPECT_EQ(camera.SentCount(), 1U);
}

TEST(SendAndWait, ReturnsOnlyWithTheLastOfSeveralAnswers)
{
    tcTestCamera camera;
    std::atomic<bool> returned{false};
    int result = 1;
    long value = 0;
    auto message = TriggerRequest();
    std::thread caller([&] {
        result = camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 2);
        returned = true;
    });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.numOpsPending(), 1);
    EXPECT_FALSE(returned);
    camera.Feed(0x7F, tcPayload().U32(2));
    caller.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(value, 2);
}

TEST(SendAndWait, ThatTimesOutReturnsMinusTwoAndLateAnswersTouchNothing)
{
    tcTestCamera camera;
    int value = 4711;
    int result = 0;
    std::thread caller([&] { result = camera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    camera.Tick(100);
    caller.join();
    EXPECT_EQ(result, -2);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(SendAndWait, WorksAgainAfterATimeout)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) { camera.Tick(100); });
    int value = 4711;
    EXPECT_EQ(camera.GetTrigger(&value), -2);
    camera.SetScript(nullptr);
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(camera.GetTrigger(&value), 0);
    EXPECT_EQ(value, 3);
}

TEST(SendAndWait, WorksAgainAfterATimeoutWhereTheAnswerLeavesTheStatus)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) { camera.Tick(100); });
    EXPECT_EQ(camera.GetGPIO(), -2);
    camera.SetScript(nullptr);
    camera.AnswerTo(0x57, 0x7E, tcPayload().U32(3));
    EXPECT_EQ(camera.GetGPIO(), 3);
}

TEST(SendAndWait, KeepsItsTimeoutWhenASurplusAnswerComesBeforeTheCallerLooks)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) {
        camera.Tick(100);
        camera.Feed(0x7F, tcPayload().U32(9));
    });
    long value = 4711;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), -2);
    EXPECT_EQ(value, 4711);
}

TEST(SendAndWait, KeepsItsResultWhenTheItemIsArmedAgainBeforeTheCallerLooks)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) {
        camera.Feed(0x7F, tcPayload().U32(9));
        EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
    });
    long value = 0;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), 0);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.Feed(0x7F, tcPayload().U32(10));
    EXPECT_EQ(value, 9) << "the request armed behind it has no result variable";
}

TEST(SendAndWait, OfSeveralAnswersReturnsWhatTheLastOneLeft)
{
    // 0x7F marks its item as answered, 0x7E leaves the mark of the time-out.
    const std::pair<int, uint32_t> cases[] = {{eItemTrigger, 0x7F}, {eItemGPIO, 0x7E}};
    for (const auto& [item, answer] : cases) {
        tcTestCamera camera;
        const uint32_t id = answer;
        camera.SetScript([&camera, id](const tsSentMessage&) {
            camera.Tick(100);
            camera.Feed(id, tcPayload().U32(9));
        });
        tcMessage message(0x59, {});
        EXPECT_EQ(camera.SendAndWait(message.get(), item, nullptr, nullptr, 2),
                  answer == 0x7F ? 0 : -2);
    }
}

TEST(SendAndWait, ThatCannotSendEndsAtOnceWithAnErrorLine)
{
    tcTestCamera camera;
    camera.RefuseToSend(true);
    int value = 4711;
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.GetTrigger(&value), -2);
    EXPECT_LT(SecondsSince(start), 3.0);
    EXPECT_EQ(camera.Errors(), std::vector<std::string>{"SendAndWait could not send message 0x59"});
    EXPECT_EQ(camera.numOpsPending(), 0);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);

    camera.RefuseToSend(false);
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(camera.GetTrigger(&value), 0);
}

TEST(SendAndWait, WakesAsSoonAsTheAnswerIsThere)
{
    tcTestCamera camera;
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage& sent) {
        const uint32_t number = sent.header.SeqNo;
        receiver.Post([&camera, number] { camera.Feed(0x7F, tcPayload().U32(number)); });
    });
    const auto start = steady_clock::now();
    for (int i = 0; i < 200; ++i) {
        int value = -1;
        ASSERT_EQ(camera.GetTrigger(&value), 0);
        ASSERT_EQ(value, i);
    }
    EXPECT_LT(SecondsSince(start), 3.0) << "polls of 50 ms would take 5 to 10 s";
}

TEST(SendAndWait, OnTheReceiveThreadIsRefusedAtOnce)
{
    static tcTestCamera* camera;
    static std::vector<int> results;
    tcTestCamera own;
    camera = &own;
    results.clear();
    auto ask = [] {
        int value = 0;
        results.push_back(camera->GetTrigger(&value));
        results.push_back(camera->WaitCompletion(1000));
    };
    static auto sAsk = ask;
    own.SetHeartBeatCallback([](int, tsHeartBeatData*) { sAsk(); });
    own.SetErrorCallback([](int, unsigned char, unsigned char, char*) { sAsk(); });
    own.SetUserDefinedCallback([](int, void*, int) { sAsk(); });
    own.SetImageDataCallback([](int, tsImageData*) { sAsk(); });
    own.Feed(0x69, tcPayload().Fill(6, 0));
    own.Feed(0x75, tcPayload().Fill(3, 0));
    own.Feed(0xC0, {});
    own.Feed(0x66, tcPayload().U8(0).U8(0).U16(1).U16(1).Fill(10, 0));
    EXPECT_EQ(results, std::vector<int>(8, -1));
    EXPECT_EQ(own.SentCount(), 0U);
    char text[100];
    snprintf(text, sizeof text, gaRefused, "SendAndWait");
    EXPECT_EQ(own.Count(ErrorRecord(text)), 4U);
    snprintf(text, sizeof text, gaRefused, "WaitCompletion");
    EXPECT_EQ(own.Count(ErrorRecord(text)), 4U);

    own.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    int value = 0;
    EXPECT_EQ(own.GetTrigger(&value), 0) << "outside the callback it works again";
}

TEST(SendAndWait, InACallbackOfAnotherCameraWorks)
{
    static tcTestCamera* other;
    static int result;
    tcTestCamera first, second;
    other = &second;
    result = 1;
    second.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    first.SetUserDefinedCallback([](int, void*, int) {
        int value = 0;
        result = other->GetTrigger(&value);
    });
    first.Feed(0xC0, {});
    EXPECT_EQ(result, 0);
}

TEST(SendAndWait, FromManyThreadsGivesEachItsOwnAnswerOrRefusesIt)
{
    tcTestCamera camera;
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage&) {
        receiver.Post([&camera] { camera.Feed(0x7F, tcPayload().U32(77)); });
    });
    std::atomic<int> answered{0}, wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                int value = 0;
                const int result = camera.GetTrigger(&value);
                if (result == 0) ++answered;
                if (result == 0 ? value != 77 : (result != -1 || value != 0)) ++wrong;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_GT(answered, 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(camera.numOpsPending(), 0);
}

// ---- Wait for completion

TEST(WaitCompletion, WithNothingPendingReturnsAtOnce)
{
    tcTestCamera camera;
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.WaitCompletion(60000), 0);
    EXPECT_EQ(camera.WaitCompletion(0), 0);
    EXPECT_EQ(camera.WaitCompletion(-1), 0);
    EXPECT_EQ(camera.WaitCompletion(INT_MAX), 0);
    EXPECT_LT(SecondsSince(start), 3.0);
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
        EXPECT_LT(SecondsSince(start), 3.0);
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
    const auto start = steady_clock::now();
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(camera.ReadCCDArea(nullptr, 1, 0), 0);
        receiver.Post(
            [&camera] { camera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0)); });
        ASSERT_EQ(camera.WaitCompletion(10000), 0);
    }
    EXPECT_LT(SecondsSince(start), 1.5) << "polls of 20 ms would take 2 to 4 s";
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
    const auto start = steady_clock::now();
    for (int i = 0; i < 50; ++i) {
        tcTestCamera camera(tcVXCamera::teMonitor::eRun);
        camera.InitReqStackItem(eItemTrigger, 1);
    }
    EXPECT_LT(SecondsSince(start), 3.0);
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

// ---- Everything at once

TEST(Requests, RunBesideEachOther)
{
    tcTestCamera camera(tcVXCamera::teMonitor::eRun);
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage& sent) {
        const tsCommandRow* row = FindCommand(sent.id);
        if (row == nullptr || row->answer == nullptr || row->answer->delivery == eEvent) return;
        const uint32_t id = row->answer->id;
        receiver.Post([&camera, id] { camera.Feed(id, tcPayload().Fill(2100, 1)); });
    });
    std::atomic<int> failures{0};
    auto repeat = [&](auto operation) {
        return std::thread([&failures, operation] {
            for (int i = 0; i < 150; ++i) {
                if (operation() != 0) ++failures;
            }
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(repeat([&] {
        long value = 0;
        return camera.GetExposureTime(&value);
    }));
    threads.push_back(repeat([&] {
        int value = 0;
        return camera.GetTrigger(&value);
    }));
    threads.push_back(repeat([&] {
        unsigned char table[2048];
        int size = sizeof table;
        return camera.GetBinParam(1, table, &size);
    }));
    threads.push_back(repeat([&] { return camera.SetExposure(12); }));
    threads.push_back(repeat([&] { return camera.EnableNoOps(10, 10); }));
    threads.push_back(repeat([&] { return camera.numOpsPending() < 0; }));
    threads.push_back(repeat([&] {
        unsigned frame = 0;
        camera.PercentComplete(&frame);
        camera.OverrideImageTimout(30000);
        return camera.SetHeartBeatCallback(nullptr);
    }));
    for (int i = 0; i < 100; ++i) {
        camera.ReadCCDArea(nullptr, 1, 0);
        receiver.Post([&camera] {
            camera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0));
            camera.Feed(0x69, tcPayload().Fill(6, 1));
        });
        camera.AbortRead();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}

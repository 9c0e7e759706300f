#include "lifetime_support.h"
#include "log_support.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

// A gate that a delivery waits at.
class tcGate
{
public:
    void Arrive()
    {
        std::unique_lock<std::mutex> lock(mLock);
        mbArrived = true;
        mChanged.notify_all();
        mChanged.wait(lock, [this] { return mbOpen; });
    }
    void AwaitArrival()
    {
        std::unique_lock<std::mutex> lock(mLock);
        mChanged.wait(lock, [this] { return mbArrived; });
    }
    void Open()
    {
        const std::lock_guard<std::mutex> lock(mLock);
        mbOpen = true;
        mChanged.notify_all();
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mbArrived = false;
    bool mbOpen = false;
};

TEST(ConsumerLifetime, RetiringWithinADeliveryWaitsForItsEnd)
{
    tcLog log("WITHIN", 0);
    auto* consumer = new tcCounted;
    consumer->mHook = [&] {
        log.SetConsumer(nullptr);
        tcLog::RetireConsumer(consumer);
        EXPECT_EQ(1, tcCounted::snAlive);
    };
    log.SetConsumer(consumer);
    log.logEvent("x");
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, EachOfNestedDeliveriesKeepsItsOwnConsumer)
{
    tcLog outer("OUTER", 0), inner("INNER", 0);
    auto* first = new tcCounted;
    auto* second = new tcCounted;
    first->mHook = [&] {
        inner.logEvent("x");
        EXPECT_EQ(1, tcCounted::snAlive);
    };
    second->mHook = [&] {
        for (tcLog* log : {&outer, &inner})
            tcLog::RetireConsumer(log->SetConsumer(nullptr));
        EXPECT_EQ(2, tcCounted::snAlive);
    };
    outer.SetConsumer(first);
    inner.SetConsumer(second);
    outer.logEvent("x");
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, RetiringWaitsForDeliveriesOfOtherThreadsWithoutBlocking)
{
    tcLog log("BUSY", 0);
    auto* consumer = new tcCounted;
    tcGate gate;
    consumer->mHook = [&] { gate.Arrive(); };
    log.SetConsumer(consumer);
    std::thread other([&] { log.logEvent("x"); });
    gate.AwaitArrival();
    log.SetConsumer(nullptr);
    tcLog::RetireConsumer(consumer);
    EXPECT_EQ(1, tcCounted::snAlive);
    tcCounted own; // deliveries that start later neither wait nor hold it up
    log.SetConsumer(&own);
    log.logEvent("y");
    EXPECT_EQ(2, tcCounted::snAlive);
    gate.Open();
    other.join();
    EXPECT_EQ(1, tcCounted::snAlive);
    log.SetConsumer(nullptr);
}

TEST(ConsumerLifetime, DeliveriesToOtherConsumersHoldNothingUp)
{
    tcLog stuck("STUCK", 0), log("FREE", 0);
    tcGate gate;
    tcCounted own;
    own.mHook = [&] { gate.Arrive(); };
    stuck.SetConsumer(&own);
    std::thread other([&] { stuck.logEvent("x"); });
    gate.AwaitArrival();
    auto* consumer = new tcCounted;
    log.SetConsumer(consumer);
    log.logEvent("y");
    log.SetConsumer(nullptr);
    tcLog::RetireConsumer(consumer);
    EXPECT_EQ(1, tcCounted::snAlive);
    gate.Open();
    other.join();
}

// More deliveries at a time than there are slots for their consumers.
TEST(ConsumerLifetime, HoldsWhileVeryManyDeliveriesAreUnderWay)
{
    constexpr int nDepth = 100;
    tcLog outer("MANY", 0), inner("ONE", 0);
    tcCounted own;
    auto* consumer = new tcCounted;
    int depth = 0;
    own.mHook = [&] {
        if (++depth < nDepth)
            outer.logEvent("deeper");
        else
            inner.logEvent("deepest");
    };
    consumer->mHook = [&] {
        inner.SetConsumer(nullptr);
        tcLog::RetireConsumer(consumer);
        EXPECT_EQ(2, tcCounted::snAlive);
    };
    outer.SetConsumer(&own);
    inner.SetConsumer(consumer);
    outer.logEvent("x");
    EXPECT_EQ(nDepth, depth);
    EXPECT_EQ(1, tcCounted::snAlive);
    outer.SetConsumer(nullptr);
}

TEST(ConsumerLifetime, TakingItIntoUseAgainDuringTheWaitKeepsIt)
{
    tcLog log("AGAIN", 0);
    auto* consumer = new tcCounted;
    tcGate gate;
    consumer->mHook = [&] { gate.Arrive(); };
    log.SetConsumer(consumer);
    tcHeldConsumer held;
    std::thread other([&] { log.logEvent("x"); });
    gate.AwaitArrival();
    held = log.ExchangeConsumer(nullptr);
    tcLog::RetireConsumer(consumer);
    gate.Open();
    other.join();
    EXPECT_EQ(1, tcCounted::snAlive);
    held.reset();
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, HoldsUnderSynchronizedDelivery)
{
    tcLog::mbSynchronizeLogs = true;
    tcLog log("SYNC", 0);
    auto* consumer = new tcCounted;
    consumer->mHook = [&] {
        tcLog::AdoptConsumer(consumer);
        tcLog::RedirectAllLogs("buff:2");
        EXPECT_EQ(1, tcCounted::snAlive);
    };
    log.SetConsumer(consumer);
    log.logEvent("x");
    EXPECT_EQ(0, tcCounted::snAlive);
    tcLog::mbSynchronizeLogs = false;
    tcLog::RedirectAllLogs("null");
}

// Waits for what happens by itself.
static bool Eventually(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + Within(std::chrono::seconds(20));
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

TEST(ConsumerLifetime, HoldsWhileThreadsLogAndConsumersComeAndGo)
{
    const tcQuietErrors quiet;
    tcLog logs[3] = {{"STRESS0", 0}, {"STRESS1", 0}, {"STRESS2", 0}};
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&, i] {
            while (!done) {
                for (tcLog& log : logs)
                    log.logEvent("%d", i);
                logs[i].logError("%d", i);
                tcHeldConsumer held = logs[i].HeldConsumer();
                if (held) held->Description();
            }
        });
    }
    for (int i = 0; i < 400; ++i) {
        auto* consumer = new tcCounted;
        tcLog::AdoptConsumer(consumer);
        for (tcLog& log : logs) {
            tcHeldConsumer replaced = log.ExchangeConsumer(consumer);
            if (replaced.get() != consumer) tcLog::RetireConsumer(replaced.get());
        }
        if (i == 0) { // from here on the writers are known to run
            EXPECT_TRUE(Eventually([] { return tcCounted::snOutputs > 0; }));
        }
        if (i % 4 == 0) tcLog::RedirectAllLogs(i % 8 == 0 ? "buff:10" : "null");
    }
    tcLog::RedirectAllLogs("null");
    EXPECT_TRUE(Eventually([] { return tcCounted::snAlive == 0; }));
    done = true;
    for (std::thread& writer : writers)
        writer.join();
    EXPECT_EQ(0, tcCounted::snAlive);
    EXPECT_GT(tcCounted::snOutputs, 0);
}

TEST(ConsumerLifetime, HoldsWhileAllLogsAreRedirectedByTwoThreads)
{
    const tcQuietErrors quiet;
    tcLog log("REDIRS", 0);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done) {
            log.logEvent("x");
            tcLog extra("REDIRSX", 0);
            extra.logError("y");
        }
    });
    std::vector<std::thread> redirectors;
    for (int i = 0; i < 2; ++i) {
        redirectors.emplace_back([] {
            for (int j = 0; j < 300; ++j)
                tcLog::RedirectAllLogs(j % 3 == 0 ? "null" : "buff:20");
        });
    }
    for (std::thread& redirector : redirectors)
        redirector.join();
    done = true;
    writer.join();
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(tcLog::NullConsumer(), log.GetConsumer());
}

TEST(LogThreads, LogErrorsWhileTheirLoggerIsSetUpAgain)
{
    testing::internal::CaptureStderr();
    tcLog log("AGAIN", 1);
    std::atomic<bool> isOver{false};
    std::thread other([&] {
        while (!isOver)
            log.logError("text");
    });
    for (int i = 0; i < 2000; ++i) {
        log.InitFromEnvironment();
        EXPECT_EQ("Log object for AGAIN", log.GetDescription());
    }
    isOver = true;
    other.join();
    testing::internal::GetCapturedStderr();
}

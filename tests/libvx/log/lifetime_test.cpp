#include "log_support.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

// Counts itself, and runs a hook within each delivery.
class tcCounted : public tcLogConsumer
{
public:
    tcCounted() { ++snAlive; }
    ~tcCounted() override
    {
        mbAlive = false;
        --snAlive;
    }
    void Output(tcLogEvent const&) override
    {
        EXPECT_TRUE(mbAlive);
        ++snOutputs;
        if (mHook) mHook();
        EXPECT_TRUE(mbAlive);
    }
    char const* TypeName() const override { return "COUNTED"; }

    std::function<void()> mHook;
    std::atomic<bool> mbAlive{true};

    static std::atomic<int> snAlive, snOutputs;
};

std::atomic<int> tcCounted::snAlive{0}, tcCounted::snOutputs{0};

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

TEST(ConsumerLifetime, RetiredConsumersGoAtOnceWhenUnused)
{
    tcLog log("LIFE", 0);
    auto* consumer = new tcCounted;
    log.SetConsumer(consumer);
    log.logEvent("x");
    EXPECT_EQ(consumer, log.SetConsumer(nullptr));
    EXPECT_EQ(1, tcCounted::snAlive);
    tcLog::RetireConsumer(consumer);
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, RetiredConsumersStayWhileALoggerRefersToThem)
{
    tcLog first("LIFE1", 0);
    auto* consumer = new tcCounted;
    {
        tcLog second("LIFE2", 0);
        first.SetConsumer(consumer);
        second.SetConsumer(consumer);
        tcLog::RetireConsumer(consumer);
        first.CloseLog();
        EXPECT_EQ(1, tcCounted::snAlive);
        second.logEvent("x");
    }
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, UnregisteredLoggersCountToo)
{
    tcLog first("SAME", 0), hidden("SAME", 0), unnamed;
    auto* consumer = new tcCounted;
    hidden.SetConsumer(consumer);
    unnamed.SetConsumer(consumer);
    tcLog::RetireConsumer(consumer);
    hidden.CloseLog();
    EXPECT_EQ(1, tcCounted::snAlive);
    unnamed.CloseLog();
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, RetiredConsumersStayWhileHeld)
{
    tcLog log("HELD", 0);
    auto* consumer = new tcCounted;
    tcLog::HoldConsumer(consumer);
    tcLog::HoldConsumer(consumer);
    tcLog::RetireConsumer(consumer);
    tcLog::RetireConsumer(consumer);
    tcLog::ReleaseConsumer(consumer);
    EXPECT_EQ(1, tcCounted::snAlive);
    log.SetConsumer(consumer); // what is held may be installed again
    tcLog::ReleaseConsumer(consumer);
    EXPECT_EQ(1, tcCounted::snAlive);
    log.CloseLog();
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, HeldConsumersMoveAndReset)
{
    tcLog log("HELDOBJ", 0);
    auto* consumer = new tcCounted;
    log.SetConsumer(consumer);
    tcHeldConsumer held = log.HeldConsumer();
    EXPECT_EQ(consumer, held.get());
    tcHeldConsumer saved = log.ExchangeConsumer(nullptr);
    EXPECT_EQ(consumer, saved.get());
    tcLog::RetireConsumer(consumer);
    tcHeldConsumer moved(std::move(held));
    EXPECT_FALSE(held);
    held = std::move(moved);
    held.reset();
    EXPECT_STREQ("COUNTED", saved->TypeName());
    saved = tcHeldConsumer();
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, ConsumersThatNobodyRetiresStayTheirOwners)
{
    tcCounted own;
    {
        tcLog log("OWNED", 0);
        log.SetConsumer(&own);
        tcLog::RedirectAllLogs("null");
        log.SetConsumer(&own);
    }
    EXPECT_EQ(1, tcCounted::snAlive);
}

TEST(ConsumerLifetime, LoggersDoNotTouchConsumersThatAreGone)
{
    tcLog log("DANGLING", 0);
    {
        tcCounted own;
        log.SetConsumer(&own);
    }
    log.SetConsumer(nullptr);
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, OwnersMayDeleteRetiredAndAdoptedConsumers)
{
    auto* consumer = new tcCounted;
    tcLog::AdoptConsumer(consumer);
    tcLog::HoldConsumer(consumer);
    tcLog::RetireConsumer(consumer);
    delete consumer;
    tcLog::ReleaseConsumer(consumer);
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, DefaultAndNullConsumerStay)
{
    tcCounted own;
    tcLog::mpDefaultConsumer = &own;
    tcLog::AdoptConsumer(&own);
    tcLog::RetireConsumer(&own);
    {
        tcLog log("DEFAULT", 0);
    }
    EXPECT_EQ(1, tcCounted::snAlive);
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
    tcLog::AdoptConsumer(tcLog::NullConsumer());
    tcLog::RetireConsumer(tcLog::NullConsumer());
    tcLog::RetireConsumer(nullptr);
    EXPECT_STREQ("NULL", tcLog::NullConsumer()->TypeName());
}

TEST(ConsumerLifetime, AdoptedConsumersGoWithTheirLastLogger)
{
    auto* consumer = new tcCounted;
    {
        tcLog second("ADOPT2", 0);
        {
            tcLog first("ADOPT1", 0);
            tcLog::AdoptConsumer(consumer);
            first.SetConsumer(consumer);
            second.SetConsumer(consumer);
        }
        EXPECT_EQ(1, tcCounted::snAlive);
    }
    EXPECT_EQ(0, tcCounted::snAlive);
}

TEST(ConsumerLifetime, RedirectionClosesAdoptedConsumers)
{
    tcLog log("ADOPT3", 0);
    auto* consumer = new tcCounted;
    tcLog::AdoptConsumer(consumer);
    log.SetConsumer(consumer);
    tcLog::RedirectAllLogs("buff:2");
    EXPECT_EQ(0, tcCounted::snAlive);
    tcLog::RedirectAllLogs("null");
}

// The descriptor that is opened next.
static int NextDescriptor()
{
    const int next = dup(0);
    close(next);
    return next;
}

TEST(ConsumerLifetime, RedirectionsGoWithTheNextOneThoughNoLoggerIsLeft)
{
    const std::string uri = "file://vxredir" + std::to_string(getpid()) + ".log";
    ASSERT_EQ(0, chdir(testing::TempDir().c_str()));
    const int free = NextDescriptor();
    const auto closeAll = [] {
        for (const auto& entry : tcLog::CopyOfMap()) {
            if (entry.second) entry.second->CloseLog();
        }
    };
    tcLog::RedirectAllLogs(uri.c_str());
    closeAll();
    EXPECT_NE(free, NextDescriptor());
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(free, NextDescriptor());

    tcLog::RedirectAllLogs(uri.c_str());
    closeAll();
    EXPECT_NE(free, NextDescriptor());
    tcLog::CleanupClassScopeAllocation();
    EXPECT_EQ(free, NextDescriptor());
    unlink(uri.substr(7).c_str());
}

TEST(ConsumerLifetime, ConsumersOfTheEnvironmentGoWithTheirLogger)
{
    const std::string path = "vxlife" + std::to_string(getpid()) + ".log";
    ASSERT_EQ(0, chdir(testing::TempDir().c_str()));
    const int free = dup(0); // the descriptor that the file will get
    close(free);
    {
        const tcVariable uri("ENVLIFE_LOGURI", ("file://" + path).c_str());
        tcLog log("ENVLIFE", 0);
        log.logEvent("x");
        EXPECT_STREQ(path.c_str(), log.HeldConsumer()->Description());
        const int second = dup(0);
        EXPECT_NE(free, second);
        close(second);
    }
    EXPECT_EQ(free, dup(0));
    close(free);
    unlink(path.c_str());
}

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

// Waits at most a second for a condition.
static bool WithinASecond(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
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
            EXPECT_TRUE(WithinASecond([] { return tcCounted::snOutputs > 0; }));
        }
        if (i % 4 == 0) tcLog::RedirectAllLogs(i % 8 == 0 ? "buff:10" : "null");
    }
    tcLog::RedirectAllLogs("null");
    EXPECT_TRUE(WithinASecond([] { return tcCounted::snAlive == 0; }));
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

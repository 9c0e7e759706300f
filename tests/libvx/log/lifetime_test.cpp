#include "lifetime_support.h"
#include "log_support.h"

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

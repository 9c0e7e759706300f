#include "log_support.h"
#include "registry_support.h"

#include <pthread.h>

#include <sstream>
#include <thread>

using testing::HasSubstr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

TEST(LogStart, HasPreparedClassScopeWhenTheProgramStarts)
{
    EXPECT_NE(nullptr, tcLogInitializer::mpInstance);
    EXPECT_TRUE(tcLog::NullConsumer() == tcLog::mpDefaultConsumer);
    EXPECT_STREQ("NULL Log Device", tcLog::mpDefaultConsumer->Description());
    EXPECT_STREQ("", tcLog::mpDefaultConsumer->Options());
    EXPECT_TRUE(tcLog::sbErrorEnabled);
    EXPECT_TRUE(tcLog::sbDebugEnabled);
    EXPECT_FALSE(tcLog::mbSynchronizeLogs);
    EXPECT_TRUE(tcLog::mpRedirectAllConsumer == nullptr);
    EXPECT_EQ(0, tcLog::snErrorLogIndex);
}

TEST(LogStart, LockIsRecursive)
{
    ASSERT_EQ(0, pthread_mutex_lock(&tcLog::shErrorLogIndexLock));
    ASSERT_EQ(0, pthread_mutex_trylock(&tcLog::shErrorLogIndexLock));
    pthread_mutex_unlock(&tcLog::shErrorLogIndexLock);
    pthread_mutex_unlock(&tcLog::shErrorLogIndexLock);

    pthread_mutex_t own;
    tcLock::InitializeLock(own);
    ASSERT_EQ(0, pthread_mutex_lock(&own));
    ASSERT_EQ(0, pthread_mutex_trylock(&own));
    pthread_mutex_unlock(&own);
    pthread_mutex_unlock(&own);
    pthread_mutex_destroy(&own);
}

TEST(LogRegistry, StreamsNothingWhenEmpty)
{
    tcLog::DeleteMap();
    EXPECT_EQ("", Listing());
    EXPECT_TRUE(tcLog::CopyOfMap().empty());
}

TEST(LogRegistry, CreatesTheMapOnFirstUse)
{
    tcLog::DeleteMap();
    EXPECT_EQ(nullptr, tcLog::spMap);
    EXPECT_EQ(&tcLog::GetMap(), tcLog::spMap);
    EXPECT_TRUE(tcLog::GetMap().empty());
}

TEST(LogRegistry, FindLogMakesALoggerOfLevelOne)
{
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("FRESH"));
    tcLog* log = tcLog::FindLog("FRESH");
    ASSERT_NE(nullptr, log);
    EXPECT_EQ(1, log->getDbgLevel());
    EXPECT_EQ("FRESH", log->GetName());
    EXPECT_EQ(log, tcLog::FindLog("FRESH"));
    EXPECT_EQ(log, tcLog::FindLogPtr("FRESH"));
    EXPECT_EQ(log, tcLog::CopyOfMap()["FRESH"]);
    EXPECT_EQ(1, GetLogLevel("FRESH"));
    EXPECT_EQ(nullptr, tcLog::FindLogPtr(nullptr));
}

TEST(LogRegistry, NamesAreCaseSensitive)
{
    tcLog log("Case", 2);
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("CASE"));
    EXPECT_EQ(&log, tcLog::FindLogPtr("Case"));
}

TEST(LogRegistry, KeepsTheFirstOfTwoLoggersOfOneName)
{
    tcLog first("TWICE", 1);
    tcLog second("TWICE", 2);
    EXPECT_EQ(&first, tcLog::FindLogPtr("TWICE"));
    EXPECT_EQ("Log object for TWICE", second.GetDescription());
}

// Kept: the entry goes by name, whichever logger stands in it.
TEST(LogRegistry, LosesTheFirstLoggerWhenTheSecondOfItsNameGoes)
{
    tcLog first("LOST", 1);
    {
        tcLog second("LOST", 2);
    }
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("LOST"));
    EXPECT_EQ(0u, tcLog::CopyOfMap().count("LOST"));
}

TEST(LogRegistry, ForgetsDestroyedLoggers)
{
    {
        tcLog log("GONE", 1);
        EXPECT_EQ(&log, tcLog::FindLogPtr("GONE"));
    }
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("GONE"));
}

TEST(LogNaming, DefaultBuiltLoggersAreUnknownUntilNamed)
{
    const tcVariable level("LATE_DEBUGLEVEL", "6");
    tcLog log;
    EXPECT_EQ("", log.GetName());
    EXPECT_EQ("", log.GetDescription());
    EXPECT_STREQ("", log.GetTag());
    EXPECT_STREQ("", log.GetErrorTag());
    EXPECT_EQ(0, log.getDbgLevel());
    EXPECT_EQ(tcLog::NullConsumer(), log.GetConsumer());

    log.SetTag("LATE");
    EXPECT_EQ(&log, tcLog::FindLogPtr("LATE"));
    EXPECT_EQ("LATE", log.GetName());
    EXPECT_EQ("Log object for LATE", log.GetDescription());
    EXPECT_EQ(6, log.getDbgLevel());
    EXPECT_STREQ("    LATE", log.GetTag());
    EXPECT_STREQ("    LATE", log.GetErrorTag());
}

TEST(LogNaming, SetTagOfANamedLoggerChangesOnlyTheTag)
{
    tcLog log("FIRM", 3);
    log.SetTag("OTHERNAMES");
    EXPECT_EQ("FIRM", log.GetName());
    EXPECT_STREQ("OTHERNAM", log.GetTag());
    EXPECT_STREQ("    FIRM", log.GetErrorTag());
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("OTHERNAMES"));
}

TEST(LogNaming, LeavesNoEntryBehindForALoggerRegisteredWithoutName)
{
    tcLog::DeleteMap();
    {
        tcLog log("", 1);
        EXPECT_EQ(&log, tcLog::FindLogPtr(""));
        log.SetTag("");
        log.SetTag("NAMED");
        EXPECT_EQ(&log, tcLog::FindLogPtr("NAMED"));
        EXPECT_EQ(nullptr, tcLog::FindLogPtr(""));
        EXPECT_STREQ("   NAMED", log.GetTag());
    }
    EXPECT_EQ("", Listing());
    tcLog first("", 1), second;
    second.SetTag("OTHER");
    EXPECT_EQ(&first, tcLog::FindLogPtr(""));
}

TEST(LogNaming, TagsAreEightWide)
{
    tcLog shortName("AB", 0), longName("ABCDEFGHIJ", 0);
    EXPECT_STREQ("      AB", shortName.GetTag());
    EXPECT_STREQ("ABCDEFGH", longName.GetTag());
    EXPECT_STREQ("ABCDEFGH", longName.GetErrorTag());
}

TEST(LogNaming, ErrorRecordsMayHaveATagOfTheirOwn)
{
    tcLog plain("TAGGED", "ERRTAGLONG", 2);
    EXPECT_STREQ("  TAGGED", plain.GetTag());
    EXPECT_STREQ("ERRTAGLO", plain.GetErrorTag());
    EXPECT_EQ(2, plain.getDbgLevel());

    tcLog text(std::string("TAGGED2"), std::string("ET"), 3);
    EXPECT_STREQ(" TAGGED2", text.GetTag());
    EXPECT_STREQ("      ET", text.GetErrorTag());
    EXPECT_EQ(3, text.getDbgLevel());

    tcLog empty(std::string("TAGGED3"), std::string(), 4);
    EXPECT_STREQ(" TAGGED3", empty.GetTag());
    EXPECT_STREQ(" TAGGED3", empty.GetErrorTag());
    EXPECT_EQ(&empty, tcLog::FindLogPtr("TAGGED3"));
}

TEST(LogConsumerChange, ReturnsWhatItReplaces)
{
    tcRecords records;
    tcLog log("CONS", 0);
    EXPECT_EQ(tcLog::NullConsumer(), log.SetConsumer(&records));
    EXPECT_EQ(&records, log.GetConsumer());
    EXPECT_EQ(&records, log.SetConsumer(nullptr));
    EXPECT_EQ(tcLog::NullConsumer(), log.GetConsumer());
}

TEST(LogConsumerChange, NullMeansTheDefaultConsumerAndClosingTheNullConsumer)
{
    tcRecords records;
    tcLog::mpDefaultConsumer = &records;
    tcLog log("DEFCONS", 0);
    EXPECT_EQ(&records, log.GetConsumer());
    log.CloseLog();
    EXPECT_EQ(tcLog::NullConsumer(), log.GetConsumer());
    log.SetConsumer(nullptr);
    EXPECT_EQ(&records, log.GetConsumer());
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
    log.CloseLog();
}

TEST(LogListing, ShowsLevelConsumerAndDescriptionInNameOrder)
{
    tcLog::DeleteMap();
    tcLog last("b", 2), first("CAMERA", 1), between("a", -3);
    std::ostringstream os;
    tcLogStream stream(os);
    between.SetConsumer(&stream);
    EXPECT_EQ("CAMERA = 1 [NULL Log Device] (Log object for CAMERA)\n"
              "a = -3 [Log to a stream] (Log object for a)\n"
              "b = 2 [NULL Log Device] (Log object for b)\n",
              Listing());
    std::ostringstream hexadecimal;
    last.setDbgLevel(17);
    StreamLogs(hexadecimal << std::hex << std::showbase);
    EXPECT_THAT(hexadecimal.str(), HasSubstr("b = 17 ["));
    CaptureStdout();
    EXPECT_EQ(0, ListLogs());
    EXPECT_EQ(Listing(), GetCapturedStdout());
    between.SetConsumer(nullptr);
}

TEST(LogListing, LeavesOutAMissingConsumer)
{
    tcLog::DeleteMap();
    tcLog::mpDefaultConsumer = nullptr;
    tcLog log("BARE", 1);
    EXPECT_EQ("BARE = 1 (Log object for BARE)\n", Listing());
    log.logEvent("nowhere");
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
}

TEST(LogRedirection, MovesEveryRegisteredLogger)
{
    tcLog first("REDIR1", 0), second("REDIR2", 0);
    tcLog::RedirectAllLogs("buff://7");
    tcLogConsumer* consumer = tcLog::mpRedirectAllConsumer;
    EXPECT_EQ(consumer, first.GetConsumer());
    EXPECT_EQ(consumer, second.GetConsumer());
    EXPECT_STREQ("7 Line Buffer", consumer->Description());
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(tcLog::NullConsumer(), first.GetConsumer());
    EXPECT_TRUE(tcLog::mpRedirectAllConsumer == tcLog::NullConsumer());
    tcLog::RedirectAllLogs("cout"); // leaves the null consumer alive
    EXPECT_STREQ("NULL Log Device", tcLog::NullConsumer()->Description());
    tcLog::RedirectAllLogs(nullptr);
}

TEST(LogCleanup, EndsClassScopeAndLeavesItUsable)
{
    const tcQuietErrors quiet;
    tcLog log("CLEAN", 0);
    log.logError("before");
    tcLog::RedirectAllLogs("buff://7");
    tcLog::CleanupClassScopeAllocation();
    EXPECT_EQ(nullptr, tcLog::saErrorMsgs);
    EXPECT_EQ(nullptr, tcLog::spMap);
    EXPECT_TRUE(tcLog::mpRedirectAllConsumer == nullptr);
    EXPECT_STREQ("", tcLog::LastErrorMessage());
    EXPECT_EQ("", tcLog::ErrorBuffer());
    log.logError("after"); // still to the buffer, which its logger keeps alive
    EXPECT_STREQ("7 Line Buffer", log.HeldConsumer()->Description());
    tcLog::CleanupClassScopeAllocation();
    tcLog another("CLEAN2", 0);
    EXPECT_NE(nullptr, tcLog::saErrorMsgs);
}

TEST(LogThreads, BuildFindListAndLevelLoggersTogether)
{
    const tcQuietErrors quiet;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int j = 0; j < 200; ++j) {
                const std::string name = "THREAD" + std::to_string(i);
                tcLog own(name.c_str(), 0);
                tcLog* common = tcLog::FindLog("COMMON");
                common->setDbgLevel(j);
                common->logDebug(1, "%d", j);
                common->logError("%d", j);
                SetLogLevel("COMMON", j);
                GetLogLevel("COMMON");
                Listing();
                tcLog::LastErrorMessage();
                tcLog::ErrorBuffer();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(199, GetLogLevel("COMMON"));
}

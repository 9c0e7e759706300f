#include "emit_support.h"
#include "log_support.h"
#include "record.h"

#include <cerrno>
#include <ctime>
#include <iostream>
#include <thread>

using testing::ElementsAre;
using testing::StartsWith;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// A logger that tests read back.
class LogEmission : public testing::Test
{
protected:
    LogEmission() : mLog("EMIT", "ERRTAG", 3) { mLog.SetConsumer(&mRecords); }

    const tcQuietErrors mQuiet;
    tcRecords mRecords;
    tcLog mLog;
};

TEST_F(LogEmission, FillsTheWholeRecord)
{
    const time_t before = time(nullptr);
    mLog.logDebug(2, "%s %d %.1f", "text", 7, 1.5);
    const tcLogEvent event = mRecords.Only();
    EXPECT_EQ(tcLogEvent::eDebug, event.type);
    EXPECT_GE(event.seconds, before);
    EXPECT_LE(event.seconds, time(nullptr));
    EXPECT_GE(event.millis, 0);
    EXPECT_LE(event.millis, 1000);
    EXPECT_EQ(2, event.level);
    EXPECT_EQ(0, event.errNum);
    EXPECT_STREQ("    EMIT", event.tag);
    EXPECT_STREQ("text 7 1.5", event.message);
}

TEST_F(LogEmission, RoundsMillisecondsUpAtTheEnd)
{
    EXPECT_EQ(0, vx::MillisOf(0));
    EXPECT_EQ(0, vx::MillisOf(998));
    EXPECT_EQ(1, vx::MillisOf(999));
    EXPECT_EQ(999, vx::MillisOf(999998));
    EXPECT_EQ(1000, vx::MillisOf(999999));
}

TEST_F(LogEmission, DebugRecordsPassTheirGate)
{
    mLog.logDebug(4, "above");
    mLog.logDebug(3, "equal");
    mLog.logDebug(-9, "negative");
    EXPECT_THAT(mRecords.Messages(), ElementsAre("equal", "negative"));
}

TEST_F(LogEmission, DebugRecordsWithoutLevelPassAlways)
{
    mLog.setDbgLevel(-7);
    mLog.logDebug("x");
    const tcLogEvent event = mRecords.Only();
    EXPECT_STREQ("x", event.message);
    EXPECT_EQ(0, event.level);
    EXPECT_EQ(tcLogEvent::eDebug, event.type);
}

TEST_F(LogEmission, RecordsThatFailTheirGateAreNotFormatted)
{
    int formatted = -1;
    mLog.logDebug(5, "abc%n", &formatted);
    EXPECT_EQ(-1, formatted);
    mLog.logDebug(3, "abc%n", &formatted);
    EXPECT_EQ(3, formatted);
    EXPECT_EQ(1u, mRecords.Count());
}

TEST_F(LogEmission, RecordsOfTheNullConsumerAreNotFormatted)
{
    mLog.CloseLog();
    int formatted = -1;
    mLog.logDebug("abc%n", &formatted);
    mLog.logDebug(1, "abc%n", &formatted);
    mLog.logJournal("abc%n", &formatted);
    mLog.logEvent("abc%n", &formatted);
    EXPECT_EQ(-1, formatted);
    mLog.logError("abc%n", &formatted); // the ring wants it
    EXPECT_EQ(3, formatted);
}

TEST_F(LogEmission, JournalAndEventRecordsHaveNoGate)
{
    tcLog::sbDebugEnabled = false;
    tcLog::sbErrorEnabled = false;
    mLog.logDebug("debug");
    mLog.logDebug(0, "debug");
    mLog.logError("error");
    mLog.logJournal("journal %d", 1);
    EXPECT_EQ(tcLogEvent::eJournal, mRecords.Only().type);
    mLog.logEvent("event %d", 2);
    const tcLogEvent event = mRecords.Only();
    EXPECT_EQ(tcLogEvent::eEvent, event.type);
    EXPECT_STREQ("event 2", event.message);
    EXPECT_STREQ("    EMIT", event.tag);
    tcLog::sbDebugEnabled = true;
    tcLog::sbErrorEnabled = true;
}

TEST_F(LogEmission, ErrorRecordsHaveTheErrorTag)
{
    mLog.logError("bad %s", "thing");
    const tcLogEvent event = mRecords.Only();
    EXPECT_EQ(tcLogEvent::eError, event.type);
    EXPECT_EQ(0, event.level);
    EXPECT_EQ(0, event.errNum);
    EXPECT_STREQ("  ERRTAG", event.tag);
    EXPECT_STREQ("bad thing", event.message);
}

TEST_F(LogEmission, ErrorNumbersAreAppended)
{
    mLog.logError(13, "bad");
    tcLogEvent event = mRecords.Only();
    EXPECT_EQ(13, event.errNum);
    EXPECT_STREQ("bad:Error 13:No Installed error decoder", event.message);

    errno = ENOENT;
    mLog.logSystemError("open %s", "failed");
    EXPECT_EQ(ENOENT, errno);
    event = mRecords.Only();
    EXPECT_EQ(2, event.errNum);
    EXPECT_STREQ("open failed:Error 2:No Installed error decoder", event.message);

    errno = 0;
    mLog.logSystemError("fine");
    EXPECT_STREQ("fine", mRecords.Only().message);
    mLog.logError(-5, "x");
    EXPECT_STREQ("x:Error -5:No Installed error decoder", mRecords.Only().message);
    EXPECT_EQ("Error -5:No Installed error decoder", tcLog::DecodeSysErrCode(-5));
}

TEST_F(LogEmission, LeavesErrnoAlone)
{
    errno = EPIPE;
    mLog.logError("x");
    mLog.logDebug("x");
    EXPECT_EQ(EPIPE, errno);
}

TEST_F(LogEmission, CutsMessagesAt255Characters)
{
    const std::string text(400, 'x');
    mLog.logEvent("%s", text.c_str());
    EXPECT_EQ(std::string(255, 'x'), mRecords.Only().message);
    const std::string longer(3000, 'y');
    mLog.logError(7, "%s", longer.c_str());
    EXPECT_EQ(std::string(255, 'y'), mRecords.Only().message);
    mLog.logError(7, "%s", std::string(250, 'z').c_str());
    EXPECT_EQ(std::string(250, 'z') + ":Erro", mRecords.Only().message);
}

TEST_F(LogEmission, LeavesNoTracesOfTheStackInRecords)
{
    mLog.logEvent("short");
    const tcLogEvent event = mRecords.Only();
    for (size_t i = 5; i < sizeof event.message; ++i)
        ASSERT_EQ('\0', event.message[i]);
    for (size_t i = 8; i < sizeof event.tag; ++i)
        ASSERT_EQ('\0', event.tag[i]);
}

TEST_F(LogEmission, SurvivesNullFormats)
{
    mLog.logDebug(static_cast<char const*>(nullptr));
    EXPECT_STREQ("", mRecords.Only().message);
}

TEST_F(LogEmission, StreamedTextsHaveNoGate)
{
    tcLog::sbDebugEnabled = false;
    mLog.setDbgLevel(-100);
    mLog << "one" << std::string("two");
    tcLog::sbDebugEnabled = true;
    EXPECT_THAT(mRecords.Messages(), ElementsAre("one", "two"));
    mLog << "x";
    const tcLogEvent event = mRecords.Only();
    EXPECT_EQ(tcLogEvent::eDebug, event.type);
    EXPECT_EQ(0, event.level);
}

// Kept: the text is the format.
TEST_F(LogEmission, StreamedTextsAreFormats)
{
    mLog << "100%% %d";
    EXPECT_STREQ("100% 0", mRecords.Only().message);
}

TEST_F(LogEmission, StreamedTextsThatWouldDoHarmAsFormatsStayAsTheyAre)
{
    const std::string many = "%s %s %s %s %s %s %s %s %s";
    for (const std::string& text : {std::string("100%not %hhn %% %5ln"), std::string("%w8n"), many,
                                    std::string("%*d%*d%*d%*d%d"), std::string("%1$s %9$s")}) {
        tcFuncLog trace(mLog, 1, "f");
        mRecords.Messages();
        mLog << text;
        EXPECT_EQ(text, mRecords.Only().message);
        trace << text;
        EXPECT_EQ(text, mRecords.Only().message);
    }
    mRecords.Messages();
    mLog << "%d%d%d%d%d%d%d%d 100%%%%%%%%%%%%%%%%";
    EXPECT_STREQ("00000000 100%%%%%%%%", mRecords.Only().message);
    mLog << "%s%-5d|%08lx|%.2s|%m%";
    EXPECT_THAT(mRecords.Only().message, StartsWith("(null)0    |00000000||")); // then it refuses
    mLog << "%s%-3d|%04lx|%.2s|";
    EXPECT_STREQ("(null)0  |0000||", mRecords.Only().message);
}

TEST_F(LogEmission, ReportsConsumersThatThrow)
{
    tcThrowing throwing;
    mLog.SetConsumer(&throwing);
    CaptureStderr();
    mLog.logDebug(1, "value %d", 5);
    EXPECT_EQ("tcLog::log(...) Error formatting message. unformatted: value %d\n",
              GetCapturedStderr());
    mLog.SetConsumer(nullptr);
}

// Fails every insertion.
class tcBrokenBuffer : public std::streambuf
{};

TEST_F(LogEmission, ReportsWhenEvenTheReportFails)
{
    tcThrowing throwing;
    mLog.SetConsumer(&throwing);
    CaptureStderr();
    tcBrokenBuffer broken;
    std::streambuf* original = std::cerr.rdbuf(&broken);
    std::cerr.exceptions(std::ios::badbit);
    const auto clear = [] { std::cerr.clear(); };

    const std::string second = "\n              no messages logged\n";
    mLog.logError("x"), clear();
    mLog.logError(5, "x"), clear();
    mLog.logSystemError("x"), clear();
    mLog.logJournal("x"), clear();
    mLog.logEvent("x"), clear();
    mLog.logDebug("x"), clear();
    mLog.logDebug(1, "x"), clear();

    std::cerr.exceptions(std::ios::goodbit);
    std::cerr.rdbuf(original);
    std::cerr.clear();
    EXPECT_EQ("tcLog::LogError(const char *fmt, ...) fatal error" + second +
                  "tcLog::logError(int errNum, const char *fmt, ...)  fatal error" + second +
                  "tcLog::logSystemError(const char *fmt, ...)  fatal error" + second +
                  "tcLog::logJournal(const char *fmt, ...)  fatal error" + second +
                  "tcLog::logEvent(const char *fmt, ...)  fatal error" + second +
                  "tcLog::logDebug(const char *fmt, ...)  fatal error" + second +
                  "tcLog::logDebug(int dbgLevel, const char *fmt, ...)   fatal error" + second,
              GetCapturedStderr());
    mLog.SetConsumer(nullptr);
}

TEST_F(LogEmission, DeliversUnderTheLockWhenAsked)
{
    class tcLockProbe : public tcLogConsumer
    {
    public:
        void Output(tcLogEvent const&) override
        {
            std::thread other([this] {
                mbLocked = pthread_mutex_trylock(&tcLog::shErrorLogIndexLock) != 0;
                if (!mbLocked) pthread_mutex_unlock(&tcLog::shErrorLogIndexLock);
            });
            other.join();
        }
        char const* TypeName() const override { return "PROBE"; }

        bool mbLocked = false;
    } probe;
    mLog.SetConsumer(&probe);
    mLog.logEvent("x");
    EXPECT_FALSE(probe.mbLocked);
    tcLog::mbSynchronizeLogs = true;
    mLog.logEvent("x");
    EXPECT_TRUE(probe.mbLocked);
    tcLog::mbSynchronizeLogs = false;
    mLog.logEvent("x");
    EXPECT_FALSE(probe.mbLocked);
    mLog.SetConsumer(nullptr);
}

TEST_F(LogEmission, TracesFunctions)
{
    {
        tcFuncLog trace(mLog, 2, "Cool");
        trace << "inside" << std::string("again");
    }
    EXPECT_THAT(mRecords.Messages(),
                ElementsAre("Entering Cool", "inside", "again", "Leaving Cool"));
    {
        tcFuncLog trace(mLog, 2, "file.cpp", 12, "Warm");
    }
    EXPECT_THAT(mRecords.Messages(), ElementsAre("file.cpp:12 Entering Warm", "Leaving Warm"));
    {
        tcFuncLog trace(mLog, 3, "Level");
        EXPECT_EQ(3, mRecords.Only().level);
    }
    EXPECT_EQ(3, mRecords.Only().level);
}

TEST_F(LogEmission, TracesFunctionsOnlyThroughTheGate)
{
    {
        tcFuncLog trace(mLog, 4, "Deep");
        tcFuncLog longer(mLog, 4, "file.cpp", 1, "Deep");
        trace << "inside";
    }
    tcLog::sbDebugEnabled = false;
    {
        tcFuncLog trace(mLog, 1, "Off");
    }
    tcLog::sbDebugEnabled = true;
    EXPECT_EQ(0u, mRecords.Count());
}

// Kept: the composed text is the format.
TEST_F(LogEmission, TracedTextsAreFormats)
{
    {
        tcFuncLog trace(mLog, 1, "50%%");
    }
    EXPECT_THAT(mRecords.Messages(), ElementsAre("Entering 50%", "Leaving 50%"));
}

TEST_F(LogEmission, CutsLongTraces)
{
    const std::string name(400, 'f');
    {
        tcFuncLog trace(mLog, 1, "file.cpp", 1, name.c_str());
    }
    EXPECT_EQ(2u, mRecords.Count());
}

TEST(OSError, NamesThePlaceAndTheError)
{
    errno = ENOENT;
    const tcOSError error("open");
    EXPECT_STREQ("open:No such file or directory", error.c_str());
    EXPECT_EQ(ENOENT, errno);
    errno = 98765;
    EXPECT_STREQ("x:Unknown error 98765", tcOSError("x").c_str());
    EXPECT_EQ(98765, errno);
}

#include "log_support.h"
#include "registry_support.h"

using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

TEST(LogLevels, GateIsLevelOrExactOpposite)
{
    tcLog log("GATE", 3);
    for (int level = -5; level <= 5; ++level)
        EXPECT_EQ(level <= 3, log.isDebug(level)) << level;
    log.setDbgLevel(-2);
    for (int level = -5; level <= 5; ++level)
        EXPECT_EQ(level <= -2 || level == 2, log.isDebug(level)) << level;
    log.setDbgLevel(INT32_MIN);
    EXPECT_FALSE(log.isDebug(-1));
    EXPECT_FALSE(log.isDebug(INT32_MAX));
    tcLog::sbDebugEnabled = false;
    log.setDbgLevel(9);
    EXPECT_FALSE(log.isDebug(0));
    tcLog::sbDebugEnabled = true;
}

TEST(LogLevels, SetLogLevelFindsByName)
{
    tcLog log("BYNAME", 1);
    SetLogLevel("BYNAME", -4);
    EXPECT_EQ(-4, log.getDbgLevel());
    EXPECT_EQ(-4, GetLogLevel("BYNAME"));
    SetLogLevel(nullptr, 5);
}

TEST(LogLevels, SetLogLevelReportsUnknownNames)
{
    CaptureStdout();
    SetLogLevel("NOBODY", 5);
    EXPECT_EQ("!!! NOBODY doesn't point to a valid log anymore!\n", GetCapturedStdout());
}

// Kept: asking leaves an entry without a logger; everybody who walks the registry skips it.
TEST(LogLevels, GetLogLevelOfAnUnknownNameLeavesAnEmptyEntry)
{
    EXPECT_EQ(-1, GetLogLevel(nullptr));
    EXPECT_EQ(-1, GetLogLevel("UNKNOWN"));
    ASSERT_EQ(1u, tcLog::CopyOfMap().count("UNKNOWN"));
    EXPECT_EQ(nullptr, tcLog::CopyOfMap()["UNKNOWN"]);
    EXPECT_THAT(Listing(), Not(HasSubstr("UNKNOWN")));
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("UNKNOWN"));

    CaptureStdout();
    SetLogLevel("UNKNOWN", 5);
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("!!! UNKNOWN doesn't"));

    tcLog* log = tcLog::FindLog("UNKNOWN");
    EXPECT_EQ(log, tcLog::FindLogPtr("UNKNOWN"));
    EXPECT_EQ(1, GetLogLevel("UNKNOWN"));
}

TEST(LogLevels, ConstructorsFillEntriesThatAreEmpty)
{
    GetLogLevel("FILLED");
    tcLog log("FILLED", 1);
    EXPECT_EQ(&log, tcLog::FindLogPtr("FILLED"));
}

TEST(LogEnvironment, SetsLevels)
{
    const tcVariable own("CAMERA_DEBUGLEVEL", "-2"), text("TEXT_DEBUGLEVEL", "abc");
    tcRecords records;
    tcLog log("CAMERA", 4);
    log.SetConsumer(&records);
    EXPECT_EQ(-2, log.getDbgLevel());
    log.logDebug(1, "one");
    log.logDebug(2, "two");
    log.logDebug(3, "three");
    EXPECT_THAT(records.Messages(), testing::ElementsAre("two"));
    tcLog zero("TEXT", 4);
    EXPECT_EQ(0, zero.getDbgLevel());
    const tcVariable decimal("DECIMAL_DEBUGLEVEL", "010x"), hex("HEX_DEBUGLEVEL", "0x10");
    EXPECT_EQ(10, tcLog("DECIMAL", 4).getDbgLevel());
    EXPECT_EQ(0, tcLog("HEX", 4).getDbgLevel());
}

TEST(LogEnvironment, CutsVariableNamesAt159Characters)
{
    const std::string name(155, 'N');
    const tcVariable own((name + "_DEB").c_str(), "7");
    tcLog log(name.c_str(), 1);
    EXPECT_EQ(7, log.getDbgLevel());
}

TEST(LogEnvironment, SetsConsumers)
{
    const tcVariable own("TOBUFF_LOGURI", "buff://5");
    tcLog log("TOBUFF", 0);
    EXPECT_STREQ("5 Line Buffer", log.HeldConsumer()->Description());
    tcLog other("TOBUFF2", 0);
    EXPECT_EQ(tcLog::NullConsumer(), other.GetConsumer());
}

TEST(LogEnvironment, SwitchesErrorsOffForAllLoggersWithANoticeForEach)
{
    tcRecords records;
    tcLog before("BEFORE", 0);
    before.SetConsumer(&records);
    {
        const tcVariable off("TCLOG_NO_ERRORLOG", "");
        CaptureStdout();
        tcLog first("FIRST", 0), second("SECOND", 0);
        tcLog unnamed;
        EXPECT_EQ("tcLog: Disabling Error Logging!!!\ntcLog: Disabling Error Logging!!!\n",
                  GetCapturedStdout());
    }
    CaptureStderr();
    const std::string last = tcLog::LastErrorMessage();
    before.logError("dropped");
    before.logError(5, "dropped");
    before.logSystemError("dropped");
    EXPECT_EQ(0u, records.Count());
    EXPECT_EQ(last, tcLog::LastErrorMessage());
    EXPECT_EQ("", GetCapturedStderr());
    tcLog::sbErrorEnabled = true;
}

TEST(LogEnvironment, CopiesErrorsToStandardErrorUnlessSuppressed)
{
    CaptureStderr();
    tcRecords records;
    tcLog loud("LOUD", 0);
    loud.SetConsumer(&records);
    loud.logError("heard");
    loud.logEvent("not an error");
    EXPECT_THAT(GetCapturedStderr(), testing::EndsWith(":    LOUD: ERR:heard\n"));

    const tcQuietErrors suppress;
    CaptureStderr();
    tcLog quiet("QUIET", 0);
    quiet.logError("unheard");
    EXPECT_EQ("", GetCapturedStderr());
}

TEST(LogEnvironment, PrintsEachLoggerWhenVerbose)
{
    const tcVariable verbose("TCLOG_VERBOSE", "1");
    CaptureStderr();
    tcLog log("CHATTY", 3);
    EXPECT_EQ("Log object for CHATTY Level = 3 [NULL Log Device ]\n", GetCapturedStderr());
}

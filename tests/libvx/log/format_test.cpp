// The texts of records are those of printf, whichever way they are made.
#include "log_support.h"

#include <climits>
#include <cstdio>

namespace {

class LogFormat : public testing::Test
{
protected:
    LogFormat() : mLog("FORMAT", 1) { mLog.SetConsumer(&mRecords); }

    template <class... Arguments>
    void ExpectAsPrintf(const char* format, Arguments... arguments)
    {
        char expected[sizeof(tcLogEvent::message)];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::snprintf(expected, sizeof expected, format, arguments...);
        mLog.logDebug(1, format, arguments...);
#pragma GCC diagnostic pop
        EXPECT_STREQ(expected, mRecords.Only().message) << format;
    }

    const tcQuietErrors mQuiet;
    tcRecords mRecords;
    tcLog mLog;
};

TEST_F(LogFormat, OfPlainConversionsIsThatOfPrintf)
{
    ExpectAsPrintf("");
    ExpectAsPrintf("no conversion");
    ExpectAsPrintf("100 %%");
    ExpectAsPrintf("%%%%d%s%%", "x");
    for (int value : {0, 1, -1, 42, INT_MAX, INT_MIN}) {
        ExpectAsPrintf("%d and %i", value, -(value / 2));
        ExpectAsPrintf("%u and %x", static_cast<unsigned>(value), static_cast<unsigned>(value));
    }
    for (long value : {0L, -7L, LONG_MAX, LONG_MIN}) {
        ExpectAsPrintf("%ld, %li, %lu, %lx", value, value, static_cast<unsigned long>(value),
                       static_cast<unsigned long>(value));
    }
    ExpectAsPrintf("%s%s-%s", "", "text", "end");
    ExpectAsPrintf("%s", std::string(255, 'x').c_str());
}

TEST_F(LogFormat, OfOtherConversionsIsThatOfPrintf)
{
    ExpectAsPrintf("%d then %5.2f then %s", 3, 2.5, "text");
    ExpectAsPrintf("%s %hd %c", "text", 70000, 'c');
    ExpectAsPrintf("%08X|%-6d|%+d|%*d", 0xBEEFu, 12, 12, 5, 1);
    ExpectAsPrintf("%zu %lld %llu %p", sizeof(int), -5LL, 5ULL, static_cast<void*>(nullptr));
    ExpectAsPrintf("%.3s and %d", "abcdef", 1);
    ExpectAsPrintf("%ls", L"wide");
}

TEST_F(LogFormat, CutsTextsWherePrintfDoes)
{
    const std::string most(255, 'm'), more(256, 'n'), much(5000, 'o');
    for (const std::string& text : {most, more, much}) {
        ExpectAsPrintf("%s", text.c_str());
        ExpectAsPrintf("%s%d", text.c_str(), 123456);
        ExpectAsPrintf(text.c_str());
    }
    ExpectAsPrintf("%s%d tail", std::string(252, 'p').c_str(), 123456);
    ExpectAsPrintf("%s%x", std::string(254, 'q').c_str(), 0xABCDu);
    ExpectAsPrintf("%s%%%%", std::string(254, 'r').c_str());
}

TEST_F(LogFormat, PrintsNullTextsAsPrintfDoes)
{
    const char* volatile none = nullptr;
    mLog.logDebug(1, "%s and %d", none, 5);
    EXPECT_STREQ("(null) and 5", mRecords.Only().message);
}

TEST_F(LogFormat, KeepsABarePercentSignAtTheEnd)
{
    const std::string format = "progress 100%"; // which the compiler does not see
    const char* const progress = format.c_str();
    mLog.logDebug(1, progress);
    EXPECT_STREQ("progress 100%", mRecords.Only().message);
    void (tcLog::*error)(const char*, ...) = &tcLog::logError;
    (mLog.*error)(progress);
    EXPECT_STREQ("progress 100%", mRecords.Only().message);
    mLog << progress;
    EXPECT_STREQ("progress 100%", mRecords.Only().message);
    const std::string more = "%d files, %s%";
    const char* const files = more.c_str();
    mLog.logDebug(1, files, 7, "all");
    EXPECT_STREQ("7 files, all%", mRecords.Only().message);
    mLog.logError(13, files, 7, "all");
    EXPECT_STREQ("7 files, all%:Error 13:No Installed error decoder", mRecords.Only().message);
}

TEST_F(LogFormat, ShowsWhatPrintfMadeOfWhatItRefuses)
{
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers' own printf does not survive such formats";
#endif
    const char* const rate = "%.1f MB/s, 100%";
    mLog.logDebug(1, rate, 2.5);
    EXPECT_STREQ("2.5 MB/s, 100", mRecords.Only().message);
    const char* const nothing = "%l";
    mLog.logDebug(1, nothing);
    EXPECT_STREQ("%l", mRecords.Only().message);
    const char* const wide = "%ls";
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0x7fffffff), L'\0'};
    mLog.logDebug(1, wide, noCharacter);
    EXPECT_STREQ("%ls", mRecords.Only().message);
    ExpectAsPrintf("%d broken %y", 4);
}

} // namespace

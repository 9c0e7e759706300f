// The texts of records are those of printf, whichever way they are made.
#include "log_support.h"

#include <climits>
#include <cstdio>

namespace {

class LogFormat : public testing::Test
{
protected:
    LogFormat() : mLog("FORMAT", 1) { mLog.SetConsumer(&mRecords); }

    // Returns what printf returned.
    template <class... Arguments>
    int ExpectAsPrintf(const char* format, Arguments... arguments)
    {
        char expected[sizeof(tcLogEvent::message)];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        const int length = std::snprintf(expected, sizeof expected, format, arguments...);
        mLog.logDebug(1, format, arguments...);
#pragma GCC diagnostic pop
        EXPECT_STREQ(length < 0 ? "" : expected, mRecords.Only().message) << format;
        return length;
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

TEST_F(LogFormat, IsEmptyWherePrintfRefuses)
{
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers' own printf does not survive such formats";
#endif
    EXPECT_LT(ExpectAsPrintf("broken %"), 0);
    EXPECT_LT(ExpectAsPrintf("broken %l"), 0);
    ExpectAsPrintf("%d broken %y", 4);
}

} // namespace

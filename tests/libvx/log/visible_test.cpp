// Control characters in the words of strangers.
#include "log_support.h"
#include "vxvisible.h"

#include <sstream>

using testing::HasSubstr;
using vx::Visible;

TEST(Visible, ShowsControlCharacters)
{
    EXPECT_EQ(Visible("one\ntwo\r\n\tthree"), "one\\ntwo\\r\\n\\tthree");
    EXPECT_EQ(Visible("\x1b[31mred\x1b[0m\a"), "\\x1b[31mred\\x1b[0m\\x07");
    EXPECT_EQ(Visible("\x7f"), "\\x7f");
    EXPECT_EQ(Visible(std::string("a\0b", 3)), "a\\x00b");
}

TEST(Visible, ShowsThoseBehindAscii)
{
    EXPECT_EQ(Visible("a\x9b"
                      "31m"),
              "a\\x9b31m"); // by itself
    EXPECT_EQ(Visible("a\xc2\x9b"
                      "31m"),
              "a\\xc2\\x9b31m"); // as UTF-8
    EXPECT_EQ(Visible("\xc2"), "\xc2");
    EXPECT_EQ(Visible("\xc2\n"), "\xc2\\n");
    EXPECT_EQ(Visible("\xe2\x82\x1b"), "\xe2\\x82\\x1b"); // begun, and left
}

TEST(Visible, LeavesEverythingElse)
{
    for (const char* text : {"", "plain text, 100 %", "C:\\new\\x1b",
                             "20 \xc2\xb0"
                             "C \xc3\xa9",
                             "\xe2\x82\xac", "\xf0\x9f\x94\xad",
                             "20 \xb0"
                             "C",
                             "\xff\xfe"}) {
        EXPECT_EQ(Visible(text), text);
    }
}

TEST(Visible, IsWhatALoggerOfStrangersMakesOfTexts)
{
    const tcQuietErrors quiet;
    tcRecords records;
    tcLog log("STRANGE", 1);
    log.SetConsumer(&records);
    log.logDebug(1, "%s\n", "a\nb");
    EXPECT_STREQ(records.Only().message, "a\nb\n");

    log.ShowControlCharacters();
    log.logDebug(1, "%s\n", "a\nb");
    EXPECT_STREQ(records.Only().message, "a\\nb\n");
    log.logError("%d %s", 5, "\x1b[2J");
    EXPECT_STREQ(records.Only().message, "5 \\x1b[2J");
    log.logDebug(1, "%.1f %s", 1.5, "a\nb");
    EXPECT_STREQ(records.Only().message, "1.5 a\\nb");
    log.logDebug(1, "%s", std::string(1000, '\n').c_str());
    EXPECT_EQ(std::string(records.Only().message).size(), 255u);
    log.SetConsumer(nullptr);
}

TEST(Visible, IsHowListsShowConsumers)
{
    class tcNamed : public tcRecords
    {
    public:
        tcNamed() { msDescription = "a\nb"; }
    } named;
    tcLog log("LISTED", 1);
    log.SetConsumer(&named);
    std::ostringstream list;
    StreamLogs(list);
    EXPECT_THAT(list.str(), HasSubstr("LISTED = 1 [a\\nb] (Log object for LISTED)\n"));
    log.SetConsumer(nullptr);
}

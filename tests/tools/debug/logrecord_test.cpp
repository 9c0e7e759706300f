// Records of the library's log: binary ones, and lines of text.
#include "logrecord.h"

#include "tcLog.h"
#include "tcLogConsumer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>

namespace {

tcLogEvent Event()
{
    tcLogEvent event{};
    event.type = tcLogEvent::eError;
    event.seconds = 1705326302;
    event.millis = 7;
    event.level = -3;
    event.errNum = 110;
    std::strcpy(event.tag, "  VXCAM1");
    std::strcpy(event.message, "no answer");
    return event;
}

std::string LineOfLibrary(const tcLogEvent& event)
{
    std::ostringstream text;
    tcLogStream stream(text);
    stream.Output(event);
    return text.str();
}

} // namespace

TEST(LogRecord, IsReadFromTheBytesTheLibrarySends)
{
    const tcLogEvent event = Event();
    const auto record = ParseLogRecord(&event, sizeof event);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->type, eLogError);
    EXPECT_EQ(record->seconds, 1705326302);
    EXPECT_EQ(record->millis, 7);
    EXPECT_EQ(record->level, -3);
    EXPECT_EQ(record->errorNumber, 110);
    EXPECT_EQ(record->tag, "VXCAM1");
    EXPECT_EQ(record->message, "no answer");
}

TEST(LogRecord, HasTheLineThatTheLibraryWrites)
{
    tcLogEvent event = Event();
    for (int type : {0, 1, 2, 3, 4, -1}) {
        for (int level : {-1, 0, 1, 9, 10}) {
            for (int millis : {0, 42, 999, 1000}) {
                event.type = static_cast<tcLogEvent::teEventLogType>(type);
                event.level = level;
                event.millis = millis;
                const auto record = ParseLogRecord(&event, sizeof event);
                ASSERT_TRUE(record);
                EXPECT_EQ(LogLine(*record) + "\n", LineOfLibrary(event));
            }
        }
    }
}

TEST(LogRecord, NeedsAllItsBytesAndTextsThatEnd)
{
    tcLogEvent event = Event();
    EXPECT_FALSE(ParseLogRecord(nullptr, sizeof event));
    EXPECT_FALSE(ParseLogRecord(&event, 0));
    EXPECT_FALSE(ParseLogRecord(&event, sizeof event - 1));
    EXPECT_TRUE(ParseLogRecord(&event, sizeof event));
    std::memset(event.tag, 'x', sizeof event.tag);
    EXPECT_FALSE(ParseLogRecord(&event, sizeof event));
    event = Event();
    std::memset(event.message, 'x', sizeof event.message);
    EXPECT_FALSE(ParseLogRecord(&event, sizeof event));
    event.message[255] = '\0';
    EXPECT_TRUE(ParseLogRecord(&event, sizeof event));
    event.millis = 1001;
    EXPECT_FALSE(ParseLogRecord(&event, sizeof event));
    event.millis = -1;
    EXPECT_FALSE(ParseLogRecord(&event, sizeof event));
}

TEST(LogRecord, IsNeverALineOfTextOfTheSameLength)
{
    std::string line = "20240115-13:45:02.123:    dbgd:DBG1:";
    line.resize(gnLogRecordBytes - 1, 'x');
    line += '\n';
    EXPECT_FALSE(ParseLogRecord(line.data(), line.size()));
}

TEST(LogRecord, SurvivesAnyBytes)
{
    std::mt19937 random(1);
    for (int i = 0; i < 5000; ++i) {
        std::string bytes(i % 2 == 0 ? gnLogRecordBytes : random() % 400, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random() % (i % 3 == 0 ? 256 : 8));
        }
        if (const auto record = ParseLogRecord(bytes.data(), bytes.size())) {
            EXPECT_LE(record->tag.size(), 15u);
            EXPECT_LE(record->message.size(), 255u);
            EXPECT_FALSE(LogLine(*record).empty());
        }
        ParseLogLine(bytes);
        LogLinesInOrder(bytes);
        Printable(bytes);
    }
}

TEST(LogLine, FallsIntoItsParts)
{
    const auto line = ParseLogLine("20240115-13:45:02.1000:  VX:CAM: ERR:open failed: no\n");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->time, "20240115-13:45:02");
    EXPECT_EQ(line->millis, 1000);
    EXPECT_EQ(line->tag, "VX:CAM");
    EXPECT_EQ(line->label, "ERR");
    EXPECT_EQ(line->message, "open failed: no");
    EXPECT_EQ(ParseLogLine("20240115-13:45:02.001:    dbgd:DBG+:")->message, "");
}

TEST(LogLine, IsNotWhatBeginsInAnotherWay)
{
    for (const char* text :
         {"", "\n", "x", "20240115-13:45:02", "20240115-13:45:02.",
          "20240115-13:45:02.12:    dbgd:DBG1:", "20240115-13:45:02.12345:    dbgd:DBG1:",
          "20240115-13:45:02.123:   dbgd:DBG1:text", "20240115-13:45:02.123:    dbgd:DBG:text",
          "20240115 13:45:02.123:    dbgd:DBG1:text", "20240115-13:45:02.-12:    dbgd:DBG1:text",
          "20240115-13:45:02.123:    dbgd:DBG1", "20240115-13:45:02.1001:    dbgd:DBG1:text"}) {
        EXPECT_FALSE(ParseLogLine(text)) << text;
    }
}

TEST(LogLines, ComeInOrderOfTimeFromABufferThatWentRound)
{
    const std::string head = ":    TEST:DBG1:";
    const std::string newer = "20240101-00:00:01.002" + head + "e\n",
                      last = "20240101-00:00:01.003" + head + "f\n";
    const std::string first = "20231231-23:59:59.900" + head + "a\n",
                      back = "20231231-23:59:59.899" + head + "b\nc\n";
    const std::vector<std::string> expected = {
        first.substr(0, first.size() - 1), back.substr(0, back.size() - 1),
        newer.substr(0, newer.size() - 1), last.substr(0, last.size() - 1)};
    EXPECT_EQ(LogLinesInOrder(newer + last + first + back), expected);
    EXPECT_EQ(LogLinesInOrder(first + back + newer + last), expected);
    EXPECT_EQ(LogLinesInOrder("x\n" + newer + first).front(), "x");
    EXPECT_TRUE(LogLinesInOrder("").empty());
}

TEST(LogText, IsPrintedWithoutControlCharacters)
{
    EXPECT_EQ(Printable("plain\ttext"), "plain\\ttext");
    EXPECT_EQ(Printable(std::string("a\0b\n\x1b[2J\r\x7f", 10)), "a\\x00b\\n\\x1b[2J\\r\\x7f");
    EXPECT_EQ(Printable("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(Printable("\xc2\x9b\xc2"), "\\xc2\\x9b\xc2");
}

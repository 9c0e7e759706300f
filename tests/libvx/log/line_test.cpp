#include "consumers_support.h"
#include "log_support.h"

#include <cstring>
#include <ctime>
#include <map>

using testing::StartsWith;

static void SetZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

TEST(LogLine, HasTimeMillisecondsTagLabelAndMessage)
{
    SetZone("UTC0");
    tcLogEvent event = RecordOf(tcLogEvent::eDebug, 1, "message text");
    event.seconds = 1705326302;
    event.millis = 123;
    EXPECT_EQ("20240115-13:45:02.123:    dbgd:DBG1:message text\n", LineOf(event));
    event.type = tcLogEvent::eError;
    strcpy(event.tag, "   Debug");
    strcpy(event.message, "open failed");
    EXPECT_EQ("20240115-13:45:02.123:   Debug: ERR:open failed\n", LineOf(event));
}

TEST(LogLine, HasATagOfEightColumnsAtLeast)
{
    tcLogEvent event = RecordOf(tcLogEvent::eDebug, 1, "x");
    for (const auto& [tag, shown] :
         std::map<std::string, std::string>{{"", "        "},
                                            {"CAM", "     CAM"},
                                            {"SEVENTH", " SEVENTH"},
                                            {"ONE TO TEN", "ONE TO TEN"}}) {
        strcpy(event.tag, tag.c_str());
        EXPECT_THAT(LineOf(event), testing::EndsWith(":" + shown + ":DBG1:x\n"));
    }
}

TEST(LogLine, HasLocalTime)
{
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    SetZone("UTC0");
    EXPECT_THAT(LineOf(event), StartsWith("20010909-01:46:40.005:"));
    SetZone("EST5");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    SetZone("EST5EDT");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-21:46:40.005:"));
    SetZone("EST4");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-21:46:40.005:"));
    SetZone("EST6");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-19:46:40.005:"));
}

TEST(LogLine, FollowsAZoneThatNobodyAnnounced)
{
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    const std::string longName(150, 'A');
    setenv("TZ", "EST5", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    setenv("TZ", "XYZ-2", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010909-03:46:40.005:"));
    setenv("TZ", "", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010909-01:46:40.005:"));
    setenv("TZ", (longName + "5").c_str(), 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    setenv("TZ", (longName + "6").c_str(), 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-19:46:40.005:"));
}

TEST(LogLine, HasAtLeastThreeDigitsOfMilliseconds)
{
    tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    for (const int millis : {0, 7, 42, 999, 1000, 123456, -5, -1234}) {
        event.millis = millis;
        char expected[32];
        snprintf(expected, sizeof expected, ".%03d:    dbgd: EVT:x\n", millis);
        EXPECT_THAT(LineOf(event), testing::EndsWith(expected));
    }
}

static std::string LabelOf(int type, int level)
{
    SetZone("UTC0");
    const auto event = RecordOf(static_cast<tcLogEvent::teEventLogType>(type), level, "m");
    return LineOf(event).substr(31, 4);
}

TEST(LogLine, LabelsRecordsByTypeAndLevel)
{
    for (int level = 0; level <= 9; ++level)
        EXPECT_EQ("DBG" + std::to_string(level), LabelOf(0, level));
    EXPECT_EQ("DBG+", LabelOf(0, 10));
    EXPECT_EQ("DBG+", LabelOf(0, 12));
    EXPECT_EQ("DBG+", LabelOf(0, -1));
    EXPECT_EQ(" JNL", LabelOf(1, 0));
    EXPECT_EQ(" ERR", LabelOf(2, 0));
    EXPECT_EQ(" EVT", LabelOf(3, 0));
    EXPECT_EQ(" UNK", LabelOf(4, 0));
    EXPECT_EQ(" UNK", LabelOf(-1, 0));
}

TEST(LogLine, TakesRecordsWithoutTerminators)
{
    SetZone("UTC0");
    tcLogEvent event;
    memset(&event, 'a', sizeof event);
    event.type = tcLogEvent::eEvent;
    event.seconds = 0;
    event.millis = 1000;
    EXPECT_EQ("19700101-00:00:00.1000:" + std::string(16, 'a') + ": EVT:" + std::string(256, 'a') +
                  "\n",
              LineOf(event));
}

// LOG over TCP: loggers, their consumers and levels.
#include "debug_support.h"
#include "log_handler_support.h"

#include <sstream>

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

} // namespace

TEST_F(LogCommand, ListsAllLoggersInOneReply)
{
    tcLog zoom("zoom", -3), above("ABOVE", 12);
    tcLogBuffer buffer(200);
    zoom.SetConsumer(&buffer);
    GetLogLevel("EMPTY");
    const std::string reply = Ask("LOG:LIST");
    EXPECT_EQ("ABOVE = 12 [NULL Log Device] (Log object for ABOVE)\n"
              "CAM = 1 [NULL Log Device] (Log object for CAM)\n",
              reply.substr(0, reply.find("dbgd")));
    EXPECT_THAT(reply, EndsWith("\nzoom = -3 [200 Line Buffer] (Log object for zoom)\n"));
    EXPECT_THAT(reply, Not(HasSubstr("EMPTY")));
    EXPECT_EQ(reply, Ask("LOG:LIST everything\r\n"));
    EXPECT_EQ(reply, Ask("LOG:LISTING"));
    zoom.SetConsumer(nullptr);
}

TEST_F(LogCommand, GoesOnSearchingAfterAList)
{
    tcDbgd::GetLog().setDbgLevel(5);
    Ask("LOG:LIST");
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_log:Run command = LIST"));
    EXPECT_TRUE(Eventually([&] { return mLog.Has("5 tcDbgdWB_log: unknown command = LIST"); }));
}

TEST_F(LogCommand, AnswersNothingToUnknownCommands)
{
    tcDbgd::GetLog().setDbgLevel(5);
    for (const char* command : {"NOPE", "", "list", " LIST", "EN", "LIS"}) {
        Tell(std::string("LOG:") + command);
        EXPECT_TRUE(mLog.Has(std::string("5 tcDbgdWB_log: unknown command = ") + command));
    }
    Tell("LOG");
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr("CAM"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_log:Run command = DIR"));
    EXPECT_FALSE(mLog.Has("5 tcDbgdWB_log: unknown command = DIR"));
}

TEST_F(LogCommand, ListsConsumersByTypeAndOptionsInADirectory)
{
    tcLogUdp udp("127.0.0.1", 10101, false);
    mLogger.SetConsumer(&udp);
    tcLog null("CAN", 2), buffered("CAP", 3), file("CAR", 4), stream("CAT", 5);
    tcLogBuffer buffer(7);
    tcLogFile text(Path("file.log").c_str());
    tcLogStream out(std::cout);
    buffered.SetConsumer(&buffer);
    file.SetConsumer(&text);
    stream.SetConsumer(&out);
    GetLogLevel("CAX");
    const std::string reply = Ask("LOG:DIR");
    EXPECT_EQ("CAM,1,UDP,127.0.0.1,10101 (Log object for CAM)\n"
              "CAN,2,NULL (Log object for CAN)\n"
              "CAP,3,BUFFER,7 (Log object for CAP)\n"
              "CAR,4,FILE," +
                  Path("file.log") +
                  " (Log object for CAR)\n"
                  "CAT,5,STREAM,cout (Log object for CAT)\n",
              reply.substr(0, reply.find("dbgd")));
    for (tcLog* log : {&mLogger, &buffered, &file, &stream})
        log->SetConsumer(nullptr);
}

TEST_F(LogCommand, MarksLoggersWithoutConsumer)
{
    tcLogConsumer* before = tcLog::mpDefaultConsumer;
    tcLog::mpDefaultConsumer = nullptr;
    mLogger.SetConsumer(nullptr);
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr("CAM,1,UNK (Log object for CAM)\n"));
    EXPECT_THAT(Ask("LOG:LIST"), HasSubstr("CAM = 1 (Log object for CAM)\n"));
    EXPECT_EQ("CAM = 1\n", Ask("LOG:GET CAM"));
    tcLog::mpDefaultConsumer = before;
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, TellsTheLevelOfALogger)
{
    tcDbgd::GetLog().setDbgLevel(5);
    EXPECT_EQ("CAM = 1 [NULL Log Device]\n", Ask("LOG:GET CAM"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    mLogger.setDbgLevel(-4);
    EXPECT_EQ("CAM = -4 [NULL Log Device]\n", Ask("LOG:GET \t CAM\t and more\r\n"));
    EXPECT_EQ("ERROR", Ask("LOG:GET NOPE"));
    EXPECT_EQ("ERROR", Ask("LOG:GET cam"));
    EXPECT_EQ("ERROR", Ask("LOG:GET"));
    GetLogLevel("EMPTY");
    EXPECT_EQ("ERROR", Ask("LOG:GET EMPTY"));
}

TEST_F(LogCommand, SwitchesDebugRecordsOffForAll)
{
    tcLogBuffer buffer(10);
    mLogger.SetConsumer(&buffer);
    Tell("LOG:ENABLE 0");
    EXPECT_FALSE(tcLog::sbDebugEnabled);
    mLogger.logDebug(1, "silenced");
    mLogger.logError("an error");
    Tell("LOG:ENABLE -1");
    EXPECT_TRUE(tcLog::sbDebugEnabled);
    mLogger.logDebug(1, "heard");
    std::ostringstream text;
    text << buffer;
    EXPECT_THAT(text.str(),
                AllOf(Not(HasSubstr("silenced")), HasSubstr("an error"), HasSubstr("heard")));
    Tell("LOG:ENABLE text"); // reads as 0
    EXPECT_FALSE(tcLog::sbDebugEnabled);
    Tell("LOG:ENABLE 1");
    tcDbgd::GetLog().setDbgLevel(5);
    Tell("LOG:ENABLE");
    EXPECT_TRUE(tcLog::sbDebugEnabled);
    EXPECT_TRUE(mLog.Has("5 Enable Command did not supply second arguement"));
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, ShowsTheErrorRing)
{
    EXPECT_EQ("", Ask("LOG:ERRS"));
    mLogger.logError(13, "bad");
    mLogger.logError("%s", "worse");
    const std::string reply = Ask("LOG:ERRS");
    EXPECT_EQ(tcLog::ErrorBuffer(), reply);
    EXPECT_THAT(reply, StartsWith("    0\t"));
    EXPECT_THAT(reply,
                HasSubstr(":     CAM: ERR:bad:Error 13:No Installed error decoder\n\n    1\t"));
}

TEST_F(LogCommand, SetsLevels)
{
    tcDbgd::GetLog().setDbgLevel(5);
    Tell("LOG:SET CAM 3");
    EXPECT_EQ(3, mLogger.getDbgLevel());
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_log::Set CAM to 3"));
    Tell("LOG:SET\tCAM  -2\n");
    EXPECT_EQ(-2, mLogger.getDbgLevel());
    Tell("LOG:SET CAM text");
    EXPECT_EQ(0, mLogger.getDbgLevel());
    Tell("LOG:SET CAM");
    EXPECT_TRUE(mLog.Has("5 No level specified in Set"));
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
}

TEST_F(LogCommand, ReportsUnknownLoggersToWhoSetsThem)
{
    EXPECT_EQ("ERROR", Ask("LOG:SET NOPE 3"));
    EXPECT_EQ("ERROR", Ask("LOG:SET NOPE 3 200"));
    Tell("LOG:SET NOPE");
    Tell("LOG:SET");
    GetLogLevel("EMPTY");
    EXPECT_EQ("ERROR", Ask("LOG:SET EMPTY 3"));
    EXPECT_EQ(nullptr, tcLog::FindLogPtr("NOPE"));
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("NOPE"));
}

TEST_F(LogCommand, RecordsShowWhatIsInForce)
{
    tcLogConsumer* original = mLogger.GetConsumer();
    Run("SET CAM 1 10");
    const tcLogInfo* info = DbgdWB_logPtr->FindLogInfoPtr("CAM");
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(&mLogger, info->log);
    EXPECT_EQ(mLogger.GetConsumer(), info->createdConsumer);
    EXPECT_EQ(original, info->savedConsumer);
    EXPECT_EQ(nullptr, info->uriConsumer);
    Run("URI CAM buff://11");
    EXPECT_EQ(info, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    EXPECT_EQ(mLogger.GetConsumer(), info->createdConsumer);
    EXPECT_EQ(mLogger.GetConsumer(), info->uriConsumer);
    EXPECT_STREQ("10 Line Buffer", info->savedConsumer->Description());
    Run("SET CAM 1");
    EXPECT_EQ(nullptr, info->createdConsumer);
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("NOPE"));
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr(nullptr));
}

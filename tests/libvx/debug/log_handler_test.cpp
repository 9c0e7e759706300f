// LOG over TCP.
#include "debug_support.h"

#include <fstream>
#include <sstream>

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

std::string ContentOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Tells when it is deleted.
class tcMortal : public tcLogConsumer
{
public:
    explicit tcMortal(bool* deleted) : mpDeleted(deleted) { msDescription = "Mortal"; }
    ~tcMortal() override { *mpDeleted = true; }
    void Output(tcLogEvent const&) override {}
    char const* TypeName() const override { return "MORTAL"; }

private:
    bool* mpDeleted;
};

class LogCommand : public Daemon
{
protected:
    LogCommand() : mLogger(*Keep(new tcLog("CAM", 1)))
    {
        char folder[] = "/tmp/log-command-XXXXXX";
        msFolder = mkdtemp(folder);
        std::filesystem::current_path(msFolder);
        Start();
    }
    ~LogCommand() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(msFolder);
    }

    // Sends a request that must not be answered.
    void Tell(const std::string& request) { EXPECT_EQ("", Ask(request)) << request; }

    // The same in this thread.
    static void Run(std::string command) { DbgdWB_logPtr->Run(nullptr, command.data()); }

    std::string Description() { return mLogger.HeldConsumer()->Description(); }
    std::string Path(const char* name) const { return msFolder + "/" + name; }

    // How many of the process's descriptors are this file.
    int OpenCount(const std::string& path)
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            if (std::filesystem::read_symlink(entry.path(), error) == path) ++count;
        }
        return count;
    }

    tcLog& mLogger;
    std::string msFolder;
};

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

TEST_F(LogCommand, CapturesIntoABufferAndDumpsIt)
{
    mLogger.logDebug(1, "too early");
    Tell("LOG:SET CAM 3 200");
    EXPECT_EQ("CAM = 3 [200 Line Buffer]\n", Ask("LOG:GET CAM"));
    EXPECT_EQ("", Ask("LOG:DUMP CAM"));
    mLogger.logDebug(3, "first");
    mLogger.logDebug(4, "not of this level");
    mLogger.logError("second");
    const char* line = "[0-9]+-[0-9]+:[0-9]+:[0-9]+\\.[0-9]+:     CAM:";
    EXPECT_THAT(Ask("LOG:DUMP CAM"),
                MatchesRegex(std::string(line) + "DBG3:first\n" + line + " ERR:second\n"));
    Tell("LOG:SET CAM 3");
    EXPECT_EQ("CAM = 3 [NULL Log Device]\n", Ask("LOG:GET CAM"));
    EXPECT_NE(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
}

TEST_F(LogCommand, DumpsOnlyWhatItRedirectedItself)
{
    tcDbgd::GetLog().setDbgLevel(5);
    tcLogBuffer buffer(10);
    mLogger.SetConsumer(&buffer);
    mLogger.logDebug(1, "text");
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP NOPE"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP"));
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    Tell("LOG:SET CAM 1 .");
    EXPECT_NE(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM")); // a record without a consumer
    Tell("LOG:SET CAM 1 file.log");
    mLogger.logDebug(1, "text");
    EXPECT_EQ("", Ask("LOG:DUMP CAM")); // a consumer that stores nothing
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, WritesToAFileAndClosesIt)
{
    tcLogBuffer buffer(10);
    mLogger.SetConsumer(&buffer);
    Tell("LOG:SET CAM 2 " + Path("cam.log") + " ignored");
    EXPECT_EQ(Path("cam.log"), Description());
    mLogger.logDebug(2, "into the file");
    EXPECT_EQ(1, OpenCount(Path("cam.log")));
    Tell("LOG:SET CAM 4");
    EXPECT_EQ(0, OpenCount(Path("cam.log")));
    EXPECT_EQ(4, mLogger.getDbgLevel());
    mLogger.logDebug(2, "into the buffer");
    EXPECT_THAT(ContentOf(Path("cam.log")), EndsWith(":     CAM:DBG2:into the file\n"));
    std::ostringstream text;
    text << buffer;
    EXPECT_THAT(text.str(), EndsWith("into the buffer\n"));
    Tell("LOG:SET CAM 5"); // nothing left to undo
    EXPECT_EQ("10 Line Buffer", Description());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, ShowsControlCharactersOfFileNames)
{
    const std::string name = Path("\x1b[2Jcam.log"), shown = Path("\\x1b[2Jcam.log");
    Tell("LOG:SET CAM 2 " + name);
    EXPECT_EQ("CAM = 2 [" + shown + "]\n", Ask("LOG:GET CAM"));
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr(shown));
    EXPECT_THAT(Ask("LOG:DIR"), Not(HasSubstr("\x1b")));
    Tell("LOG:SET CAM 2");
}

TEST_F(LogCommand, WritesToStandardOutput)
{
    Tell("LOG:SET CAM 2 -");
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr("CAM,2,STREAM,cout (Log object for CAM)\n"));
    ::testing::internal::CaptureStdout();
    mLogger.logDebug(2, "hello");
    EXPECT_THAT(::testing::internal::GetCapturedStdout(), EndsWith(":     CAM:DBG2:hello\n"));
    Tell("LOG:SET CAM 7 .");
    EXPECT_EQ("CAM = 7 [Log to a stream]\n", Ask("LOG:GET CAM"));
    Tell("LOG:SET CAM 7");
    EXPECT_EQ("NULL Log Device", Description());
}

TEST_F(LogCommand, ReadsAFileWordThatStartsWithANumberAsACount)
{
    Tell("LOG:SET CAM 1 200abc");
    EXPECT_EQ("200 Line Buffer", Description());
    Tell("LOG:SET CAM 1 0"); // a file of that name
    EXPECT_EQ("0", Description());
    Tell("LOG:SET CAM 1 x5");
    EXPECT_EQ("x5", Description());
    Tell("LOG:SET CAM 1 229824"); // of 292 bytes each: 64 MiB
    EXPECT_EQ("229824 Line Buffer", Description());
}

TEST_F(LogCommand, BuffersTakeMemoryAsRecordsCome)
{
    const long before = ResidentKiB();
    Tell("LOG:SET CAM 1 229824");
    EXPECT_LT(ResidentKiB() - before, 2000);
    const std::string text(250, 'x');
    for (int i = 0; i < 100000; ++i)
        mLogger.logDebug(1, "%s", text.c_str());
    EXPECT_GT(ResidentKiB() - before, 25000);
#if !defined(__SANITIZE_THREAD__) // which takes memory for each byte that is touched
    EXPECT_LT(ResidentKiB() - before, 45000);
#endif
}

TEST_F(LogCommand, RefusesBuffersOfNoOrTooManyLines)
{
    tcDbgd::GetLog().setDbgLevel(5);
    for (const char* count : {"229825", "1000000", "-1", "-200", "99999999999999999999"}) {
        Tell(std::string("LOG:SET CAM 6 ") + count);
        EXPECT_EQ("CAM = 6 [NULL Log Device]\n", Ask("LOG:GET CAM")) << count;
        EXPECT_TRUE(mLog.Has(std::string("5 tcDbgdWB_log::Set cannot make a buffer of ") + count +
                             " lines"));
    }
    EXPECT_THAT(std::filesystem::directory_iterator(msFolder) ==
                    std::filesystem::directory_iterator(),
                true);
    Tell("LOG:URI CAM buff://229825");
    EXPECT_EQ("NULL Log Device", Description());
}

TEST_F(LogCommand, ASecondFileTakesThePlaceOfTheFirst)
{
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    Tell("LOG:SET CAM 2 " + Path("first.log"));
    Tell("LOG:SET CAM 2 " + Path("second.log"));
    EXPECT_EQ(0, OpenCount(Path("first.log")));
    EXPECT_EQ(1, OpenCount(Path("second.log")));
    Tell("LOG:SET CAM 2 50");
    EXPECT_EQ(0, OpenCount(Path("second.log")));
    Tell("LOG:SET CAM 2");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, RedirectsToAnyUri)
{
    tcDbgd::GetLog().setDbgLevel(5);
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    tcBound sink(SOCK_DGRAM);
    const std::string uri = "udp://127.0.0.1:" + std::to_string(sink.Port());
    ::testing::internal::CaptureStdout(); // datagram sockets say where they are bound
    Tell("LOG:URI CAM \t " + uri);
    ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_log::Set URI for CAM to " + uri));
    mLogger.logDebug(1, "by air");
    EXPECT_THAT(sink.Receive(), EndsWith(":     CAM:DBG1:by air\n"));
    Tell("LOG:URI CAM");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    Tell("LOG:URI CAM  \t"); // nothing left to undo
    EXPECT_EQ(&original, mLogger.GetConsumer());
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
    Tell("LOG:URI NOPE buff://10");
    EXPECT_TRUE(mLog.Has("5 Log NOPE not found!"));
    Tell("LOG:URI");
    EXPECT_TRUE(mLog.Has("5 Log  not found!"));
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, DumpsWhatAUriCaptured)
{
    Tell("LOG:URI CAM buff://3");
    for (int i = 1; i <= 5; ++i)
        mLogger.logDebug(1, "line %d", i);
    EXPECT_THAT(Ask("LOG:DUMP CAM"), MatchesRegex("[^\n]*:line 4\n[^\n]*:line 5\n[^\n]*:line 3\n"));
}

TEST_F(LogCommand, ASecondUriTakesThePlaceOfTheFirst)
{
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    Tell("LOG:URI CAM file://first.log");
    EXPECT_EQ(1, OpenCount(Path("first.log")));
    Tell("LOG:URI CAM file://second.log");
    EXPECT_EQ(0, OpenCount(Path("first.log")));
    EXPECT_EQ(1, OpenCount(Path("second.log")));
    Tell("LOG:URI CAM null");
    EXPECT_EQ(0, OpenCount(Path("second.log")));
    Tell("LOG:URI CAM nonsense");
    EXPECT_EQ("NULL Log Device", Description());
    Tell("LOG:URI CAM");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, ClosesWhatAUriOpenedWhenThatIsUndone)
{
    Tell("LOG:URI CAM file://uri.log");
    EXPECT_EQ(1, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM file://uri.log");
    Tell("LOG:SET CAM 1");
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
}

TEST_F(LogCommand, AUriOverAFileSavesTheFile)
{
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    Tell("LOG:URI CAM buff://10");
    EXPECT_EQ(1, OpenCount(Path("file.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ(Path("file.log"), Description());
    mLogger.logDebug(1, "text");
    EXPECT_THAT(ContentOf(Path("file.log")), EndsWith("text\n"));
}

TEST_F(LogCommand, AFileOverAUriSavesTheUri)
{
    Tell("LOG:URI CAM file://uri.log");
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    EXPECT_EQ(1, OpenCount(Path("uri.log")));
    Tell("LOG:SET CAM 1");
    EXPECT_EQ(0, OpenCount(Path("file.log")));
    EXPECT_EQ("uri.log", Description());
    Tell("LOG:URI CAM buff://5"); // the second in a row
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ("NULL Log Device", Description());
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

TEST_F(LogCommand, LeavesAnotherLoggerOfTheNameAlone)
{
    Tell("LOG:SET CAM 1 10");
    auto* kept = new char[sizeof(tcLog)]; // so that the next one gets another place
    delete &mLogger;
    tcLog second("CAM", 1);
    delete[] kept;
    ASSERT_NE(&second, DbgdWB_logPtr->FindLogInfoPtr("CAM")->log);
    tcLogBuffer own(33);
    second.SetConsumer(&own);
    Tell("LOG:SET CAM 5 20");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:URI CAM buff://30");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:URI CAM");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:SET CAM 6");
    EXPECT_EQ("CAM = 6 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    second.SetConsumer(nullptr);
    Keep(new tcLog("CAM2", 1));
    Tell("LOG:SET CAM2 1 20");
    EXPECT_EQ("CAM2 = 1 [20 Line Buffer]\n", Ask("LOG:GET CAM2"));
}

TEST_F(LogCommand, NeverDeletesConsumersOfTheApplication)
{
    bool deleted = false;
    tcMortal own(&deleted);
    mLogger.SetConsumer(&own);
    Tell("LOG:SET CAM 1 10");
    Tell("LOG:URI CAM buff://10"); // forgets what the first one saved
    Tell("LOG:URI CAM");
    Tell("LOG:SET CAM 1");
    EXPECT_FALSE(deleted);
    mLogger.SetConsumer(nullptr);
}

// The application may do that: its logger refers to another one.
TEST_F(LogCommand, ForgetsASavedConsumerThatTheApplicationDestroys)
{
    for (const char* redirection : {"LOG:SET CAM 1 100", "LOG:URI CAM buff:100"}) {
        auto own = std::make_unique<tcLogBuffer>(7);
        mLogger.SetConsumer(own.get());
        Tell(redirection);
        EXPECT_EQ("100 Line Buffer", Description());
        own.reset();
        EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM")->savedConsumer);
        mLogger.logError("captured");
        EXPECT_THAT(Ask("LOG:DUMP CAM"), HasSubstr("captured"));
        Tell("LOG:SET CAM 1");
        EXPECT_EQ(tcLog::NullConsumer(), mLogger.GetConsumer());
        mLogger.logError("to nobody");
    }
}

TEST_F(LogCommand, ASecondRedirectionOverADestroyedConsumerEndsAtTheDefaultOne)
{
    auto own = std::make_unique<tcLogBuffer>(7);
    mLogger.SetConsumer(own.get());
    Tell("LOG:URI CAM buff:100");
    own.reset();
    Tell("LOG:URI CAM buff:200");
    Tell("LOG:SET CAM 1 300");
    EXPECT_EQ("300 Line Buffer", Description());
    Tell("LOG:SET CAM 1");
    EXPECT_EQ("200 Line Buffer", Description()); // what the file word replaced
    mLogger.SetConsumer(nullptr);
}

// Nothing of the destroyed one is left behind to keep a later one at its address in use.
TEST_F(LogCommand, KeepsNothingInUseForADestroyedConsumer)
{
    for (int i = 0; i < 50; ++i) {
        bool deleted = false;
        auto* own = new tcMortal(&deleted);
        mLogger.SetConsumer(own);
        Tell("LOG:SET CAM 1 100");
        if (i % 2 == 0) {
            delete own;
            Tell("LOG:SET CAM 1");
        } else {
            Tell("LOG:SET CAM 1");
            mLogger.SetConsumer(nullptr);
            tcLog::RetireConsumer(own);
            EXPECT_TRUE(deleted) << i;
        }
    }
}

TEST_F(LogCommand, ClosesConsumersOfTheLibraryThatItReplacesForGood)
{
    setenv("OWNED_LOGURI", "file://owned.log", 1);
    tcLog logger("OWNED", 1);
    EXPECT_EQ(1, OpenCount(Path("owned.log")));
    Tell("LOG:SET OWNED 1 10");
    EXPECT_EQ(1, OpenCount(Path("owned.log"))); // saved
    Tell("LOG:SET OWNED 1");
    logger.logDebug(1, "still here");
    EXPECT_THAT(ContentOf(Path("owned.log")), EndsWith("still here\n"));
    Tell("LOG:SET OWNED 1 10");
    Tell("LOG:URI OWNED buff://10"); // saves the buffer in its place
    EXPECT_EQ(0, OpenCount(Path("owned.log")));
}

TEST_F(LogCommand, KeepsAConsumerThatAnotherLoggerUses)
{
    tcLog other("OTHER", 1);
    Tell("LOG:SET CAM 1 " + Path("shared.log"));
    other.SetConsumer(mLogger.GetConsumer());
    Tell("LOG:SET CAM 1");
    other.logDebug(1, "still open");
    EXPECT_THAT(ContentOf(Path("shared.log")), EndsWith("still open\n"));
    other.SetConsumer(nullptr);
    EXPECT_EQ(0, OpenCount(Path("shared.log")));
}

TEST_F(LogCommand, SurvivesTheRedirectionOfAllLoggers)
{
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    tcLog::RedirectAllLogs("buff://99");
    EXPECT_EQ("99 Line Buffer", Description());
    Tell("LOG:SET CAM 1 " + Path("again.log"));
    EXPECT_EQ(0, OpenCount(Path("file.log")));
    Tell("LOG:SET CAM 1");
    EXPECT_EQ("99 Line Buffer", Description());
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(0, OpenCount(Path("again.log")));
}

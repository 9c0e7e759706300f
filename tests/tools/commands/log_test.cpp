// vxcam log: the loggers of another process, through its debug daemon.
#include "service_support.h"
#include "tcNetworkNamespace.h"
#include "tcSimServer.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace {

class Log : public Services
{
protected:
    std::vector<std::string> Arguments(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"log", msTarget});
        return more;
    }
    std::string Printed(const std::vector<std::string>& more) const
    {
        return ::Printed(Arguments(more));
    }
    nlohmann::json Document(const std::vector<std::string>& more) const
    {
        return nlohmann::json::parse(Printed(more), nullptr, false);
    }
    void ExpectFailure(const std::vector<std::string>& more, int code, const std::string& text)
    {
        ::ExpectFailure(Arguments(more), code, text);
    }

    tcLog mtCamera{"CAMERA", 1};
};

// A tail of CAMERA that has begun.
class tcTail
{
public:
    tcTail(const std::string& target, tcLog& log, std::vector<std::string> more)
        : mtRun(WithStart(target, std::move(more)))
    {
        const std::string kind = "UDP";
        EXPECT_TRUE(WaitUntil([&] { return log.HeldConsumer()->TypeName() == kind; }))
            << mtRun.Errors();
    }
    tcRun& Run() { return mtRun; }

private:
    static std::vector<std::string> WithStart(const std::string& target,
                                              std::vector<std::string> more)
    {
        more.insert(more.begin(), {"log", target, "tail", "CAMERA"});
        return more;
    }

    tcRun mtRun;
};

} // namespace

TEST_F(Log, ListShowsEachLoggerWithItsLevelAndDestination)
{
    mtCamera.setDbgLevel(-12);
    EXPECT_THAT(Printed({"list"}), HasSubstr("CAMERA  -12  NULL Log Device\n"));
    EXPECT_THAT(Printed({"list"}), HasSubstr("dbgd      0  NULL Log Device\n"));
    EXPECT_EQ(Printed({"list", "-q"}), "");
    const auto document = Document({"list", "--json"});
    EXPECT_EQ(document["target"], msTarget);
    EXPECT_EQ(document["loggers"][0]["name"], "CAMERA");
    EXPECT_EQ(document["loggers"][0]["level"], -12);
    EXPECT_EQ(document["loggers"][0]["consumer"], "NULL Log Device");
}

TEST_F(Log, SetChangesTheLevelAndGetShowsIt)
{
    EXPECT_EQ(Printed({"set", "CAMERA", "-3"}), "CAMERA: level -3, to NULL Log Device\n");
    EXPECT_EQ(mtCamera.getDbgLevel(), -3);
    EXPECT_EQ(Printed({"get", "CAMERA"}), "CAMERA: level -3, to NULL Log Device\n");
    EXPECT_EQ(Document({"get", "CAMERA", "--json"})["level"], -3);
    EXPECT_EQ(Document({"set", "CAMERA", "5", "--json"})["level"], 5);
}

// The seconds and the milliseconds of a record are read one after the other, and do not always
// belong together where a second begins: this is done until no second has begun just before or
// meanwhile.
static void WithinOneSecond(const std::function<void()>& log)
{
    using namespace std::chrono;
    const auto now = [] { return system_clock::now().time_since_epoch(); };
    for (;;) {
        const auto begin = now();
        log();
        const bool hasBegun = duration_cast<seconds>(begin) != duration_cast<seconds>(now());
        if (begin % seconds(1) > milliseconds(20) && !hasBegun) return;
    }
}

TEST_F(Log, CapturesInABufferAndShowsItOldestFirst)
{
    EXPECT_EQ(Printed({"set", "CAMERA", "4", "3"}), "CAMERA: level 4, to 3 Line Buffer\n");
    WithinOneSecond([this] {
        for (int i = 1; i <= 5; ++i) {
            mtCamera.logDebug(4, "record %d", i);
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the order is that of time
        }
    });
    EXPECT_THAT(Printed({"dump", "CAMERA"}),
                MatchesRegex(".*:  CAMERA:DBG4:record 3\n.*:  CAMERA:DBG4:record 4\n"
                             ".*:  CAMERA:DBG4:record 5\n"));
    const auto document = Document({"dump", "CAMERA", "--json"});
    ASSERT_EQ(document["records"].size(), 3u);
    EXPECT_EQ(document["records"][0]["message"], "record 3");
    EXPECT_EQ(document["records"][0]["label"], "DBG4");
    EXPECT_EQ(Printed({"set", "CAMERA", "0"}), "CAMERA: level 0, to NULL Log Device\n");
    ExpectFailure({"dump", "CAMERA"}, 4, "nothing of CAMERA is being captured");
}

TEST_F(Log, SetRefusesWhatTheProcessCannotDo)
{
    ExpectFailure({"set", "CAMERA", "1", "1000001"}, 4, "keeps no 1000001 lines");
    ExpectFailure({"set", "CAMERA", "1", "/no/such/folder/file"}, 4,
                  "cannot write /no/such/folder/file");
    ExpectFailure({"set", "NOBODY", "1"}, 4, "there is no logger NOBODY");
    ExpectFailure({"set", "CAMERA", "high"}, 1, "LEVEL");
    ExpectFailure({"set", "CAMERA", "1", "a file"}, 1, "file 'a file'");
    ExpectFailure({"set", "CAM\nERA", "1"}, 1, "logger 'CAM\\nERA'");
    EXPECT_EQ(Printed({"set", "CAMERA", "2", "."}),
              "CAMERA: level 2, to Log to a stream\n"); // the file that could not be written
    EXPECT_EQ(Printed({"set", "CAMERA", "1"}), "CAMERA: level 1, to NULL Log Device\n");
}

TEST_F(Log, UriRedirectsAndWithoutOneUndoesIt)
{
    EXPECT_EQ(Printed({"uri", "CAMERA", "buff:20"}), "CAMERA: level 1, to 20 Line Buffer\n");
    EXPECT_EQ(Printed({"uri", "CAMERA", "udp:127.0.0.1:9:bin"}),
              "CAMERA: level 1, to UDP/bin to 127.0.0.1:9\n");
    EXPECT_EQ(Printed({"uri", "CAMERA"}), "CAMERA: level 1, to NULL Log Device\n");
    ExpectFailure({"uri", "CAMERA", "http://x"}, 1, "URI 'http://x': it begins with udp");
    ExpectFailure({"uri", "NOBODY", "null"}, 4, "there is no logger NOBODY");
    ExpectFailure({"uri", "CAMERA", "cou"}, 1, "URI 'cou'");
    for (const char* uri : {"udp:127.0.0.1:0", "udp://127.0.0.1:65536:bin", "udp:127.0.0.1:x",
                            "udp:127.0.0.1", "udp", "udp:127.0.0.1:-1"}) {
        ExpectFailure({"uri", "CAMERA", uri}, 1, "the port is 1 to 65535");
    }
}

TEST_F(Log, ErrorsShowsTheRing)
{
    mtCamera.logError("first\x1b trouble");
    mtCamera.logError(5, "second");
    EXPECT_THAT(Printed({"errors", "-n", "2"}),
                MatchesRegex(".*:  CAMERA: ERR:first\\\\x1b trouble\n"
                             ".*:  CAMERA: ERR:second:Error 5:No Installed error decoder\n"));
    EXPECT_THAT(Printed({"errors", "--last", "1"}), Not(HasSubstr("first")));
    const auto document = Document({"errors", "-n", "1", "--json"});
    EXPECT_EQ(document["records"][0]["tag"], "CAMERA");
}

TEST_F(Log, EnableSwitchesAllDebugRecords)
{
    EXPECT_EQ(Printed({"enable", "off"}), "debug records are off\n");
    EXPECT_FALSE(tcLog::sbDebugEnabled);
    EXPECT_EQ(Document({"enable", "on", "--json"})["enabled"], true);
    EXPECT_TRUE(tcLog::sbDebugEnabled);
    ExpectFailure({"enable", "maybe"}, 1, "SWITCH");
}

TEST_F(Log, DumpTellsWhatIsMissing)
{
    ExpectFailure({"dump", "CAMERA"}, 4, "nothing of CAMERA is being captured");
    EXPECT_NE(Printed({"uri", "CAMERA", "udp:127.0.0.1:9"}), "");
    ExpectFailure({"dump", "CAMERA"}, 4, "nothing of CAMERA is being captured");
    EXPECT_NE(Printed({"set", "CAMERA", "1", "20"}), "");
    EXPECT_EQ(Printed({"dump", "CAMERA"}), "") << "captured, but nothing came";
    EXPECT_NE(Printed({"uri", "CAMERA"}), "");
    ExpectFailure({"dump", "NOBODY"}, 4, "there is no logger NOBODY");
    ExpectFailure({"get", "NOBODY"}, 4, "there is no logger NOBODY");
    tcRun run(Arguments({"get", "NOBODY", "--json"}));
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_EQ(run.Document()["target"], msTarget);
    EXPECT_EQ(run.Document()["error"]["text"], "there is no logger NOBODY");
}

TEST(LogVerb, SaysWhatAProcessOnAnotherHostRefuses)
{
    std::string reason;
    tcNetworkNamespace here(reason);
    const tcNetworkNamespace there(reason);
    if (!here.Usable() || !there.Usable() ||
        !here.Connect("here", "10.9.0.1/24", there, "there", "10.9.0.2/24") || !here.Enter()) {
        GTEST_SKIP() << reason;
    }
    ::setenv("DBGD_PORTNUM", "0", 1);
    ::unsetenv("DBGD_DISABLE");
    static tcLog& camera = *new tcLog("CAMERA", 1);
    tcDbgd& daemon = *tcDbgd::getItem();
    daemon.StartServer();
    EXPECT_TRUE(WaitUntil([&] { return daemon.GetPort() != 0; }));
    const std::string target = "10.9.0.1:" + std::to_string(daemon.GetPort());
    const std::string end = " is refused: DBGD_ALLOW does not name 10.9.0.2\n";
    there.Run([&] {
        EXPECT_THAT(Printed({"log", target, "get", "CAMERA"}), HasSubstr("CAMERA: level 1"));
        ExpectFailure({"log", target, "set", "CAMERA", "2", "file"}, 4,
                      "the process refuses: LOG:SET with a file" + end);
        ExpectFailure({"log", target, "uri", "CAMERA", "file:name"}, 4,
                      "the process refuses: LOG:URI" + end);
        ExpectFailure({"log", target, "tail", "CAMERA", "--level", "7"}, 4,
                      "the process refuses: LOG:URI" + end);
    });
    EXPECT_EQ(camera.getDbgLevel(), 1);
    daemon.StopServer();
    EXPECT_TRUE(WaitUntil([&] { return daemon.GetPort() == 0; }));
}

TEST(LogVerb, EndsWithTwoWhenNobodyAnswers)
{
    const uint16_t port = FreeTcpPort();
    const std::string nobody = "127.0.0.1:" + std::to_string(port);
    ExpectFailure({"log", nobody, "list"}, 2, "debug daemon " + nobody + ": Connection refused");
    ExpectFailure({"log", "no.such.host.invalid", "list"}, 2, "host no.such.host.invalid: ");
    const tcFixedService silent("", false);
    ExpectFailure({"log", silent.Target(), "list", "--timeout", "100ms"}, 2,
                  "no answer within 100 ms");
    const tcFixedService halting("CAM = ", false);
    ExpectFailure({"log", halting.Target(), "list", "--timeout", "100ms"}, 3,
                  "the answer stopped for 100 ms");
}

TEST(LogVerb, EndsWithTwoWhenSomethingElseAnswers)
{
    for (const std::string& answer :
         {std::string(), std::string("HTTP/1.0 400 Bad\r\n\r\n"), std::string("a\0b\n", 4)}) {
        const tcFixedService other(answer);
        for (const std::vector<std::string>& action :
             std::vector<std::vector<std::string>>{{"list"},
                                                   {"get", "CAMERA"},
                                                   {"set", "CAMERA", "1"},
                                                   {"uri", "CAMERA", "null"},
                                                   {"dump", "CAMERA"},
                                                   {"errors"},
                                                   {"enable", "on"},
                                                   {"tail", "CAMERA"}}) {
            std::vector<std::string> arguments{"log", other.Target()};
            arguments.insert(arguments.end(), action.begin(), action.end());
            ExpectFailure(arguments, 2, "as a debug daemon does: ");
        }
    }
}

// Whose heartbeats come for ever, so that it is never silent.
TEST(LogVerb, EndsAtThePortOfACamera)
{
    tsSimOptions options;
    options.columns = options.rows = 64;
    options.heartbeatSeconds = 0.02;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    ExpectFailure({"log", target, "list", "--timeout", "1s"}, 2,
                  "debug daemon " + target + ": that is the port of a camera itself");
    ExpectFailure({"items", target, "list", "--timeout", "1s"}, 2,
                  target + ": that is the port of a camera itself");
}

TEST(LogVerb, SaysHowItIsUsed)
{
    ExpectFailure({"log"}, 1, "TARGET");
    const std::string actions = "list, get, dump, errors, set, uri, enable or tail (see ";
    ExpectFailure({"log", "127.0.0.1"}, 1, "an action is missing: " + actions);
    ExpectFailure({"log", "127.0.0.1", "lost"}, 1, "'lost' is none of " + actions);
    ExpectFailure({"log", "127.0.0.1", "list", "lost"}, 1, "'lost' is one word too many (see ");
    ExpectFailure({"log", "127.0.0.1", "list", "--lost"}, 1, "unknown option '--lost' (see ");
    ExpectFailure({"log", "127.0.0.1", "set", "X", "high"}, 1, "LEVEL: it does not take 'high'");
    ExpectFailure({"log", "127.0.0.1", "list", "--timeout"}, 1, "--timeout: its value is missing");
    ExpectFailure({"log", "127.0.0.1:0", "list"}, 1, "the port is 1 to 65535");
    ExpectFailure({"log", "127.0.0.1:1:1", "list"}, 1, "target '127.0.0.1:1:1'");
    ExpectFailure({"log", "127.0.0.1", "list", "--timeout", "x"}, 1, "time 'x'");
    ExpectFailure({"log", "127.0.0.1", "set", "CAMERA", "3", "0"}, 1,
                  "WHERE '0': keep 1 line or more, or write a file's name that is no number");
    EXPECT_THAT(Printed({"log", "127.0.0.1", "tail", "--help"}), HasSubstr("--binary"));
}

TEST_F(Log, TailShowsRecordsAndPutsBackLevelAndDestination)
{
    tcLogBuffer own(10);
    mtCamera.SetConsumer(&own);
    tcTail tail(msTarget, mtCamera, {"--level", "7", "--count", "2"});
    EXPECT_TRUE(WaitUntil([&] { return mtCamera.getDbgLevel() == 7; }));
    mtCamera.logDebug(7, "one");
    mtCamera.logError("two");
    EXPECT_EQ(tail.Run().Exit(), 0);
    EXPECT_EQ(tail.Run().Errors(), "");
    EXPECT_THAT(tail.Run().Output(), MatchesRegex("[0-9]{8}-.*:  CAMERA:DBG7:one\n"
                                                  "[0-9]{8}-.*:  CAMERA: ERR:two\n"));
    EXPECT_EQ(mtCamera.GetConsumer(), &own);
    EXPECT_EQ(mtCamera.getDbgLevel(), 1);
    mtCamera.SetConsumer(nullptr);
}

TEST_F(Log, TailInBinaryTellsLevelsAndErrorNumbers)
{
    tcTail tail(msTarget, mtCamera, {"--binary", "--json", "--count", "1"});
    mtCamera.logError(13, "bad");
    EXPECT_EQ(tail.Run().Exit(), 0);
    const auto document = tail.Run().Document();
    EXPECT_EQ(document["form"], "binary");
    EXPECT_EQ(document["error"], 13);
    EXPECT_EQ(document["message"], "bad:Error 13:No Installed error decoder");
}

TEST_F(Log, TailPutsBackEverythingWhenItIsInterrupted)
{
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        tcLogBuffer own(10);
        mtCamera.SetConsumer(&own);
        tcTail tail(msTarget, mtCamera, {"--level", "9"});
        EXPECT_TRUE(WaitUntil([&] { return mtCamera.getDbgLevel() == 9; }));
        tail.Run().Signal(signal);
        EXPECT_EQ(tail.Run().Exit(), 128 + signal);
        EXPECT_EQ(tail.Run().Errors(), "vxcam: interrupted\n");
        EXPECT_EQ(mtCamera.GetConsumer(), &own);
        EXPECT_EQ(mtCamera.getDbgLevel(), 1);
        mtCamera.SetConsumer(nullptr);
    }
}

TEST_F(Log, TailPutsBackEverythingWhenItsOutputFails)
{
    tcRun::tsHow how;
    how.environment = {{"DBGD_DISABLE", "1"}};
    how.output = "/dev/full";
    tcRun tail({"log", msTarget, "tail", "CAMERA"}, how);
    EXPECT_TRUE(
        WaitUntil([&] { return mtCamera.HeldConsumer()->TypeName() == std::string("UDP"); }));
    mtCamera.logError("for nobody");
    EXPECT_EQ(tail.Exit(), 5);
    EXPECT_EQ(tail.Errors(), "vxcam: standard output: No space left on device\n");
    EXPECT_EQ(mtCamera.GetConsumer(), tcLog::NullConsumer());
}

TEST_F(Log, TailEndsAfterItsTime)
{
    EXPECT_EQ(Printed({"tail", "CAMERA", "--for", "100ms"}), "");
    EXPECT_EQ(mtCamera.GetConsumer(), tcLog::NullConsumer());
    ExpectFailure({"tail", "NOBODY"}, 4, "there is no logger NOBODY");
    EXPECT_EQ(mtCamera.GetConsumer(), tcLog::NullConsumer());
}

// Each redirection that the daemon can have made comes back, and so does what was before it.
TEST_F(Log, TailPutsBackAnEarlierRedirection)
{
    tcFolder folder;
    const std::string file = folder.Path("camera.log");
    tcLogBuffer own(10);
    mtCamera.SetConsumer(&own);
    for (const std::vector<std::string>& action :
         std::vector<std::vector<std::string>>{{"set", "CAMERA", "1", "200"},
                                               {"set", "CAMERA", "1", file},
                                               {"set", "CAMERA", "1", "-"},
                                               {"uri", "CAMERA", "buff:20"},
                                               {"uri", "CAMERA", "udp:127.0.0.1:9:bin"},
                                               {"uri", "CAMERA", "udp:127.0.0.1:9:txt:lo"},
                                               {"uri", "CAMERA", "cout"},
                                               {"uri", "CAMERA", "null"}}) {
        testing::internal::CaptureStdout();
        const std::string before = Printed(action);
        EXPECT_EQ(Printed({"tail", "CAMERA", "--for", "30ms"}), "");
        EXPECT_EQ(Printed({"get", "CAMERA"}), before);
        EXPECT_EQ(Printed({"uri", "CAMERA"}), "CAMERA: level 1, to 10 Line Buffer\n");
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(mtCamera.GetConsumer(), &own) << before;
    }
    mtCamera.SetConsumer(nullptr);
}

TEST_F(Log, TailDoesNotLoseWhatIsCapturedUnlessItIsForced)
{
    Printed({"set", "CAMERA", "1", "200"});
    mtCamera.logError("captured");
    ExpectFailure({"tail", "CAMERA"}, 4, "CAMERA is being captured (200 Line Buffer)");
    EXPECT_THAT(Printed({"dump", "CAMERA"}), HasSubstr("captured"));
    EXPECT_EQ(Printed({"tail", "CAMERA", "--for", "30ms", "--force"}), "");
    EXPECT_EQ(Printed({"get", "CAMERA"}), "CAMERA: level 1, to 200 Line Buffer\n");
    Printed({"set", "CAMERA", "1"});
}

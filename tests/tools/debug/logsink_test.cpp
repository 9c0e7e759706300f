// vxcam logsink: text and binary datagrams, told apart, printed or stored.
#include "service_support.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

// The port of a running logsink.
uint16_t PortOf(tcRun& run)
{
    const std::string start = "listening on 127.0.0.1:";
    EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 0; })) << run.Errors();
    EXPECT_THAT(run.Output(), StartsWith(start));
    return static_cast<uint16_t>(std::stoi(run.Output().substr(start.size())));
}

std::vector<std::string> Arguments(std::vector<std::string> more)
{
    std::vector<std::string> all{"logsink", "--bind", "127.0.0.1", "--port", "0"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

// One record as each kind of consumer sends it.
void LogOnce(uint16_t port)
{
    testing::internal::CaptureStdout(); // the consumers print where their sockets are bound
    tcLogUdp text("127.0.0.1", port, false), binary("127.0.0.1", port, true);
    testing::internal::GetCapturedStdout();
    tcLog log("SINKTEST", 3);
    log.SetConsumer(&text);
    log.logDebug(3, "as %s", "text");
    log.SetConsumer(&binary);
    log.logEvent("in binary");
    log.SetConsumer(nullptr);
}

} // namespace

TEST(LogSink, PrintsWhatLoggersSendAsTextAndInBinary)
{
    tcRun run(Arguments({"--count", "2"}));
    LogOnce(PortOf(run));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_THAT(run.Output(),
                MatchesRegex("listening on 127\\.0\\.0\\.1:[0-9]+\n"
                             "[0-9]{8}-[0-9:]{8}\\.[0-9]{3,4}:SINKTEST:DBG3:as text\n"
                             "[0-9]{8}-[0-9:]{8}\\.[0-9]{3,4}:SINKTEST: EVT:in binary\n"
                             "2 records: 1 as text, 1 binary\n"));
}

TEST(LogSink, StoresThemInAFile)
{
    tcFolder folder;
    const std::string file = folder.Path("camera.log");
    tcRun run(Arguments({"--count", "2", "-o", file}));
    LogOnce(PortOf(run));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(Lines(FileText(file)), 2);
    EXPECT_THAT(FileText(file), HasSubstr(":SINKTEST:DBG3:as text\n"));
    EXPECT_EQ(Lines(run.Output()), 2) << run.Output();
    ExpectFailure(Arguments({"-o", file}), 5, "exists already");
    ExpectFailure(Arguments({"-o", folder.Path("none/camera.log")}), 5, "No such file");
}

TEST(LogSink, ADashIsStandardOutput)
{
    tcFolder folder;
    tcRun::tsHow how;
    how.folder = folder.Path();
    tcRun run(Arguments({"--count", "2", "-o", "-"}), how);
    LogOnce(PortOf(run));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Output(), HasSubstr(":SINKTEST:DBG3:as text\n"));
    EXPECT_THAT(folder.Names(), testing::IsEmpty());
}

TEST(LogSink, StoresThemAsJsonInAFileThatIsReplaced)
{
    tcFolder folder;
    const std::string file = folder.Path("camera.log");
    MakeFile(file, "before");
    tcRun run(Arguments({"--count", "2", "-o", file, "--force", "--json"}));
    EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 0; }));
    const auto told = nlohmann::json::parse(run.Output());
    EXPECT_EQ(told["event"], "listening");
    LogOnce(told["port"].get<uint16_t>());
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), HasSubstr("\n{\"event\":\"end\",\"text\":1,\"binary\":1}\n"));
    std::istringstream lines(FileText(file));
    std::string first, second;
    std::getline(lines, first);
    std::getline(lines, second);
    auto text = nlohmann::json::parse(first), binary = nlohmann::json::parse(second);
    EXPECT_THAT(text["from"].get<std::string>(), StartsWith("127.0.0.1:"));
    EXPECT_EQ(text["form"], "text");
    EXPECT_EQ(text["tag"], "SINKTEST");
    EXPECT_EQ(text["label"], "DBG3");
    EXPECT_EQ(text["message"], "as text");
    EXPECT_EQ(binary["form"], "binary");
    EXPECT_EQ(binary["message"], "in binary");
    EXPECT_EQ(binary["level"], 0);
    EXPECT_GT(binary["seconds"].get<int>(), 1700000000);
    EXPECT_EQ(Lines(FileText(file)), 2);
}

TEST(LogSink, PrintsNoControlCharactersOfStrangers)
{
    tcRun run(Arguments({"--count", "3"}));
    const uint16_t port = PortOf(run);
    tcUdpPort stranger;
    stranger.Send(port, "");
    stranger.Send(port, "\x1b[2Jtwo\nlines\n");
    stranger.Send(port, std::string(60000, 'x'));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), HasSubstr("\n\n\\x1b[2Jtwo\\nlines\n" + std::string(60000, 'x') +
                                        "\n3 records: 3 as text, 0 binary\n"));
}

TEST(LogSink, EndsAfterItsTimeAndOnSignals)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(Printed(Arguments({"--for", "200ms"})), HasSubstr("\n0 records: "));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    for (int signal : {SIGINT, SIGTERM}) {
        tcRun run(Arguments({}));
        LogOnce(PortOf(run));
        EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) == 3; }));
        run.Signal(signal);
        EXPECT_EQ(run.Exit(), 128 + signal);
        EXPECT_THAT(run.Output(), HasSubstr("\n2 records: 1 as text, 1 binary\n"));
        EXPECT_EQ(run.Errors(), "vxcam: interrupted\n");
    }
}

TEST(LogSink, JoinsAGroup)
{
    tcRun run({"logsink", "--group", "239.1.2.3", "--interface", "127.0.0.1", "--port", "0",
               "--count", "1"});
    EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 0; })) << run.Errors();
    const auto port = static_cast<uint16_t>(std::stoi(run.Output().substr(21)));
    tcUdpPort sender;
    const in_addr loopback{htonl(INADDR_LOOPBACK)};
    ::setsockopt(sender.Handle(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
    sender.Send(port, "to all", 0xEF010203);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), HasSubstr("\nto all\n"));
}

TEST(LogSink, SaysWhenThePortIsTaken)
{
    tcUdpPort taken;
    ExpectFailure({"logsink", "--bind", "127.0.0.1", "--port", std::to_string(taken.Port())}, 2,
                  "cannot listen on 127.0.0.1:" + std::to_string(taken.Port()));
    ExpectFailure({"logsink", "--port", "70000"}, 1, "--port");
    ExpectFailure({"logsink", "--for", "soon"}, 1, "time 'soon'");
}

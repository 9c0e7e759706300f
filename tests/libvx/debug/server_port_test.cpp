// The daemon on the network: where it listens, and how it announces that.
#include "debug_support.h"

namespace {

using std::string_literals::operator""s;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

std::string Announcement(unsigned short port)
{
    // As a signed number, so that high ports are negative.
    return "DBGD DBGD " + std::to_string(static_cast<short>(port)) + "\0"s;
}

} // namespace

TEST_F(Daemon, ListensOnThePortOfTheEnvironmentAndAnnouncesIt)
{
    tcDbgd::snAnnounceInterval = 20;
    const unsigned short port = FreePort();
    setenv("DBGD_PORTNUM", std::to_string(port).c_str(), 1);
    Start();
    EXPECT_EQ(port, mnPort);
    EXPECT_EQ("DBGD DBGD " + std::to_string(port) + "\0"s, mAnnouncements.Receive());
    EXPECT_EQ("DBGD DBGD " + std::to_string(port) + "\0"s, mAnnouncements.Receive());
    EXPECT_THAT(Ask("LIST"), StartsWith("Available"));
}

TEST_F(Daemon, ListensOnPort17020WhenNoneIsSet)
{
    tcDbgd::snAnnounceInterval = 20;
    unsetenv("DBGD_PORTNUM");
    setenv("DBGD_BIND", "127.170.2.0", 1);
    Keep(mpDaemon);
    auto* fresh = new tcDbgd;
    EXPECT_TRUE(Eventually([fresh] { return fresh->GetPort() == 17020; }));
    EXPECT_TRUE(tcClient(17020, "127.0.0.1", "127.170.2.0").IsConnected());
    EXPECT_EQ("DBGD DBGD 17020\0"s, mAnnouncements.Receive());
    delete fresh;
}

TEST_F(Daemon, AnnouncesHighPortsAsNegativeNumbers)
{
    tcDbgd::snAnnounceInterval = 20;
    setenv("DBGD_PORTNUM", std::to_string(FreeHighPort()).c_str(), 1);
    Start();
    EXPECT_THAT(mAnnouncements.Receive(), StartsWith("DBGD DBGD -"));
    EXPECT_EQ(Announcement(mnPort), mAnnouncements.Receive());
}

TEST_F(Daemon, AnnouncesOnlyWhileItRuns)
{
    const int threads = CountThreads();
    tcDbgd::snAnnounceInterval = 3600000;
    Start();
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 2; }));
    const auto start = tcClock::now();
    Stop();
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_LT(ElapsedMs(start), Within(5000));
    EXPECT_FALSE(mAnnouncements.HasReceived()) << "the first one comes after the interval";
}

TEST_F(Daemon, HasTheTimesThatAreDocumented)
{
    EXPECT_EQ(5000, tcDbgd::snAnnounceInterval);
    EXPECT_EQ(10000, tcDbgd::snClientPatience);
    EXPECT_EQ(2000, tcDbgd::snReplyPatience);
    EXPECT_EQ(1000, tcDbgd::snRetrySecond);
    EXPECT_EQ(64, tcDbgd::nMaximumClients);
}

TEST_F(Daemon, CanBeStoppedAndStartedAgain)
{
    Start();
    const unsigned short first = mnPort;
    mpDaemon->StartServer(); // runs already
    EXPECT_EQ(first, mpDaemon->GetPort());
    mpDaemon->StopServer();
    Start(); // waits for the one that stops
    EXPECT_NE(first, mnPort);
    EXPECT_EQ("again\n", Ask("ECHO:again"));
    EXPECT_FALSE(tcClient(first).IsConnected());
}

TEST_F(Daemon, StopsItsServerWhenItIsDestroyed)
{
    const int threads = CountThreads();
    Keep(mpDaemon);
    auto* second = new tcDbgd;
    EXPECT_TRUE(Eventually([&] { return second->GetPort() != 0; }));
    const unsigned short port = second->GetPort();
    tcDbgd::GetLog().setDbgLevel(1);
    mLog.Texts();
    delete second;
    EXPECT_THAT(mLog.Texts(), ElementsAre("1 tcDbgd::StopServer, shutting down the Dbgd Server"));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_FALSE(tcClient(port).IsConnected());
}

TEST_F(Daemon, WaitsForATakenPortWithGrowingDelays)
{
    tcDbgd::snRetrySecond = 1;
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    const unsigned short port = taken.Port();
    setenv("DBGD_PORTNUM", std::to_string(port).c_str(), 1);
    mpDaemon->StartServer();
    std::vector<tcLogEvent> events;
    EXPECT_TRUE(Eventually([&] {
        for (const tcLogEvent& event : mLog.Events())
            events.push_back(event);
        return events.size() >= 9;
    }));
    const int seconds[] = {2, 2, 2, 2, 2, 3, 3, 3, 4};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ("tcDbgd::Server, Error creating socket on port " + std::to_string(port) +
                      " - retry in " + std::to_string(seconds[i]) +
                      " s:Error 98:No Installed error decoder",
                  events[i].message);
        EXPECT_EQ(tcLogEvent::eError, events[i].type);
    }
    EXPECT_EQ(0, mpDaemon->GetPort());
    taken.Close();
    EXPECT_TRUE(Eventually([&] { return mpDaemon->GetPort() == port; }));
    EXPECT_EQ("at last\n", ::Ask(port, "ECHO:at last"));
}

TEST_F(Daemon, PrintsOnceThatThePortItWasToldIsTaken)
{
    unsetenv("TCLOG_SUPPRESS_ERR_CONSOLE");
    tcDbgd::GetLog().InitFromEnvironment();
    tcDbgd::snRetrySecond = 1;
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    setenv("DBGD_PORTNUM", std::to_string(taken.Port()).c_str(), 1);
    CaptureStderr();
    mpDaemon->StartServer();
    size_t records = 0;
    EXPECT_TRUE(Eventually([&] { return (records += mLog.Events().size()) >= 9; }));
    Stop();
    const std::string printed = GetCapturedStderr();
    EXPECT_THAT(printed, HasSubstr("Error creating socket on port " + std::to_string(taken.Port()) +
                                   " - retry in 2 s"));
    EXPECT_EQ(1, std::count(printed.begin(), printed.end(), '\n')) << printed;
}

TEST_F(Daemon, StopsAtOnceWhileItWaitsForThePort)
{
    const int threads = CountThreads();
    tcDbgd::snRetrySecond = 60000;
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    setenv("DBGD_PORTNUM", std::to_string(taken.Port()).c_str(), 1);
    mpDaemon->StartServer();
    EXPECT_TRUE(Eventually([&] { return !mLog.Events().empty(); }));
    const auto start = tcClock::now();
    mpDaemon->StopServer();
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_LT(ElapsedMs(start), Within(5000));
}

TEST_F(Daemon, ListensOnTheAddressItIsGiven)
{
    setenv("DBGD_BIND", "127.0.0.2", 1);
    Start();
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.0.1", "127.0.0.2"));
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

TEST_F(Daemon, ListensEverywhereWhenNoAddressIsGiven)
{
    unsetenv("DBGD_BIND");
    Start();
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.0.1", "127.0.0.2"));
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.0.1", "127.0.0.3"));
}

TEST_F(Daemon, DoesNotListenOnAnAddressThatIsNone)
{
    const int threads = CountThreads();
    setenv("DBGD_BIND", "nowhere", 1);
    mpDaemon->StartServer();
    EXPECT_TRUE(mLog.Has("ERR DBGD_BIND: bad address nowhere, not listening"));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_EQ(0, mpDaemon->GetPort());
}

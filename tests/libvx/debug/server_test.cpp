// The daemon on the network.
#include "HSocket.h"
#include "debug_support.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <set>

namespace {

using std::string_literals::operator""s;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

// Answers with its arguments in brackets.
class tcBrackets : public tcDbgdWB
{
public:
    explicit tcBrackets(const char* token) : tcDbgdWB(token, "") {}
    void Run(HSocket* client, char* args) override
    {
        const std::string text = "[" + std::string(args) + "]";
        client->Send(text.data(), static_cast<int>(text.size()));
    }
};

// Answers when it is released, once and for all.
class tcHolding : public tcDbgdWB
{
public:
    tcHolding() : tcDbgdWB("HOLD", "") {}
    void Run(HSocket* client, char*) override
    {
        ++mnRunning;
        std::unique_lock<std::mutex> guard(mLock);
        mReleased.wait(guard, [this] { return mbReleased; });
        client->Send("held", 4);
    }
    void Release()
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mbReleased = true;
        mReleased.notify_all();
    }

    std::atomic<int> mnRunning{0};

private:
    std::mutex mLock;
    std::condition_variable mReleased;
    bool mbReleased = false;
};

std::string Announcement(unsigned short port)
{
    // As a signed number, so that high ports are negative.
    return "DBGD DBGD " + std::to_string(static_cast<short>(port)) + "\0"s;
}

} // namespace

// The threads of this process.
static std::set<std::string> Threads()
{
    std::set<std::string> threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        threads.insert(entry.path());
    return threads;
}

// The signals that a thread blocks, the lowest bit being that of signal 1.
static uint64_t BlockedBy(const std::string& thread)
{
    std::ifstream status(thread + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk:", 0) == 0) return std::stoull(line.substr(7), nullptr, 16);
    }
    return 0;
}

TEST_F(Daemon, LeavesSignalsToTheThreadsOfTheHost)
{
    const std::set<std::string> before = Threads();
    Start();
    size_t own = 0;
    for (const std::string& thread : Threads()) {
        if (before.count(thread) != 0) continue;
        ++own;
        const uint64_t blocked = BlockedBy(thread);
        for (const int signal : {SIGINT, SIGTERM, SIGALRM, SIGCHLD, SIGUSR1})
            EXPECT_NE(0u, blocked & (uint64_t{1} << (signal - 1))) << thread << ", " << signal;
    }
    EXPECT_GE(own, 1u);
}

TEST_F(Daemon, CutsClientsThatHaveTheirAnswerAndGoOnSending)
{
    Start();
    tcClient client(mnPort);
    client.Send("ECHO:" + std::string(1019, 'x')); // as much as is read of a request
    EXPECT_TRUE(client.IsCutWhileItSends(5000));   // after half a second
}

TEST_F(Daemon, AnswersAndClosesTheConnection)
{
    Start();
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", Ask("LIST"));
    EXPECT_EQ("hello\n", Ask("ECHO:hello\r\n"));
}

TEST_F(Daemon, TakesTheTokenAsItStandsBeforeTheFirstColon)
{
    tcBrackets handler("X"), noToken(""), blank("X \n");
    for (tcDbgdWB* one : {&handler, &noToken, &blank})
        mpDaemon->RegisterWB(one);
    Start();
    EXPECT_EQ("", Ask("LIST\n"));
    EXPECT_EQ("", Ask("list"));
    EXPECT_EQ("", Ask("LIST "));
    EXPECT_EQ("", Ask("NOPE:LIST"));
    EXPECT_EQ("[]", Ask("X"));
    EXPECT_EQ("[]", Ask("X:"));
    EXPECT_EQ("[a:b:]", Ask("X:a:b:"));
    EXPECT_EQ("[:]", Ask("X::"));
    EXPECT_EQ("[ a\tb ]", Ask("X: a\tb "));
    EXPECT_EQ("[]", Ask("X \n:"));
    EXPECT_EQ("[LIST]", Ask(":LIST"));
    EXPECT_EQ("[]", Ask(":"));
    EXPECT_EQ("[]", Ask(":::"));
    EXPECT_EQ("[]", Ask("\0"s));
    EXPECT_EQ("[a]", Ask("X:a\0b"s));
    for (tcDbgdWB* one : {&handler, &noToken, &blank})
        mpDaemon->RemoveWB(one);
}

TEST_F(Daemon, EndsArgumentsAtTheFirstLineEnd)
{
    tcBrackets handler("X");
    mpDaemon->RegisterWB(&handler);
    Start();
    EXPECT_EQ("[a]", Ask("X:a\r\nb\n"));
    EXPECT_EQ("[a]", Ask("X:a\nb"));
    EXPECT_EQ("[a]", Ask("X:a\rb"));
    EXPECT_EQ("[]", Ask("X:\na"));
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, GoesThroughEveryCharacterOfTheArguments)
{
    class tcCounting : public tcDbgdWB
    {
    public:
        tcCounting() : tcDbgdWB("X", "") {}
        void Run(HSocket*, char* args) override { msSeen.assign(args, 7); }
        std::string msSeen;
    } handler;
    mpDaemon->RegisterWB(&handler);
    tcDbgd::GetLog().setDbgLevel(-11);
    Start();
    mLog.Texts();
    Ask("X:a\r\n\rb\nc");
    mpDaemon->RemoveWB(&handler); // nobody is in its Run from here on
    EXPECT_EQ("a\0\0\0b\0c"s, handler.msSeen);
    EXPECT_THAT(mLog.Texts(),
                ElementsAre("11 char value = 97", "11 char value = 13", "11 char value = 10",
                            "11 char value = 13", "11 char value = 98", "11 char value = 10",
                            "11 char value = 99"));
}

TEST_F(Daemon, LogsWhatItDoes)
{
    tcBrackets handler("X");
    mpDaemon->RegisterWB(&handler);
    tcDbgd::GetLog().setDbgLevel(11);
    mLog.Texts();
    CaptureStdout();
    Start();
    EXPECT_EQ("[a]", Ask("X:a\r"));
    EXPECT_EQ("", Ask("NOPE\n:"));
    Stop();
    EXPECT_THAT(
        mLog.Texts(),
        ElementsAre(
            "1 tcDbgd::StartServer, spawning the Dbgd Server",
            "1 tcDbgd::Server starting on port 0",
            "3 tcDbgd::StartWorkerBee for client from 127.0.0.1", "3 tcDbgd:: read command: X:a\\r",
            "1 tcDbgd::GetWB looking for X ,length = 1", "1 tcDbgd::GetWB found worker bee for X",
            "11 char value = 97", "11 char value = 13",
            "3 tcDbgd::StartWorkerBee for client from 127.0.0.1",
            "3 tcDbgd:: read command: NOPE\\n:", "1 tcDbgd::GetWB looking for NOPE\\n ,length = 5",
            "1 tcDbgd::GetWB didn't find NOPE\\n", "1 tcDbgd:: No Hander for token NOPE\\n",
            "1 tcDbgd::StopServer, shutting down the Dbgd Server"));
    EXPECT_EQ("", GetCapturedStdout());
    mpDaemon->RemoveWB(&handler);
}

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
    EXPECT_LT(ElapsedMs(start), 2000);
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
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    setenv("DBGD_PORTNUM", std::to_string(taken.Port()).c_str(), 1);
    mpDaemon->StartServer();
    EXPECT_TRUE(Eventually([&] { return !mLog.Events().empty(); }));
    const auto start = tcClock::now();
    mpDaemon->StopServer();
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_LT(ElapsedMs(start), 1000);
}

TEST_F(Daemon, DropsClientsThatSendNothing)
{
    const int threads = CountThreads() + 2; // server and announcer
    tcDbgd::snClientPatience = 100;
    Start();
    CaptureStderr();
    const auto start = tcClock::now();
    tcClient silent(mnPort);
    EXPECT_EQ("", silent.ReadAll());
    EXPECT_GE(ElapsedMs(start), 99);
    {
        tcClient quick(mnPort);
    }
    EXPECT_EQ("x\n", Ask("ECHO:x")); // comes after the quick one
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_EQ("read: Connection timed out\nread: Success\n", GetCapturedStderr());
}

TEST_F(Daemon, ServesSixtyFourClientsAtATime)
{
    tcHolding handler;
    mpDaemon->RegisterWB(&handler);
    const int threads = CountThreads() + 2;
    Start();
    std::vector<std::unique_ptr<tcClient>> served;
    for (int i = 0; i < 64; ++i) {
        served.push_back(std::make_unique<tcClient>(mnPort));
        served.back()->Send("HOLD");
    }
    EXPECT_TRUE(Eventually([&] { return handler.mnRunning == 64; }));
    tcClient waiting(mnPort), further(mnPort);
    waiting.Send("ECHO:first");
    further.Send("ECHO:second");
    EXPECT_FALSE(waiting.HasAnswer(150));
    EXPECT_EQ(threads + 64, CountThreads());
    handler.Release();
    EXPECT_EQ("first\n", waiting.ReadAll());
    EXPECT_EQ("second\n", further.ReadAll());
    for (const auto& client : served)
        EXPECT_EQ("held", client->ReadAll());
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, GivesThePlaceOfTheClientThatHasBeenSilentLongestToOneThatWaits)
{
    tcHolding handler;
    mpDaemon->RegisterWB(&handler);
    const int threads = CountThreads() + 2;
    Start();
    CaptureStderr();
    tcClient served(mnPort);
    served.Send("HOLD");
    EXPECT_TRUE(Eventually([&] { return handler.mnRunning == 1; }));
    std::vector<std::unique_ptr<tcClient>> silent;
    for (int i = 0; i < 63; ++i)
        silent.push_back(std::make_unique<tcClient>(mnPort));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 64; }));
    EXPECT_FALSE(silent[0]->HasAnswer(50)); // nobody waits
    tcClient waiting(mnPort);
    EXPECT_EQ("", silent[0]->ReadAll());
    EXPECT_FALSE(silent[1]->HasAnswer(50));
    EXPECT_EQ(threads + 64, CountThreads());
    waiting.Send("ECHO:first");
    EXPECT_EQ("first\n", waiting.ReadAll());
    EXPECT_FALSE(silent[1]->HasAnswer(50)); // nobody waits any more
    silent[1]->Send("ECHO:second");
    EXPECT_EQ("second\n", silent[1]->ReadAll());
    handler.Release();
    EXPECT_EQ("held", served.ReadAll());
    EXPECT_EQ("read: Success\n", GetCapturedStderr());
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, KeepsManyMoreWaiting)
{
    const int threads = CountThreads() + 2;
    Start();
    std::vector<std::unique_ptr<tcClient>> silent, waiting;
    for (int i = 0; i < 64; ++i)
        silent.push_back(std::make_unique<tcClient>(mnPort));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 64; }));
    for (int i = 0; i < 200; ++i) {
        waiting.push_back(std::make_unique<tcClient>(mnPort));
        ASSERT_FALSE(waiting.back()->HadToTryAgain()) << i;
        waiting.back()->Send("ECHO:" + std::to_string(i));
    }
    silent.clear();
    for (size_t i = 0; i < waiting.size(); ++i)
        EXPECT_EQ(std::to_string(i) + "\n", waiting[i]->ReadAll());
}

TEST_F(Daemon, ReadsAtMost1024Bytes)
{
    Start();
    const std::string fits(1019, 'x');
    EXPECT_EQ(fits.substr(1) + "\n", Ask("ECHO:" + fits.substr(1)));
    EXPECT_EQ(fits + "\n", Ask("ECHO:" + fits));
    EXPECT_EQ(fits + "\n", Ask("ECHO:" + fits + "y"));
    EXPECT_EQ(fits + "\n", Ask("ECHO:" + std::string(100000, 'x')));
    EXPECT_EQ("", Ask(std::string(1024, 'x')));
    EXPECT_EQ("", Ask(std::string(100000, 'x')));
    EXPECT_EQ(std::string(1020, ':') + "\n",
              Ask("ECHO" + std::string(1021, ':')).insert(0, 1, ':'));
}

TEST_F(Daemon, SurvivesHandlersThatThrow)
{
    class tcThrowing : public tcDbgdWB
    {
    public:
        tcThrowing() : tcDbgdWB("THROW", "") {}
        void Run(HSocket*, char* args) override
        {
            if (*args != '\0') throw 5;
            throw std::runtime_error("the reason");
        }
    } handler;
    mpDaemon->RegisterWB(&handler);
    Start();
    EXPECT_EQ("", Ask("THROW"));
    EXPECT_EQ("", Ask("THROW:x"));
    EXPECT_TRUE(mLog.Has("ERR tcDbgd:: handler for THROW failed: the reason"));
    EXPECT_TRUE(mLog.Has("ERR tcDbgd:: handler for THROW failed"));
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, IsNotHeldUpByAClientThatDoesNotReadItsReply)
{
    class tcEndless : public tcDbgdWB
    {
    public:
        tcEndless() : tcDbgdWB("ENDLESS", "") {}
        void Run(HSocket* client, char*) override
        {
            const std::string block(1 << 20, 'x');
            while (client->SendAll(block.data(), 1 << 20) > 0) {
            }
        }
    } handler;
    tcDbgd::snReplyPatience = 100;
    mpDaemon->RegisterWB(&handler);
    const int threads = CountThreads() + 2;
    Start();
    tcClient client(mnPort);
    client.Send("ENDLESS");
    EXPECT_TRUE(client.HasAnswer(10000));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, ServesAClientOfTheCallers)
{
    HSocket listener, client;
    listener.Create();
    listener.Listen(1);
    ASSERT_TRUE(client.Connect("127.0.0.1", listener.GetLocalPort()));
    auto* peer = new HSocket;
    ASSERT_TRUE(listener.Accept(peer, 5000));
    client.SendAll("ECHO:by hand", -1);
    tcDbgd::StartWorkerBee(peer);
    char text[100] = {};
    EXPECT_EQ(8, client.Receive(text, sizeof text, 5000, MSG_WAITALL));
    EXPECT_STREQ("by hand\n", text);
    tcDbgd::StartWorkerBee(nullptr);
}

TEST_F(Daemon, AdmitsOnlyWhoIsOnTheList)
{
    setenv("DBGD_ALLOW", "10.1.2.3,127.0.0.4/31", 1);
    Start();
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.0.4"));
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.0.5"));
    for (const char* from : {"127.0.0.1", "127.0.0.2", "127.0.0.6"}) {
        tcClient refused(mnPort, from);
        EXPECT_EQ("", refused.ReadAll()) << from;
        EXPECT_TRUE(mLog.Has("ERR tcDbgd::Server refused client from "s + from));
    }
}

TEST_F(Daemon, AdmitsByDottedMasksAndByPrefixLengthsOfZero)
{
    setenv("DBGD_ALLOW", "127.0.8.0/255.255.255.0", 1);
    Start();
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.8.77"));
    EXPECT_EQ("", tcClient(mnPort, "127.0.9.1").ReadAll());
    Stop();
    setenv("DBGD_ALLOW", "0.0.0.0/0", 1);
    Start();
    EXPECT_EQ("x\n", ::Ask(mnPort, "ECHO:x", "127.0.9.1"));
}

TEST_F(Daemon, AdmitsNobodyByEntriesThatAreNone)
{
    setenv("DBGD_ALLOW", "127.0.0.1/,127.0.0.1/33, 127.0.0.1/x localhost,127.0.0,127.0.0.1/0.0.0.x",
           1);
    Start();
    EXPECT_EQ("", tcClient(mnPort).ReadAll());
    for (const char* entry :
         {"127.0.0.1/", "127.0.0.1/33", "127.0.0.1/x", "localhost", "127.0.0", "127.0.0.1/0.0.0.x"})
        EXPECT_TRUE(mLog.Has("ERR DBGD_ALLOW: entry "s + entry + " ignored")) << entry;
    Stop();
    setenv("DBGD_ALLOW", "", 1);
    Start();
    EXPECT_EQ("", tcClient(mnPort).ReadAll());
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

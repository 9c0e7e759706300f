#include "debug_support.h"
#include "tcDbgItem.h"

#include <fcntl.h>

#include <cstdlib>

namespace {

using std::string_literals::operator""s;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

class ItemServer : public ::testing::Test
{
protected:
    void Start(unsigned short port = FreePort())
    {
        mnPort = port;
        setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
        setenv("DBGITEM_BIND", "127.0.0.1", 1);
        Launch();
    }

    // Starts it as the environment says and waits until it listens.
    void Launch()
    {
        CaptureStdout();
        tcDbgItem::StartServer();
        mbListening = Eventually([this] { return tcClient(mnPort).IsConnected(); });
        EXPECT_TRUE(mbListening);
        Ask("GET:"); // whatever was printed for the first connection is out now
    }

    ~ItemServer() override
    {
        if (!mbListening) return;
        tcDbgItem::StopServer();
        Ask("GET:");
        const std::string output = GetCapturedStdout() + GetCapturedStderr();
        if (HasFailure()) std::cout << output.substr(0, 2000); // where the failures are told
    }

    std::string Ask(const std::string& request) { return ::Ask(mnPort, request); }

    ItemServer() { CaptureStderr(); }

    tcQuietErrors mQuiet;
    unsigned short mnPort = 0;
    bool mbListening = false;
};

} // namespace

TEST(ItemServerDefaults, ListensOnPort7010AndWaitsTenSeconds)
{
    EXPECT_EQ(7010, tcDbgItem::tcDbgItemPort);
    EXPECT_EQ(10000, tcDbgItem::snClientPatience);
    EXPECT_TRUE(tcDbgItem::mhThreadId == 0u);
    EXPECT_FALSE(tcDbgItem::mbThreadDone);
}

TEST_F(ItemServer, ListensOnTheDefaultPortWhenNoneIsSet)
{
    mnPort = FreePort();
    unsetenv("DBGITEM_PORTNUM");
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    tcDbgItem::tcDbgItemPort = mnPort;
    tcDbgItem::AddItem("A", 1, "text");
    Launch();
    EXPECT_EQ("1\0"s, Ask("GET:A"));
    EXPECT_TRUE(tcDbgItem::mhThreadId != 0u);
}

TEST_F(ItemServer, ListsEachItemWithAZeroByte)
{
    Start();
    EXPECT_EQ("", Ask("LIST"));
    tcDbgItem::AddItem("GAIN", 3, "the gain");
    tcDbgItem::AddItem("ZOOM", 2.5f, "the zoom");
    tcDbgItem::AddItem("Long", -1, std::string(3000, 'x'));
    tcDbgItem::GetMap()["EMPTY"] = nullptr;
    static tcDbgItem none;
    tcDbgItem::GetMap()["NONE"] = &none;
    const std::string all =
        "GAIN = 3 [the gain]\n\0Long = -1 ["s + std::string(3000, 'x') +
        "]\n\0NONE = No value set! [Not Set]\n\0ZOOM = 2.500000 [the zoom]\n\0"s;
    EXPECT_EQ(all, Ask("LIST"));
    EXPECT_EQ(all, Ask("LISTING:of everything"));
    EXPECT_EQ(all, Ask("LIST\n"));
    EXPECT_EQ(all, Ask("::LIST"));
    EXPECT_EQ("", Ask("list"));
}

TEST_F(ItemServer, ReadsValuesWithAZeroByte)
{
    tcDbgItem::AddItem("GAIN", 12, "");
    tcDbgItem::AddItem("ZOOM", 2.5f, "");
    static tcDbgItem none;
    tcDbgItem::GetMap()["NONE"] = &none;
    Start();
    EXPECT_EQ("12\0"s, Ask("GET:GAIN"));
    EXPECT_EQ("2.500000\0"s, Ask("GET:ZOOM"));
    EXPECT_EQ("No value set!\0"s, Ask("GET:NONE"));
    EXPECT_EQ("12\0"s, Ask("GET:GAIN=of no interest"));
    EXPECT_EQ("12\0"s, Ask("GET:GAIN\0nothing"s));
    EXPECT_EQ("", Ask("GET:GAIN\n")); // the line end belongs to the name
}

TEST_F(ItemServer, SetsValuesWithoutAnAnswer)
{
    const int* gain = tcDbgItem::AddItem("GAIN", 7, "");
    tcDbgItem::AddItem("ZOOM", 1.0f, "");
    Start();
    EXPECT_EQ("", Ask("SET:GAIN=12"));
    EXPECT_EQ("12\0"s, Ask("GET:GAIN"));
    EXPECT_EQ(12, __atomic_load_n(gain, __ATOMIC_RELAXED));
    EXPECT_EQ("", Ask("SET:GAIN=-3\r\n"));
    EXPECT_EQ("-3\0"s, Ask("GET:GAIN"));
    EXPECT_EQ("", Ask("SET:GAIN=0x10"));
    EXPECT_EQ("0\0"s, Ask("GET:GAIN"));
    EXPECT_EQ("", Ask("SET:ZOOM=2.5"));
    EXPECT_EQ("2.500000\0"s, Ask("GET:ZOOM"));
    EXPECT_EQ("", Ask("SET:ZOOM=1.5=9"));
    EXPECT_EQ("1.500000\0"s, Ask("GET:ZOOM"));
    EXPECT_EQ("", Ask("SET:ZOOM")); // no text is the number 0
    EXPECT_EQ("0.000000\0"s, Ask("GET:ZOOM"));
}

TEST_F(ItemServer, AnswersNothingAboutUnknownNamesAndForgetsThem)
{
    tcDbgItem::AddItem("GAIN", 7, "");
    tcDbgItem::GetMap()["EMPTY"] = nullptr;
    Start();
    for (const char* request :
         {"GET:NOPE", "SET:NOPE=5", "GET", "SET", "GET:", "SET:", "GET:=", "SET:=5", "GET:EMPTY",
          "SET:EMPTY=5", "gET:GAIN", "GETX:GAIN", "SETTER:GAIN=1", "GAIN", ":", "=", "\n", "HELP"})
        EXPECT_EQ("", Ask(request)) << request;
    EXPECT_EQ("GAIN = 7 []\n\0"s, Ask("LIST"));
    EXPECT_EQ(2u, tcDbgItem::GetMap().size());
}

TEST_F(ItemServer, SurvivesRequestsOfAnyLength)
{
    tcDbgItem::AddItem("GAIN", 7, "");
    Start();
    EXPECT_EQ("GAIN = 7 []\n\0"s, Ask("LIST" + std::string(1020, 'x')));
    EXPECT_EQ("GAIN = 7 []\n\0"s, Ask("LIST" + std::string(100000, 'x')));
    EXPECT_EQ("", Ask(std::string(1024, 'x')));
    EXPECT_EQ("", Ask("GET:" + std::string(1020, 'x')));
    EXPECT_EQ("", Ask("SET:GAIN=" + std::string(1015, '1')));
    EXPECT_EQ("", Ask("SET:GAIN=8"));
    EXPECT_EQ("8\0"s, Ask("GET:GAIN"));
}

TEST_F(ItemServer, PrintsWhatItDoes)
{
    Start(FreePort());
    Ask("GET:X");
    const std::string output = GetCapturedStdout();
    CaptureStdout();
    const std::string first = "tcDbgItem::Server task: listening on port " +
                              std::to_string(mnPort) +
                              "... ready for commands!\nAccepting new connection on socket ";
    EXPECT_EQ(first, output.substr(0, first.size()));
    const size_t last = output.rfind("Accepting");
    int descriptor = -1;
    EXPECT_EQ(
        1, sscanf(output.c_str() + last, "Accepting new connection on socket %d\n", &descriptor));
    EXPECT_EQ("Accepting new connection on socket " + std::to_string(descriptor) +
                  "\nRead msg GET:X\n",
              output.substr(last));
}

TEST_F(ItemServer, PrintsTheWordsOfClientsWithControlCharactersMadeVisible)
{
    Start();
    Ask("GET:X\nRead msg GET:Y\x1b[2J");
    const std::string output = GetCapturedStdout();
    CaptureStdout();
    EXPECT_THAT(output, HasSubstr("\nRead msg GET:X\\nRead msg GET:Y\\x1b[2J\n"));
}

TEST_F(ItemServer, PrintsHighPortsAsNegativeNumbers)
{
    const unsigned short port = FreeHighPort();
    Start(port);
    const std::string output = GetCapturedStdout();
    CaptureStdout();
    EXPECT_EQ("tcDbgItem::Server task: listening on port " +
                  std::to_string(static_cast<int>(port) - 65536) + "... ready for commands!",
              output.substr(0, output.find('\n')));
}

TEST_F(ItemServer, DropsClientsThatSendNothing)
{
    tcDbgItem::AddItem("A", 1, "");
    tcDbgItem::snClientPatience = 300;
    Start();
    GetCapturedStderr();
    CaptureStderr();
    const int before = CountDescriptors();
    const auto start = tcClock::now();
    tcClient silent(mnPort);
    EXPECT_EQ("", silent.ReadAll());
    EXPECT_GE(ElapsedMs(start), 299);
    tcDbgItem::snClientPatience = 3600000;
    {
        tcClient quick(mnPort);
    }
    EXPECT_EQ("1\0"s, Ask("GET:A"));
    silent.Close();
    EXPECT_EQ("read: Connection timed out\nread: Success\n", GetCapturedStderr());
    CaptureStderr();
    EXPECT_TRUE(Eventually([before] { return CountDescriptors() == before; }));
}

TEST_F(ItemServer, AnswersOthersWhileAClientSendsNothing)
{
    tcDbgItem::AddItem("A", 1, "");
    tcDbgItem::snClientPatience = 3600000;
    Start();
    const tcClient silent(mnPort);
    EXPECT_EQ("1\0"s, Ask("GET:A"));
}

TEST_F(ItemServer, AnswersOthersWhileAClientDoesNotReadItsReply)
{
    for (int i = 0; i < 200; ++i)
        tcDbgItem::AddItem("ITEM" + std::to_string(i), i, std::string(100000, 'x'));
    tcDbgd::snReplyPatience = 3600000;
    Start();
    tcClient client(mnPort);
    client.Send("LIST");
    EXPECT_TRUE(client.HasAnswer(Within(20000)));
    EXPECT_EQ("7\0"s, Ask("GET:ITEM7"));
}

TEST_F(ItemServer, GivesUpAClientThatDoesNotReadItsReply)
{
    for (int i = 0; i < 200; ++i)
        tcDbgItem::AddItem("ITEM" + std::to_string(i), i, std::string(100000, 'x'));
    Start();
    const int descriptors = CountDescriptors();
    tcDbgItem::snClientPatience = 3600000;
    const auto start = tcClock::now();
    tcClient client(mnPort);
    client.Send("LIST");
    EXPECT_TRUE(client.HasAnswer(Within(20000)));
    // It is given up two seconds after it took something last.
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors + 1; }));
    EXPECT_GE(ElapsedMs(start), 1999);
    const std::string rest = client.ReadAll();
    EXPECT_LT(rest.size(), 20000000u);
    EXPECT_EQ("(reset)", rest.substr(rest.size() - 7));
}

TEST_F(ItemServer, CutsClientsThatHaveTheirAnswerAndGoOnSending)
{
    Start();
    tcClient client(mnPort);
    client.Send(std::string(1024, 'x'));                  // as much as is read of a request
    EXPECT_TRUE(client.IsCutWhileItSends(Within(20000))); // after half a second
}

TEST_F(ItemServer, LetsAClientTakeItsTimeAsLongAsItTakesSomething)
{
    size_t size = 0;
    for (int i = 0; i < 200; ++i) {
        const std::string number = std::to_string(i), text(100000, 'x');
        tcDbgItem::AddItem("ITEM" + number, i, text);
        size += ("ITEM" + number + " = " + number + " [" + text + "]\n").size() + 1;
    }
    tcDbgd::snReplyPatience = 300;
    Start();
    tcClient client(mnPort);
    client.Send("LIST");
    EXPECT_EQ(size, client.ReadSlowly(1 << 20, 50));
}

TEST_F(ItemServer, HasSixtyFourClientsOfWhichTheLongestSilentOneMakesRoom)
{
    tcDbgItem::AddItem("A", 1, "");
    Start();
    const int before = CountDescriptors();
    std::vector<std::unique_ptr<tcClient>> silent;
    for (int i = 0; i < 64; ++i)
        silent.push_back(std::make_unique<tcClient>(mnPort));
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == before + 128; }));
    EXPECT_FALSE(silent[0]->HasAnswer(50)); // nobody waits
    tcClient further(mnPort);
    EXPECT_EQ("", silent[0]->ReadAll());
    EXPECT_FALSE(silent[1]->HasAnswer(50));
    further.Send("GET:A");
    EXPECT_EQ("1\0"s, further.ReadAll());
    silent[1]->Send("GET:A");
    EXPECT_EQ("1\0"s, silent[1]->ReadAll());
}

TEST_F(ItemServer, IsStartedOnceAndEndsAfterTheConnectionThatFollowsTheStop)
{
    tcDbgItem::AddItem("A", 1, "");
    Start();
    const pthread_t thread = tcDbgItem::mhThreadId;
    tcDbgItem::StartServer();
    EXPECT_TRUE(thread == tcDbgItem::mhThreadId);
    const int descriptors = CountDescriptors();
    tcClient last(mnPort);
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors + 2; }));
    tcDbgItem::StopServer(); // while the last one is being served
    EXPECT_TRUE(tcDbgItem::mbThreadDone);
    last.Send("GET:A");
    EXPECT_EQ("1\0"s, last.ReadAll());
    EXPECT_TRUE(Eventually([this] { return !tcClient(mnPort).IsConnected(); }));
    tcDbgItem::StartServer(); // not again
    EXPECT_TRUE(thread == tcDbgItem::mhThreadId);
    EXPECT_TRUE(tcDbgItem::mbThreadDone);
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

TEST_F(ItemServer, ForgetsAStopThatCameBeforeItsStart)
{
    tcDbgItem::AddItem("A", 1, "");
    tcDbgItem::StopServer();
    EXPECT_TRUE(tcDbgItem::mbThreadDone);
    Start();
    EXPECT_FALSE(tcDbgItem::mbThreadDone);
    EXPECT_EQ("1\0"s, Ask("GET:A"));
    EXPECT_EQ("1\0"s, Ask("GET:A"));
}

TEST_F(ItemServer, ReportsATakenPortAndLeavesItsSocketOpen)
{
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    setenv("DBGITEM_PORTNUM", std::to_string(taken.Port()).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    GetCapturedStderr();
    CaptureStderr();
    const int descriptors = CountDescriptors(), threads = CountThreads();
    tcDbgItem::StartServer();
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors + 1; }));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_EQ(descriptors + 1, CountDescriptors());
    EXPECT_EQ("tcDbgItem::Server:Cannot bind input port " +
                  std::to_string(static_cast<short>(taken.Port())) + ": Address already in use\n",
              GetCapturedStderr());
    CaptureStderr();
}

TEST_F(ItemServer, AdmitsOnlyWhoIsOnTheList)
{
    const tcDaemonRecords log(0);
    setenv("DBGITEM_ALLOW", "10.0.0.0/8, 127.0.0.2", 1);
    tcDbgItem::AddItem("A", 1, "");
    mnPort = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(mnPort).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    CaptureStdout();
    tcDbgItem::StartServer();
    mbListening = Eventually([this] { return tcClient(mnPort).IsConnected(); });
    EXPECT_EQ("1\0"s, ::Ask(mnPort, "GET:A", "127.0.0.2"));
    tcClient refused(mnPort, "127.0.0.1");
    EXPECT_EQ("", refused.ReadAll());
    EXPECT_EQ("1\0"s, ::Ask(mnPort, "GET:A", "127.0.0.2"));
    EXPECT_NE(std::string::npos, std::string(tcLog::LastErrorMessage())
                                     .find("tcDbgItem::Server refused client from 127.0.0.1"));
    ::Ask(mnPort, "GET:A", "127.0.0.2");
}

TEST_F(ItemServer, ListensOnTheAddressItIsGiven)
{
    mnPort = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(mnPort).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.2", 1);
    CaptureStdout();
    tcDbgItem::StartServer();
    EXPECT_TRUE(
        Eventually([this] { return tcClient(mnPort, "127.0.0.1", "127.0.0.2").IsConnected(); }));
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
    tcDbgItem::StopServer();
    ::Ask(mnPort, "LIST", "127.0.0.1", "127.0.0.2");
    GetCapturedStdout();
}

TEST_F(ItemServer, DoesNotListenOnAnAddressThatIsNone)
{
    tcDaemonRecords log(0);
    mnPort = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(mnPort).c_str(), 1);
    setenv("DBGITEM_BIND", "nowhere", 1);
    const int threads = CountThreads();
    tcDbgItem::StartServer();
    EXPECT_TRUE(log.Has("ERR DBGITEM_BIND: bad address nowhere, not listening"));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

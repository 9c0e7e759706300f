// The daemon on the network: what it answers.
#include "HSocket.h"
#include "debug_support.h"

#include <csignal>
#include <set>

namespace {

using std::string_literals::operator""s;

using ::testing::ElementsAre;
using ::testing::internal::CaptureStdout;
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

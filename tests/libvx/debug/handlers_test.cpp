// ECHO, HELP and LIST over TCP.
#include "HSocket.h"
#include "debug_support.h"

#include <fcntl.h>

namespace {

using ::testing::ElementsAre;

// A client that sees where one writing ends and the next begins.
class tcPackets
{
public:
    tcPackets()
    {
        int ends[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends));
        mhPeer = ends[1];
        mClient.Create();
        EXPECT_EQ(mClient.GetFD(), dup3(ends[0], mClient.GetFD(), O_CLOEXEC));
        close(ends[0]);
    }
    ~tcPackets() { close(mhPeer); }
    tcPackets(const tcPackets&) = delete;
    tcPackets& operator=(const tcPackets&) = delete;

    // What a handler writes for these arguments.
    std::vector<std::string> Of(tcDbgdWB* handler, std::string args)
    {
        handler->Run(&mClient, args.data());
        std::vector<std::string> packets;
        char data[65536];
        for (ssize_t size; (size = recv(mhPeer, data, sizeof data, MSG_DONTWAIT)) > 0;)
            packets.emplace_back(data, static_cast<size_t>(size));
        return packets;
    }

    HSocket& Client() { return mClient; }

private:
    HSocket mClient;
    int mhPeer = -1;
};

} // namespace

TEST(Handlers, ReplyInOneWritingButForTheEcho)
{
    const tcQuietErrors quiet;
    tcLog first("FIRST", 1), second("SECOND", 2);
    first.logError("an error");
    second.logError("another");
    tcPackets client;
    EXPECT_THAT(client.Of(DbgdWB_echoPtr, "abc"), ElementsAre("abc", "\n"));
    EXPECT_THAT(client.Of(DbgdWB_helpPtr, "ECHO"), ElementsAre(DbgdWB_echoPtr->msHelp));
    EXPECT_THAT(client.Of(DbgdWB_helpPtr, "NOPE"), ElementsAre("NOPE: unknown command token\n"));
    EXPECT_THAT(client.Of(DbgdWB_listPtr, ""), ElementsAre(DbgdPointer()->List()));
    for (const char* command : {"LIST", "DIR", "GET FIRST", "GET NOPE", "DUMP NOPE"})
        EXPECT_EQ(1u, client.Of(DbgdWB_logPtr, command).size()) << command;
    EXPECT_THAT(client.Of(DbgdWB_logPtr, "ERRS"), ElementsAre(tcLog::ErrorBuffer()));
    EXPECT_THAT(client.Of(DbgdWB_logPtr, "SET FIRST 1 100"), ElementsAre());
    first.logDebug(1, "one line");
    first.logDebug(1, "another line");
    EXPECT_EQ(1u, client.Of(DbgdWB_logPtr, "DUMP FIRST").size());
    EXPECT_THAT(client.Of(DbgdWB_logPtr, "SET FIRST 1"), ElementsAre());
    EXPECT_THAT(client.Of(DbgdWB_logPtr, "ENABLE 1"), ElementsAre());
}

TEST_F(Daemon, EchoesItsArgument)
{
    Start();
    EXPECT_EQ("abc\n", Ask("ECHO:abc\r\n"));
    EXPECT_EQ("abc\n", Ask("ECHO:abc"));
    EXPECT_EQ(" a:b \n", Ask("ECHO: a:b "));
    EXPECT_EQ("\n", Ask("ECHO:"));
    EXPECT_EQ("\n", Ask("ECHO"));
    EXPECT_EQ("100%d%s\n", Ask("ECHO:100%d%s"));
}

TEST_F(Daemon, HelpsWithEachCommand)
{
    Start();
    EXPECT_EQ("ECHO:<string to echo>\n   returns string send in command to requester\n",
              Ask("HELP:ECHO"));
    EXPECT_EQ("HELP:[CMDNAME]\n   Provides a description on specific command name\n",
              Ask("HELP:HELP\r\n"));
    EXPECT_EQ("LIST \n   Lists All known tokens\n", Ask("HELP:LIST"));
    EXPECT_EQ("LOG:LIST \n"
              "LOG:SET <name> <level> [file]\n"
              "LOG:GET <name>\n"
              "LOG:DUMP <name>\n"
              "LOG:ENABLE <1|0>\n"
              "   LIST lists all known debug loggers\n"
              "   SET allows setting of specified logs level\n"
              "   and file. setting a level w/o a file will close any open file\n"
              "   if file is a number, a circular buffer of that many lines will be created\n"
              "   GET will result in the level to be reported back\n"
              "   DUMP will dump the contents of a log buffer\n"
              "   ERRS will dump the contents of the error buffer\n"
              "   ENABLE turns on and off all logging globally\n",
              Ask("HELP:LOG"));
}

TEST_F(Daemon, HelpsNotWithUnknownCommands)
{
    tcDbgd::GetLog().setDbgLevel(5);
    Start();
    EXPECT_EQ(": unknown command token\n", Ask("HELP:"));
    EXPECT_EQ(": unknown command token\n", Ask("HELP"));
    EXPECT_EQ("NOPE: unknown command token\n", Ask("HELP:NOPE"));
    EXPECT_EQ("list: unknown command token\n", Ask("HELP:list\n"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_help:Run command = NOPE"));
    EXPECT_TRUE(mLog.Has("5 Couldn't find token handler for NOPE"));
    EXPECT_TRUE(mLog.Has("1 tcDbgd::GetWB looking for NOPE ,length = 4"));
}

TEST_F(Daemon, ListsTheTokensWhateverTheArguments)
{
    class tcOwn : public tcDbgdWB
    {
    public:
        tcOwn() : tcDbgdWB("GO", "helps\n") {}
        void Run(HSocket*, char*) override {}
    } own;
    tcDbgd::GetLog().setDbgLevel(5);
    Start();
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", Ask("LIST"));
    mpDaemon->RegisterWB(&own);
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tGO\n\tHELP\n\tLIST\n\tLOG\n", Ask("LIST:what ever\n"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_list:Run command = what ever"));
    EXPECT_EQ("helps\n", Ask("HELP:GO"));
    mpDaemon->RemoveWB(&own);
    EXPECT_EQ("GO: unknown command token\n", Ask("HELP:GO"));
}

TEST(DbgdTrust, IsForWhatIsNoConnectionOfTheNetwork)
{
    tcDbgd& daemon = *tcDbgd::getItem();
    EXPECT_TRUE(daemon.Trusts(nullptr)) << "the process itself";
    tcPackets pair;
    EXPECT_TRUE(daemon.Trusts(&pair.Client())) << "a pair of sockets";
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    HSocket end;
    end.Create();
    ASSERT_EQ(end.GetFD(), dup3(ends[0], end.GetFD(), O_CLOEXEC));
    EXPECT_TRUE(daemon.Trusts(&end)) << "a pipe";
    HSocket unconnected;
    unconnected.Create();
    EXPECT_FALSE(daemon.Trusts(&unconnected)) << "of the network, from nobody knows where";
    close(ends[0]);
    close(ends[1]);
}

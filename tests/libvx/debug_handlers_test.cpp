// ECHO, HELP and LIST over TCP.
#include "debug_support.h"

namespace {

using std::string_literals::operator""s;
using ::testing::Contains;

} // namespace

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

// The daemon on the network: whom it admits, and how many it bears.
#include "HSocket.h"
#include "debug_support.h"

#include <atomic>
#include <condition_variable>

namespace {

using std::string_literals::operator""s;

using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

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

} // namespace

TEST_F(Daemon, CutsClientsThatHaveTheirAnswerAndGoOnSending)
{
    Start();
    tcClient client(mnPort);
    client.Send("ECHO:" + std::string(1019, 'x'));        // as much as is read of a request
    EXPECT_TRUE(client.IsCutWhileItSends(Within(20000))); // after half a second
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
    tcDbgd::snClientPatience = 3600000;
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
    tcDbgd::snReplyPatience = 3600000; // they are served for long
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
    tcDbgd::snClientPatience = tcDbgd::snReplyPatience = 3600000;
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
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads + 64; }));
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
    tcDbgd::snClientPatience = 3600000;
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
    EXPECT_TRUE(client.HasAnswer(Within(20000)));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    mpDaemon->RemoveWB(&handler);
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

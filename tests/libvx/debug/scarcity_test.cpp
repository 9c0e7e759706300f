// Memory and threads that run out, one request after the other: the debug services do without what
// they cannot have, and serve again when there is enough.
#include "HSocket.h"
#include "debug_support.h"
#include "scarcity.h"
#include "tcDbgItem.h"

#include <sstream>

using scarcity::ForEach;
using scarcity::teExtent;

namespace {

// Asks, but does not wait for long: whoever has no memory may be without an answer.
std::string AskBriefly(unsigned short port, const std::string& request)
{
    tcClient client(port);
    client.Send(request);
    return client.ReadAll(300);
}

// What this thread asks for is there; the services are to be without.
class Scarcity : public Daemon
{
protected:
    Scarcity() : mLogger(*Keep(new tcLog("CAM", 1)))
    {
        scarcity::ExemptThisThread();
        ::testing::internal::CaptureStderr();
        std::cout.setstate(std::ios::failbit); // the item server tells of every request
    }
    ~Scarcity() override
    {
        scarcity::End();
        std::cout.clear();
        ::testing::internal::GetCapturedStderr();
    }

    // Makes each of the services' requests for memory or threads fail while `request` is served.
    void Refuse(unsigned short port, const std::string& request, const std::string& check,
                const std::string& expected)
    {
        for (const teExtent extent : {teExtent::eFromThenOn, teExtent::eOnce}) {
            const long count = ForEach(extent, [&](long nth, teExtent how) {
                scarcity::Begin(nth, how);
                AskBriefly(port, request);
                const bool isRefused = scarcity::End();
                EXPECT_EQ(expected, ::Ask(port, check)) << request << ", request " << nth;
                return isRefused && !HasFailure();
            });
            EXPECT_GT(count, 1) << "nothing was refused";
        }
    }

    tcLog& mLogger;
};

} // namespace

TEST_F(Scarcity, LeavesTheDaemonServingAfterEveryCommand)
{
    Start();
    for (const char* request : {"ECHO:text", "HELP:LOG", "LIST", "NOBODY:x", "LOG:LIST", "LOG:DIR",
                                "LOG:GET CAM", "LOG:ERRS"})
        Refuse(mnPort, request, "ECHO:x", "x\n");
}

TEST_F(Scarcity, LeavesLoggersUsable)
{
    tcLogBuffer original(7);
    mLogger.SetConsumer(&original);
    Start();
    for (const char* request :
         {"LOG:SET CAM 2 200", "LOG:DUMP CAM", "LOG:SET CAM 2 -", "LOG:SET CAM 2",
          "LOG:URI CAM buff://20", "LOG:URI CAM udp:127.0.0.1:9", "LOG:URI CAM"}) {
        Refuse(mnPort, request, "ECHO:x", "x\n");
        mLogger.logDebug(1, "text");
    }
    ::Ask(mnPort, "LOG:SET CAM 3 10");
    mLogger.logDebug(1, "kept");
    EXPECT_THAT(::Ask(mnPort, "LOG:DUMP CAM"), ::testing::HasSubstr(":kept\n"));
    ::Ask(mnPort, "LOG:SET CAM 3");
    EXPECT_EQ("CAM = 3 [7 Line Buffer]\n", ::Ask(mnPort, "LOG:GET CAM"));
    mLogger.SetConsumer(nullptr);
}

TEST_F(Scarcity, KeepsADaemonFromStartingButNotForGood)
{
    const int threads = CountThreads();
    const auto isGone = [threads] { return CountThreads() == threads; };
    for (const teExtent extent : {teExtent::eOnce, teExtent::eFromThenOn}) {
        const long count = ForEach(extent, [&](long nth, teExtent how) {
            std::thread([&] { // this one is not exempt
                scarcity::Begin(nth, how);
                mpDaemon->StartServer();
            })
                .join();
            EXPECT_TRUE(Eventually([&] { return mpDaemon->GetPort() != 0 || isGone(); }));
            const bool isRefused = scarcity::End();
            Stop();
            EXPECT_TRUE(Eventually(isGone)) << nth;
            Start();
            EXPECT_EQ("x\n", Ask("ECHO:x"));
            Stop();
            EXPECT_TRUE(Eventually(isGone));
            return isRefused && !HasFailure();
        });
        EXPECT_GT(count, 1);
    }
}

TEST_F(Scarcity, MakesTheDaemonsOwnFunctionsFail)
{
    class tcNothing : public tcDbgdWB
    {
    public:
        tcNothing() : tcDbgdWB("A token that takes memory of its own", "") {}
        void Run(HSocket*, char*) override {}
    } handler;
    const long count = ForEach(teExtent::eFromThenOn, [&](long nth, teExtent how) {
        bool isRefused = false;
        std::thread([&] {
            scarcity::Begin(nth, how);
            const int result = mpDaemon->RegisterWB(&handler);
            const tcDbgd::tcHeldWB held = mpDaemon->HoldWB(handler.msToken.c_str());
            mpDaemon->GetWB("LIST");
            mpDaemon->List();
            isRefused = scarcity::End();
            EXPECT_EQ(result == 0, mpDaemon->GetWB(handler.msToken.c_str()) == &handler);
        }).join();
        mpDaemon->RemoveWB(&handler);
        return isRefused && !HasFailure();
    });
    EXPECT_GT(count, 1);
}

TEST_F(Scarcity, LeavesTheItemServerServing)
{
    const unsigned short port = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    using std::string_literals::operator""s;
    tcDbgItem::AddItem("GAIN", 1, std::string(100, 'x'));
    tcDbgItem::StartServer();
    EXPECT_TRUE(Eventually([&] { return tcClient(port).IsConnected(); }));
    for (const char* request : {"GET:GAIN", "SET:GAIN=7", "LIST", "GET:a name that takes memory"})
        Refuse(port, request, "GET:GAIN", std::string(request) == "GET:GAIN" ? "1\0"s : "7\0"s);
}

TEST_F(Scarcity, KeepsTheItemServerFromStartingButNotForGood)
{
    const unsigned short port = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    setenv("DBGITEM_ALLOW", "127.0.0.1,10.0.0.0/255.0.0.0", 1);
    ForEach(teExtent::eFromThenOn, [&](long nth, teExtent how) {
        std::thread([&] {
            scarcity::Begin(nth, how);
            tcDbgItem::StartServer();
            scarcity::End();
        }).join();
        return tcDbgItem::mhThreadId == 0u;
    });
    EXPECT_TRUE(Eventually([&] { return tcClient(port).IsConnected(); }));
}

TEST_F(Scarcity, LeavesItemsAsTheyAreOrMakesThemWhole)
{
    std::cout.clear();
    const std::string name = "A name that takes memory of its own";
    const std::string described = "A description that takes memory of its own";
    long count = ForEach(teExtent::eFromThenOn, [&](long nth, teExtent how) {
        bool isRefused = false;
        std::thread([&] {
            std::string ownName = name + std::to_string(nth), ownText = described;
            scarcity::Begin(nth, how);
            const int* added = tcDbgItem::AddItem(std::move(ownName), 7, std::move(ownText));
            isRefused = scarcity::End();
            EXPECT_EQ(added != nullptr, tcDbgItem::GetMap().count(name + std::to_string(nth)) == 1);
            if (added) {
                EXPECT_EQ(7, *added);
            }
        }).join();
        return isRefused && !HasFailure();
    });
    EXPECT_GT(count, 1);
    count = ForEach(teExtent::eFromThenOn, [&](long nth, teExtent how) {
        bool isRefused = false;
        std::thread([&] {
            std::string ownName = "?" + name + std::to_string(nth);
            scarcity::Begin(nth, how);
            const float* found = tcDbgItem::FindItem(std::move(ownName), 0.5f);
            isRefused = scarcity::End();
            if (found) {
                EXPECT_EQ(0.5f, *found);
            }
            scarcity::Begin(nth, how);
            ListDbgItems();
            isRefused = scarcity::End() || isRefused;
        }).join();
        return isRefused && !HasFailure();
    });
    EXPECT_GT(count, 1);
}

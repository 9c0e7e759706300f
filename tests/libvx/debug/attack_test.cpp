// A thousand clients that do not go away by themselves, thousands that do, and as many as there are
// places that do not read their answers. Somebody else is answered meanwhile.
#include "HSocket.h"
#include "debug_support.h"
#include "tcDbgItem.h"

namespace {

using std::string_literals::operator""s;

constexpr int nClients = 1000;

// Whoever is held up here waits for the end of a client's patience, and that is long. An answer
// that waits for nobody takes a second where the machine has nothing else to do.
constexpr int nPatienceMs = Within(40000);
constexpr int nLimitMs = nPatienceMs / 2;

void MakePatient()
{
    tcDbgd::snClientPatience = tcDbgd::snReplyPatience = tcDbgItem::snClientPatience = nPatienceMs;
}

// Somebody asks, and is not held up.
void ExpectAnswer(unsigned short port, const std::function<bool(const std::string&)>& isRight)
{
    const auto start = tcClock::now();
    const std::string answer = Ask(port, "LIST");
    const int taken = ElapsedMs(start);
    EXPECT_TRUE(isRight(answer)) << answer.substr(0, 200);
    EXPECT_LT(taken, nLimitMs);
    std::printf("answered after %d ms\n", taken);
}

// Connects the clients, each sends the request and keeps its connection; asks for `expected` beside
// them.
void Attack(unsigned short port, const std::string& request, const std::string& expected)
{
    AllowDescriptors(4 * nClients);
    std::vector<std::unique_ptr<tcClient>> clients;
    for (int i = 0; i < nClients; ++i) {
        clients.push_back(std::make_unique<tcClient>(port));
        clients.back()->Send(request);
    }
    ExpectAnswer(port, [&](const std::string& answer) { return answer == expected; });
}

// Attacks of each kind; memory, descriptors and threads are then what they were.
void AttackInEveryWay(unsigned short port, const std::string& expected)
{
    ::testing::internal::CaptureStderr(); // a line for each client that was dropped
    MakePatient();
    const int threads = CountThreads(), descriptors = CountDescriptors();
    long before = 0;
    for (const std::string& request : {""s, "\1\2garbage:\xff\xfe"s, std::string(100000, 'x')}) {
        Attack(port, request, expected);
        EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors; }));
        EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
        if (before == 0) before = ResidentKiB();
    }
    EXPECT_LT(ResidentKiB() - before, 50000);
    ::testing::internal::GetCapturedStderr();
}

// Clients that ask for much and take little of it.
class tcSlowReaders
{
public:
    tcSlowReaders(unsigned short port, const std::string& request, int count)
    {
        for (int i = 0; i < count; ++i) {
            maClients.push_back(std::make_unique<tcClient>(port, "127.0.0.1", "127.0.0.1", 4096));
            maClients.back()->Send(request);
        }
        for (const auto& client : maClients)
            EXPECT_TRUE(client->HasAnswer(Within(60000))); // it is being sent
    }

private:
    std::vector<std::unique_ptr<tcClient>> maClients;
};

// They go on taking a little now and then.
class tcDrippingReaders
{
public:
    tcDrippingReaders(unsigned short port, const std::string& request, int count)
    {
        for (int i = 0; i < count; ++i) {
            maClients.push_back(std::make_unique<tcClient>(port, "127.0.0.1", "127.0.0.1", 4096));
            maClients.back()->Send(request);
            maThreads.emplace_back([&client = *maClients.back()] { client.ReadSlowly(2048, 30); });
        }
    }
    ~tcDrippingReaders()
    {
        for (const auto& client : maClients)
            client->Abandon();
        for (std::thread& thread : maThreads)
            thread.join();
    }
    tcDrippingReaders(const tcDrippingReaders&) = delete;
    tcDrippingReaders& operator=(const tcDrippingReaders&) = delete;

private:
    std::vector<std::unique_ptr<tcClient>> maClients;
    std::vector<std::thread> maThreads;
};

bool IsWhole(const std::string& answer)
{
    return !answer.empty() && answer.back() != ')'; // as what went wrong ends
}

// Somebody is answered beside them, also when they come again and again.
void AskBesideSlowReaders(unsigned short port, const std::string& much)
{
    MakePatient();
    for (int i = 0; i < 3; ++i) {
        const tcSlowReaders readers(port, much, 64);
        ExpectAnswer(port, IsWhole);
    }
}

} // namespace

// A logger with a buffer whose dump is more than any socket takes.
class MuchToRead : public Daemon
{
protected:
    MuchToRead()
    {
        Start();
        tcLog& log = *Keep(new tcLog("MUCH", 1));
        EXPECT_EQ("", Ask("LOG:SET MUCH 1 50000"));
        const std::string text(250, 'x');
        for (int i = 0; i < 50000; ++i)
            log.logDebug(1, "%s", text.c_str());
    }
};

TEST_F(MuchToRead, HoldsNobodyUpWhenAllPlacesAreTakenByClientsThatReadSlowly)
{
    // They take something all the time, for two to three minutes; this ends before.
    const tcDrippingReaders readers(mnPort, "LOG:DUMP MUCH", 64);
    EXPECT_TRUE(Eventually([&] { return CountThreads() >= 2 + 64 + 64; }));
    ExpectAnswer(mnPort, IsWhole);
}

TEST_F(MuchToRead, HoldsNobodyUpWhileAllPlacesAreTakenByClientsThatDoNotRead)
{
    EXPECT_GT(Ask("LOG:DUMP MUCH").size(), 14000000u); // more than any socket takes
    const long before = ResidentKiB();
    AskBesideSlowReaders(mnPort, "LOG:DUMP MUCH");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which take memory themselves
    EXPECT_LT(ResidentKiB() - before, 100000);
#else
    (void)before;
#endif
}

TEST_F(Daemon, AnswersWhileHandlersOfTheApplicationWriteToClientsThatDoNotRead)
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
    mpDaemon->RegisterWB(&handler);
    const int threads = CountThreads() + 2;
    Start();
    AskBesideSlowReaders(mnPort, "ENDLESS");
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Daemon, AnswersWhileAThousandClientsHoldTheirConnections)
{
    const int descriptors = CountDescriptors();
    Start();
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors + 2; }));
    AttackInEveryWay(mnPort, "Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n");
}

TEST_F(Daemon, IsTheSameAfterThousandsOfBadClients)
{
    ::testing::internal::CaptureStderr();
    // Server and announcer, and a socket for each.
    const int threads = CountThreads() + 2, descriptors = CountDescriptors() + 2;
    Start();
    EXPECT_TRUE(
        Eventually([&] { return CountThreads() == threads && CountDescriptors() == descriptors; }));
    MakePatient();
    const auto visit = [this](const std::string& request) {
        tcClient client(mnPort);
        client.Send(request);
    };
    for (int i = 0; i < 50; ++i)
        visit(std::string(100000, 'x'));
    const long before = ResidentKiB();
    for (int i = 0; i < 1000; ++i) {
        visit("");
        visit("\1\2garbage:\xff\xfe" + std::to_string(i));
    }
    for (int i = 0; i < 50; ++i)
        visit(std::string(100000, 'x'));
    ExpectAnswer(mnPort,
                 [](const std::string& answer) { return answer.rfind("Available", 0) == 0; });
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors; }));
    EXPECT_LT(ResidentKiB() - before, 50000);
    ::testing::internal::GetCapturedStderr();
}

TEST(ItemServer, AnswersWhileAThousandClientsHoldTheirConnections)
{
    const unsigned short port = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    tcDbgItem::AddItem("A", 1, "");
    std::cout.setstate(std::ios::failbit); // the server tells of every request
    tcDbgItem::StartServer();
    EXPECT_TRUE(Eventually([port] { return Ask(port, "GET:A") == "1\0"s; }));
    AttackInEveryWay(port, "A = 1 []\n\0"s);
    std::cout.clear();
}

TEST(ItemServer, AnswersWhileAllPlacesAreTakenByClientsThatDoNotRead)
{
    const unsigned short port = FreePort();
    setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
    setenv("DBGITEM_BIND", "127.0.0.1", 1);
    for (int i = 0; i < 200; ++i)
        tcDbgItem::AddItem("ITEM" + std::to_string(i), i, std::string(35000, 'x'));
    std::cout.setstate(std::ios::failbit);
    tcDbgItem::StartServer();
    EXPECT_TRUE(Eventually([port] { return Ask(port, "GET:ITEM1") == "1\0"s; }));
    AskBesideSlowReaders(port, "LIST");
    std::cout.clear();
}

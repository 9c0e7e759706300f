// A thousand clients that do not go away by themselves. These tests run alone: they tell how
// quickly somebody else is answered meanwhile.
#include "debug_support.h"
#include "tcDbgItem.h"

namespace {

using std::string_literals::operator""s;

constexpr int nClients = 1000;

// A second, on a machine that has nothing else to do.
int LimitMs()
{
    double load = 0;
    getloadavg(&load, 1);
    return static_cast<int>(1000 * std::max(1.0, load / std::thread::hardware_concurrency()));
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
    const auto start = tcClock::now();
    EXPECT_EQ(expected, Ask(port, "LIST"));
    EXPECT_LT(ElapsedMs(start), LimitMs());
    std::printf("answered after %d ms\n", ElapsedMs(start));
}

// Attacks of each kind; memory, descriptors and threads are then what they were.
void AttackInEveryWay(unsigned short port, const std::string& expected)
{
    ::testing::internal::CaptureStderr(); // a line for each client that was dropped
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

} // namespace

TEST_F(Daemon, AnswersWithinASecondWhileAThousandClientsHoldTheirConnections)
{
    const int descriptors = CountDescriptors();
    Start();
    EXPECT_TRUE(Eventually([&] { return CountDescriptors() == descriptors + 2; }));
    AttackInEveryWay(mnPort, "Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n");
}

TEST(ItemServer, AnswersWithinASecondWhileAThousandClientsHoldTheirConnections)
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

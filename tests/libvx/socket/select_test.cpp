#include "socket_support.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <vector>

TEST(HSocketSelect, GivesTheFirstReadableInOrder)
{
    HSocket sockets[3];
    for (HSocket& socket : sockets)
        socket.Create(0, SOCK_DGRAM, "127.0.0.1");
    HSocket sender;
    sender.Create(0, SOCK_DGRAM, "127.0.0.1");
    EXPECT_EQ(-2, HSocket::Select(3, sockets, 10));
    sender.SendTo("x", 1, HInetAddr("127.0.0.1", sockets[2].GetLocalPort()));
    EXPECT_EQ(2, HSocket::Select(3, sockets, 5000));
    sender.SendTo("x", 1, HInetAddr("127.0.0.1", sockets[1].GetLocalPort()));
    EXPECT_EQ(0, HSocket::Select(1, &sockets[1], 5000));
    EXPECT_EQ(1, HSocket::Select(3, sockets, 5000));
    EXPECT_EQ(1, HSocket::Select(3, sockets, -1));
}

TEST(HSocketSelect, WaitsWithoutLimitForANegativeTimeout)
{
    for (int timeout : {-1, -2, -1000}) {
        tsTcpPair pair;
        std::thread sender([&pair] {
            std::this_thread::sleep_for(std::chrono::milliseconds(60)); // well into the wait
            pair.mClient.Send("x", 1);
        });
        EXPECT_EQ(0, HSocket::Select(1, &pair.mServer, timeout));
        sender.join();
    }
}

TEST(HSocketSelect, TakesObjectsOfAnyKind)
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    HForeign reader(ends[0]);
    HSocket socket;
    socket.Create(0, SOCK_DGRAM, "127.0.0.1");
    HFDObject* objects[] = {&socket, &reader};
    EXPECT_EQ(-2, HFDObject::Select(2, objects, 10));
    ASSERT_EQ(1, write(ends[1], "x", 1));
    EXPECT_EQ(1, HFDObject::Select(2, objects, 5000));
    close(ends[0]);
    close(ends[1]);
}

TEST(HSocketSelect, CountsAClosedPeerAsReadable)
{
    tsTcpPair pair;
    pair.mClient.Close();
    EXPECT_EQ(0, HSocket::Select(1, &pair.mServer, 5000));
}

TEST(HSocketSelect, FailsForClosedAndStrangeDescriptors)
{
    HSocket sockets[2];
    sockets[0].Create(0, SOCK_DGRAM, "127.0.0.1");
    EXPECT_EQ(-1, HSocket::Select(2, sockets, 10));
    HFDObject* missing[] = {nullptr};
    EXPECT_EQ(-1, HFDObject::Select(1, missing, 10));
    HForeign strange(54321);
    HFDObject* objects[] = {&strange};
    EXPECT_EQ(-1, HFDObject::Select(1, objects, 10));
    EXPECT_EQ(EBADF, errno);
}

TEST(HSocketSelect, WaitsEvenForNothing)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-2, HSocket::Select(0, nullptr, 30));
    EXPECT_GE(ElapsedMs(start), 29);
}

TEST(HSocketSelect, WorksWithDescriptorsAbove1024)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max < 4096 ? limit.rlim_max : 4096;
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    ASSERT_GE(limit.rlim_cur, 1200u);

    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < 1100)
        fillers.push_back(fcntl(0, F_DUPFD_CLOEXEC, 0));
    {
        tsTcpPair pair;
        EXPECT_GE(pair.mListener.GetFD(), 1024);
        EXPECT_GE(pair.mServer.GetFD(), 1024);
        char buffer[4];
        EXPECT_EQ(-2, pair.mServer.Receive(buffer, sizeof buffer, 10, 0));
        EXPECT_EQ(1, pair.mClient.Send("x", 1));
        EXPECT_EQ(1, pair.mServer.Receive(buffer, sizeof buffer, 5000, 0));
    }
    for (int filler : fillers)
        close(filler);
}

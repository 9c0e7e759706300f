// Discovery where ports are taken and calls of the system fail, only ever run in private networks.
#include "discovery_support.h"
#include "link_support.h"

#include "vxcamiface.h"

#include <sys/syscall.h>

using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;

// The system's bind, which can be told to fail.
static std::atomic<int> snFailingBinds{0};
static std::atomic<int> snBinds{0};
extern "C" VX_EXPORT int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept
{
    ++snBinds;
    if (snFailingBinds > 0) {
        --snFailingBinds;
        errno = EADDRNOTAVAIL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_bind, descriptor, address, size));
}

// The system's wait, which can be made to find everything readable at once, or to wait until
// several are.
static std::atomic<bool> sbAlwaysReadable{false};
static std::atomic<int> snTogether{0};
extern "C" VX_EXPORT int ppoll(pollfd* entries, nfds_t count, const timespec* limit,
                               const sigset_t* mask)
{
    if (sbAlwaysReadable) {
        for (nfds_t i = 0; i < count; ++i)
            entries[i].revents = POLLIN;
        return static_cast<int>(count);
    }
    if (snTogether > 0) {
        EXPECT_TRUE(WaitUntil([&] { return poll(entries, count, 0) >= snTogether; }));
        return snTogether;
    }
    timespec left{};
    if (limit != nullptr) left = *limit;
    return static_cast<int>(
        syscall(SYS_ppoll, entries, count, limit != nullptr ? &left : nullptr, mask, sizeof(long)));
}

TEST_F(Discovery, LeavesAReplyAloneForWhichThereIsNoRoom)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    tcDiscoveryPeer other(second, {{"10.2.0.2", ReplyBytes(1, 2)}});
    snTogether = 2;
    EXPECT_THAT(Serials(Locate(1)), ElementsAre(1));
    snTogether = 0;
}

TEST_F(Discovery, UsesTheNextPortWhereItsOwnIsTaken)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    tcDiscoveryPeer other(second, {{"10.2.0.2", ReplyBytes(1, 2)}});
    const int taken = UdpSocket("10.1.0.1", gnPort);
    EXPECT_THAT(Serials(Locate()), testing::UnorderedElementsAre(1, 2));
    EXPECT_THAT(one.Requests(), Each(Field(&tsRequest::port, gnPort + 1)));
    EXPECT_THAT(other.Requests(), Each(Field(&tsRequest::port, gnPort)));
    close(taken);
}

TEST_F(Discovery, FindsACameraOnThisHost)
{
    tcDiscoveryPeer peer(host, {{"127.0.0.1", ReplyBytes(1, 4)}}, "0.0.0.0");
    const auto list = Locate();
    EXPECT_THAT(Serials(list), ElementsAre(4));
    EXPECT_EQ("127.0.0.1", TextOf(list[0].SourceAddr));
}

TEST_F(Discovery, FailsWhenFivePortsAreTaken)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    std::vector<int> taken;
    for (uint16_t port = gnPort; port < gnPort + 4; ++port)
        taken.push_back(UdpSocket("10.1.0.1", port));
    EXPECT_THAT(Serials(Locate()), ElementsAre(1));
    // The last request is sent when the time is up: the peer may still have to take it.
    ASSERT_TRUE(WaitUntil([&] { return peer.Requests().size() >= 3; }));
    EXPECT_THAT(peer.Requests(), Each(Field(&tsRequest::port, gnPort + 4)));

    taken.push_back(UdpSocket("10.1.0.1", gnPort + 4));
    Locate();
    EXPECT_EQ(-1, result);
    EXPECT_THAT(peer.Requests(), SizeIs(3));
    for (int descriptor : taken)
        close(descriptor);
}

TEST_F(Discovery, TriesABindAgainThatFailsForAnotherReason)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    snBinds = 0;
    snFailingBinds = 20;
    EXPECT_THAT(Serials(Locate()), ElementsAre(1));
    EXPECT_EQ(22, snBinds); // loopback and h1
    EXPECT_THAT(peer.Requests(), Each(Field(&tsRequest::port, gnPort)));
}

TEST_F(Discovery, ClosesItsSockets)
{
    ConnectFirst();
    const int before = dup(0);
    close(before);
    Locate();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_F(Discovery, EndsThoughDatagramsDoNotCease)
{
    ConnectFirst();
    sbAlwaysReadable = true;
    const auto start = steady_clock::now();
    EXPECT_TRUE(Locate().empty());
    EXPECT_EQ(0, result);
    EXPECT_GE(ElapsedMs(start), 1000);
    EXPECT_LT(ElapsedMs(start), Within(5000));
    sbAlwaysReadable = false;
}

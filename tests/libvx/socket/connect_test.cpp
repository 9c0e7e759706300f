#include "socket_support.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

// A port of loopback on which nobody listens, kept from others while this lives.
struct tsClosedPort {
    tsClosedPort() { mSocket.Create(0, SOCK_STREAM, "127.0.0.1"); }
    unsigned short Number() { return mSocket.GetLocalPort(); }

    HSocket mSocket;
};

// A listener whose backlog is full, so that further connections stay under way.
struct tsFullListener {
    tsFullListener()
    {
        mListener.Create(0, SOCK_STREAM, "127.0.0.1");
        mListener.Listen(0);
        for (int i = 0; i < 8; ++i) {
            const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            const HInetAddr address("127.0.0.1", mListener.GetLocalPort());
            (void)connect(descriptor, reinterpret_cast<const sockaddr*>(&address.GetSockAddr()),
                          sizeof(sockaddr_in));
            maFillers.push_back(descriptor);
        }
    }
    ~tsFullListener()
    {
        for (int descriptor : maFillers)
            close(descriptor);
    }

    HSocket mListener;
    std::vector<int> maFillers;
};

TEST(HSocketConnect, ReachesAListenerByAddressAndByName)
{
    HSocket listener, byAddress, byName;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(5);
    EXPECT_EQ(1, byAddress.Connect("127.0.0.1", listener.GetLocalPort()));
    EXPECT_EQ(1, byName.Connect("localhost", listener.GetLocalPort()));
}

TEST(HSocketConnect, AsksForTwoMebibytesOfReceiveBuffer)
{
    HSocket reference;
    reference.Create(0, SOCK_STREAM, nullptr);
    reference.SetRecvBufferSize(0x200000);
    tsTcpPair pair;
    EXPECT_EQ(reference.GetRecvBufferSize(), pair.mClient.GetRecvBufferSize());
}

TEST(HSocketConnect, TriesAgainOnTheSameDescriptor)
{
    tsClosedPort port;
    HSocket socket;
    EXPECT_EQ(0, socket.Connect("127.0.0.1", port.Number()));
    EXPECT_EQ(ECONNREFUSED, errno);
    const int descriptor = socket.GetFD();
    EXPECT_GE(descriptor, 0);

    port.mSocket.Listen(1);
    EXPECT_EQ(1, socket.Connect("127.0.0.1", port.Number()));
    EXPECT_EQ(descriptor, socket.GetFD());
}

TEST(HSocketConnect, IsNotCutShortBySignals)
{
    tsFullListener full;
    const tcInterruptions signals(pthread_self(), 5);
    std::thread acceptor([&full] {
        while (tcInterruptions::snSeen < 5)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        HSocket filler;
        while (full.mListener.Accept(&filler, 2000)) {
        }
    });
    HSocket socket;
    EXPECT_EQ(1, socket.Connect("127.0.0.1", full.mListener.GetLocalPort())) << errno;
    EXPECT_EQ(full.mListener.GetLocalPort(), socket.GetRemotePort());
    EXPECT_GE(tcInterruptions::snSeen, 5);
    full.mListener.Shutdown(SHUT_RDWR);
    acceptor.join();
}

TEST(HSocketConnect, FailsForANullHost)
{
    HSocket socket;
    const std::atomic<bool> cancel{false};
    EXPECT_EQ(0, socket.Connect(nullptr, 1));
    EXPECT_EQ(0, socket.Connect(nullptr, 1, cancel));
}

// Binds the socket to a port and connects it to the same one: a simultaneous open with itself.
static unsigned short BindToSomePort(HSocket& socket)
{
    socket.Create(0, SOCK_STREAM, "127.0.0.1");
    return socket.GetLocalPort();
}

TEST(HSocketConnect, RefusesAConnectionWithItself)
{
    HSocket plain, cancellable;
    const std::atomic<bool> cancel{false};
    EXPECT_EQ(0, plain.Connect("127.0.0.1", BindToSomePort(plain)));
    EXPECT_EQ(-1, plain.GetFD());
    EXPECT_EQ(0, cancellable.Connect("127.0.0.1", BindToSomePort(cancellable), cancel));
    EXPECT_EQ(-1, cancellable.GetFD());
}

TEST(HSocketConnect, CancellableReachesAListenerAndLeavesTheSocketBlocking)
{
    HSocket listener, client, server;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(1);
    const std::atomic<bool> cancel{false};
    ASSERT_EQ(1, client.Connect("127.0.0.1", listener.GetLocalPort(), cancel));
    EXPECT_EQ(0, fcntl(client.GetFD(), F_GETFL) & O_NONBLOCK);
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(2, client.Send("ab", 2));
    char buffer[4];
    EXPECT_EQ(2, server.Receive(buffer, sizeof buffer, 5000, 0));
}

TEST(HSocketConnect, CancellableTriesAgainOnTheSameDescriptor)
{
    tsClosedPort port;
    HSocket socket;
    const std::atomic<bool> cancel{false};
    EXPECT_EQ(0, socket.Connect("127.0.0.1", port.Number(), cancel));
    EXPECT_EQ(ECONNREFUSED, errno);
    EXPECT_EQ(0, fcntl(socket.GetFD(), F_GETFL) & O_NONBLOCK);
    const int descriptor = socket.GetFD();
    port.mSocket.Listen(1);
    EXPECT_EQ(1, socket.Connect("127.0.0.1", port.Number(), cancel));
    EXPECT_EQ(descriptor, socket.GetFD());
}

TEST(HSocketConnect, CancellableGivesUpAtOnceWhenCancelledBefore)
{
    tsClosedPort port;
    HSocket socket;
    const std::atomic<bool> cancel{true};
    EXPECT_EQ(0, socket.Connect("127.0.0.1", port.Number(), cancel));
    EXPECT_EQ(ECANCELED, errno);
}

TEST(HSocketConnect, CancellableGivesUpAfterItsTimeout)
{
    tsFullListener full;
    HSocket socket;
    const std::atomic<bool> cancel{false};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, socket.Connect("127.0.0.1", full.mListener.GetLocalPort(), cancel, 120));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(ElapsedMs(start), 119);
    EXPECT_LT(ElapsedMs(start), Within(5000)); // the system gives up after two minutes
}

TEST(HSocketConnect, CancellableGivesUpWhenCancelledUnderWay)
{
    tsFullListener full;
    HSocket socket;
    std::atomic<bool> cancel{false};
    std::atomic<int> started{0};
    std::thread canceller([&] {
        while (started == 0)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // let it be under way
        cancel = true;
    });
    const auto start = std::chrono::steady_clock::now();
    started = 1;
    EXPECT_EQ(0, socket.Connect("127.0.0.1", full.mListener.GetLocalPort(), cancel));
    EXPECT_EQ(ECANCELED, errno);
    EXPECT_LT(ElapsedMs(start), Within(5000)); // likewise
    canceller.join();

    // The descriptor is free for another try.
    tsClosedPort other;
    other.mSocket.Listen(1);
    const int descriptor = socket.GetFD();
    cancel = false;
    EXPECT_EQ(1, socket.Connect("127.0.0.1", other.Number(), cancel));
    EXPECT_EQ(descriptor, socket.GetFD());
}

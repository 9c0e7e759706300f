#include "socket_support.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <string>

using testing::HasSubstr;
using testing::StartsWith;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// How many of the next calls of accept4() a signal interrupts.
static std::atomic<int> gnInterruptions{0};

// Stands in front of the system's own for the whole program.
extern "C" VX_EXPORT int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags)
{
    static const auto real = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
    if (gnInterruptions <= 0) return real(descriptor, address, size, flags);
    --gnInterruptions;
    errno = EINTR;
    return -1;
}

static int IntOption(int descriptor, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(0, getsockopt(descriptor, level, name, &value, &size));
    return value;
}

static std::string TemporaryPath(const char* name)
{
    return testing::TempDir() + name + std::to_string(getpid());
}

TEST(HSocket, StartsClosed)
{
    HSocket socket;
    EXPECT_EQ(-1, socket.GetFD());
    EXPECT_TRUE(socket.Close());
}

TEST(HSocket, ClosesItsDescriptorWhenDestroyed)
{
    int descriptor;
    {
        HSocket socket;
        socket.Create(0, SOCK_STREAM, nullptr);
        descriptor = socket.GetFD();
        EXPECT_NE(-1, fcntl(descriptor, F_GETFD));
    }
    EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
}

TEST(HSocket, CreateWithoutAddressAndPortLeavesAStreamUnboundAndSilent)
{
    CaptureStdout();
    HSocket socket;
    EXPECT_EQ(1, socket.Create(0, SOCK_STREAM, nullptr));
    EXPECT_EQ("", GetCapturedStdout());
    EXPECT_EQ(0, socket.GetLocalPort());
    EXPECT_EQ(1, IntOption(socket.GetFD(), SOL_SOCKET, SO_REUSEADDR));
}

TEST(HSocket, CreateWithAddressBindsAndSaysSo)
{
    CaptureStdout();
    HSocket socket;
    EXPECT_EQ(1, socket.Create(0, SOCK_STREAM, "127.0.0.1"));
    EXPECT_EQ("Binding to 127.0.0.1 : 0\nBind: 0\nBind successful\n", GetCapturedStdout());
    EXPECT_NE(0, socket.GetLocalPort());
    EXPECT_EQ(inet_addr("127.0.0.1"), socket.GetLocalIP());
}

TEST(HSocket, CreateWithEmptyAddressBindsToAny)
{
    CaptureStdout();
    HSocket socket;
    EXPECT_EQ(1, socket.Create(0, SOCK_STREAM, ""));
    EXPECT_EQ("Binding to  : 0\nBind: 0\nBind successful\n", GetCapturedStdout());
    EXPECT_NE(0, socket.GetLocalPort());
    EXPECT_EQ(0u, socket.GetLocalIP());
}

TEST(HSocket, CreateBindsDatagramSocketsAlways)
{
    CaptureStdout();
    HSocket socket;
    EXPECT_EQ(1, socket.Create(0, SOCK_DGRAM, nullptr));
    EXPECT_EQ("Binding to (null) : 0\nBind: 0\nBind successful\n", GetCapturedStdout());
    EXPECT_NE(0, socket.GetLocalPort());
    EXPECT_EQ(0, IntOption(socket.GetFD(), SOL_SOCKET, SO_REUSEADDR));
}

TEST(HSocket, CreateBindsToAGivenPort)
{
    HSocket first;
    first.Create(0, SOCK_STREAM, "");
    const unsigned short port = first.GetLocalPort();
    first.Close();

    CaptureStdout();
    HSocket socket;
    EXPECT_EQ(1, socket.Create(port, SOCK_DGRAM, nullptr));
    EXPECT_THAT(GetCapturedStdout(), StartsWith("Binding to (null) : " + std::to_string(port) +
                                                "\nBind: " + std::to_string(port) + "\n"));
    EXPECT_EQ(port, socket.GetLocalPort());
    EXPECT_EQ(1, IntOption(socket.GetFD(), SOL_SOCKET, SO_REUSEADDR));
}

TEST(HSocket, BindReportsItsFailure)
{
    HSocket listener;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(1);

    CaptureStdout();
    CaptureStderr();
    HSocket socket;
    errno = 0;
    EXPECT_EQ(0, socket.Create(listener.GetLocalPort(), SOCK_STREAM, "127.0.0.1"));
    EXPECT_EQ(EADDRINUSE, errno);
    EXPECT_THAT(GetCapturedStdout(), Not(HasSubstr("Bind successful")));
    EXPECT_EQ("Bind:: Address already in use\n", GetCapturedStderr());
}

TEST(HSocket, CreateClosesWhatWasOpenAndReportsFailure)
{
    HSocket socket;
    socket.Create(0, SOCK_STREAM, nullptr);
    const int before = socket.GetFD();
    EXPECT_EQ(0, socket.Create(0, 12345, nullptr));
    EXPECT_EQ(-1, socket.GetFD());
    EXPECT_EQ(-1, fcntl(before, F_GETFD));
}

TEST(HSocket, EveryDescriptorIsCloseOnExec)
{
    tsTcpPair pair;
    HSocket unixSocket;
    const std::string path = TemporaryPath("cloexec");
    ASSERT_TRUE(unixSocket.CreateUnix(path.c_str(), SOCK_STREAM, true));
    for (HSocket* socket : {&pair.mListener, &pair.mClient, &pair.mServer, &unixSocket})
        EXPECT_EQ(FD_CLOEXEC, fcntl(socket->GetFD(), F_GETFD));
    unlink(path.c_str());
}

TEST(HSocket, AcceptGivesUpAfterItsTimeout)
{
    HSocket listener, client;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(1);
    EXPECT_EQ(0, listener.Accept(&client, 0));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, listener.Accept(&client, 50));
    EXPECT_GE(ElapsedMs(start), 49);
    EXPECT_EQ(-1, client.GetFD());
    EXPECT_EQ(0, listener.Accept(nullptr, 0));
}

TEST(HSocket, AcceptFailsOnASocketThatDoesNotListen)
{
    HSocket socket, client;
    EXPECT_EQ(0, socket.Accept(&client, 10));
    socket.Create(0, SOCK_STREAM, "127.0.0.1");
    EXPECT_EQ(0, socket.Accept(&client, 10));
}

TEST(HSocket, AcceptSetsKeepAliveOnTheListener)
{
    HSocket listener, client, server;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(1);
    ASSERT_TRUE(client.Connect("127.0.0.1", listener.GetLocalPort()));
    EXPECT_EQ(0, IntOption(listener.GetFD(), SOL_SOCKET, SO_KEEPALIVE));
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(1, IntOption(listener.GetFD(), SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(0, IntOption(server.GetFD(), SOL_SOCKET, SO_KEEPALIVE));
}

TEST(HSocket, AcceptTriesAgainWhenItIsInterrupted)
{
    HSocket listener, client, server;
    listener.Create(0, SOCK_STREAM, "127.0.0.1");
    listener.Listen(1);
    ASSERT_TRUE(client.Connect("127.0.0.1", listener.GetLocalPort()));
    gnInterruptions = 3;
    EXPECT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(0, gnInterruptions);
    EXPECT_EQ(client.GetLocalPort(), server.GetRemotePort());
}

TEST(HSocket, AcceptReplacesTheClientsDescriptor)
{
    tsTcpPair pair;
    const int before = pair.mServer.GetFD();
    HSocket another;
    ASSERT_TRUE(another.Connect("127.0.0.1", pair.mListener.GetLocalPort()));
    ASSERT_EQ(1, pair.mListener.Accept(&pair.mServer, 5000));
    EXPECT_EQ(another.GetLocalPort(), pair.mServer.GetRemotePort());
    if (pair.mServer.GetFD() != before) {
        EXPECT_EQ(-1, fcntl(before, F_GETFD));
    }
}

TEST(HSocket, ListenReportsFailure)
{
    HSocket socket;
    EXPECT_FALSE(socket.Listen(1));
    EXPECT_FALSE(socket.Shutdown(SHUT_RDWR));
}

TEST(HSocket, ShutdownEndsTheStream)
{
    tsTcpPair pair;
    EXPECT_TRUE(pair.mClient.Shutdown(SHUT_WR));
    char buffer[4];
    EXPECT_EQ(0, pair.mServer.Receive(buffer, sizeof buffer, 5000, 0));
}

TEST(HSocket, UnixSocketsBindToTheirPath)
{
    const std::string path = TemporaryPath("unix");
    HSocket first, second;
    ASSERT_TRUE(first.CreateUnix(path.c_str(), SOCK_STREAM, true));
    EXPECT_FALSE(second.CreateUnix(path.c_str(), SOCK_STREAM, false));
    EXPECT_TRUE(second.CreateUnix(path.c_str(), SOCK_STREAM, true));
    EXPECT_EQ(2 * 65535, second.GetRecvBufferSize()); // the system doubles what is asked for
    unlink(path.c_str());
}

TEST(HSocket, UnixSocketsCutLongPaths)
{
    const std::string name = TemporaryPath("x");
    const std::string path = name + std::string(200 - name.size(), 'y');
    HSocket socket;
    ASSERT_TRUE(socket.CreateUnix(path.c_str(), SOCK_DGRAM, true));
    EXPECT_EQ(0, access(path.substr(0, 107).c_str(), F_OK));
    unlink(path.substr(0, 107).c_str());
}

TEST(HSocket, UnixStreamsConnect)
{
    const std::string path = TemporaryPath("stream");
    HSocket listener, client, server;
    EXPECT_FALSE(client.Connect(path.c_str()));
    ASSERT_TRUE(listener.CreateUnix(path.c_str(), SOCK_STREAM, true));
    ASSERT_TRUE(listener.Listen(1));
    ASSERT_TRUE(client.Connect(path.c_str()));
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(5, client.Send("hello", -1));
    char buffer[16];
    EXPECT_EQ(5, server.Receive(buffer, sizeof buffer, 5000, 0));
    EXPECT_EQ(0u, client.GetRemoteIP());
    unlink(path.c_str());
}

TEST(HSocket, UnixStreamsCloseWhatWasOpenBefore)
{
    const std::string path = TemporaryPath("again");
    HSocket listener, client, server;
    ASSERT_TRUE(listener.CreateUnix(path.c_str(), SOCK_STREAM, true));
    ASSERT_TRUE(listener.Listen(1));
    ASSERT_TRUE(client.Connect(path.c_str()));
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    ASSERT_TRUE(client.Connect(path.c_str()));
    char byte;
    EXPECT_EQ(0, server.Receive(&byte, 1, 5000)) << "the first connection has ended";
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(2, client.Send("hi", -1));
    EXPECT_EQ(1, server.Receive(&byte, 1, 5000));
    unlink(path.c_str());
}

TEST(HSocket, UnixStreamsConnectThoughSignalsInterruptThem)
{
    const std::string path = TemporaryPath("signals");
    HSocket listener, client, server;
    ASSERT_TRUE(listener.CreateUnix(path.c_str(), SOCK_STREAM, true));
    ASSERT_TRUE(listener.Listen(0));
    HSocket filler;
    ASSERT_TRUE(filler.Connect(path.c_str())); // the backlog is full now
    const tcInterruptions signals(pthread_self(), 5);
    std::thread acceptor([&listener] {
        while (tcInterruptions::snSeen < 5)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        HSocket first;
        EXPECT_EQ(1, listener.Accept(&first, 5000));
    });
    EXPECT_TRUE(client.Connect(path.c_str())) << errno;
    EXPECT_GE(tcInterruptions::snSeen, 5);
    acceptor.join();
    ASSERT_EQ(1, listener.Accept(&server, 5000));
    EXPECT_EQ(2, client.Send("hi", -1));
    char buffer[4];
    EXPECT_EQ(2, server.Receive(buffer, sizeof buffer, 5000));
    unlink(path.c_str());
}

TEST(HSocketOptions, SetAndReadBack)
{
    HSocket socket;
    socket.Create(0, SOCK_STREAM, nullptr);
    const int descriptor = socket.GetFD();
    EXPECT_TRUE(socket.SetAsBroadcasting());
    EXPECT_EQ(1, IntOption(descriptor, SOL_SOCKET, SO_BROADCAST));
    EXPECT_TRUE(socket.SetAsKeepAlive());
    EXPECT_EQ(1, IntOption(descriptor, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_TRUE(socket.DisableNagle(1));
    EXPECT_EQ(1, IntOption(descriptor, IPPROTO_TCP, 1));
    EXPECT_TRUE(socket.DisableNagle(0));
    EXPECT_EQ(0, IntOption(descriptor, IPPROTO_TCP, 1));
    EXPECT_TRUE(socket.SetRecvBufferSize(20000));
    EXPECT_EQ(IntOption(descriptor, SOL_SOCKET, SO_RCVBUF), socket.GetRecvBufferSize());
    EXPECT_EQ(40000, socket.GetRecvBufferSize());
    EXPECT_TRUE(socket.SetSendBufferSize(30000));
    EXPECT_EQ(60000, socket.GetSendBufferSize());
    EXPECT_TRUE(socket.SetTos(0x10));
    EXPECT_EQ(0x10, socket.GetTos());

    EXPECT_TRUE(socket.SetAsNoLinger());
    linger option{};
    socklen_t size = sizeof option;
    getsockopt(descriptor, SOL_SOCKET, SO_LINGER, &option, &size);
    EXPECT_EQ(1, option.l_onoff);
    EXPECT_EQ(0, option.l_linger);
}

TEST(HSocketOptions, FailOnAClosedSocket)
{
    HSocket socket;
    EXPECT_EQ(0, socket.SetAsBroadcasting());
    EXPECT_EQ(0, socket.SetAsKeepAlive());
    EXPECT_EQ(0, socket.SetAsNoLinger());
    EXPECT_EQ(0, socket.DisableNagle(1));
    EXPECT_EQ(0, socket.SetRecvBufferSize(1));
    EXPECT_EQ(0, socket.GetRecvBufferSize());
    EXPECT_EQ(0, socket.GetSendBufferSize());
    EXPECT_EQ(0, socket.SetTos(0));
    EXPECT_EQ(0u, socket.GetRemoteIP());
    EXPECT_EQ(0, socket.GetRemotePort());
    EXPECT_EQ(0u, socket.GetLocalIP());
    EXPECT_EQ(0, socket.GetLocalPort());
}

TEST(HSocketOptions, TellBothEndsOfAConnection)
{
    tsTcpPair pair;
    EXPECT_EQ(inet_addr("127.0.0.1"), pair.mClient.GetRemoteIP());
    EXPECT_EQ(pair.mListener.GetLocalPort(), pair.mClient.GetRemotePort());
    EXPECT_EQ(inet_addr("127.0.0.1"), pair.mServer.GetLocalIP());
    EXPECT_EQ(pair.mClient.GetLocalPort(), pair.mServer.GetRemotePort());
}

TEST(HSocketOptions, ResolveNamesIntoOneBuffer)
{
    const char* first = HSocket::GetIPAddrByName("localhost");
    EXPECT_STREQ("127.0.0.1", first);
    EXPECT_EQ(first, HSocket::GetIPAddrByName("10.20.30.40"));
    EXPECT_STREQ("10.20.30.40", first);
    EXPECT_EQ(nullptr, HSocket::GetIPAddrByName("no such host"));
    EXPECT_EQ(nullptr, HSocket::GetIPAddrByName(nullptr));
}

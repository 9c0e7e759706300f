#include "socket_support.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

// How many of the next calls of recv() that do not block find what was announced gone again.
static std::atomic<int> gnVanished{0};

// Stands in front of the system's own for the whole program.
extern "C" VX_EXPORT ssize_t recv(int descriptor, void* buffer, size_t size, int flags)
{
    static const auto real = reinterpret_cast<decltype(&recv)>(dlsym(RTLD_NEXT, "recv"));
    if (gnVanished <= 0 || (flags & MSG_DONTWAIT) == 0)
        return real(descriptor, buffer, size, flags);
    --gnVanished;
    errno = EAGAIN;
    return -1;
}

// Puts a foreign descriptor (a pipe's) into a socket object.
static void Adopt(HSocket& socket, int descriptor)
{
    socket.Create(0, SOCK_STREAM, nullptr);
    ASSERT_EQ(socket.GetFD(), dup3(descriptor, socket.GetFD(), O_CLOEXEC));
    close(descriptor);
}

struct tsPipe {
    tsPipe()
    {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        Adopt(mReader, ends[0]);
        Adopt(mWriter, ends[1]);
    }

    HSocket mReader, mWriter;
};

TEST(HSocketReceive, TimesOutOnASilentSocket)
{
    tsTcpPair pair;
    char buffer[16];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-2, pair.mClient.Receive(buffer, sizeof buffer, 100, 0));
    EXPECT_GE(ElapsedMs(start), 99);
    EXPECT_LT(ElapsedMs(start), Within(5000));
}

TEST(HSocketReceive, GivesWhatIsThere)
{
    tsTcpPair pair;
    EXPECT_EQ(5, pair.mClient.Send("hello", 5));
    char buffer[16] = {};
    EXPECT_EQ(5, pair.mServer.Receive(buffer, sizeof buffer, 5000, MSG_PEEK));
    EXPECT_EQ(5, pair.mServer.Receive(buffer, sizeof buffer, 0, 0));
    EXPECT_STREQ("hello", buffer);
}

TEST(HSocketReceive, WaitsForAllWhenAsked)
{
    tsTcpPair pair;
    pair.mClient.Send("ab", 2);
    std::thread sender([&] { pair.mClient.Send("cd", 2); });
    char buffer[5] = {};
    EXPECT_EQ(4, pair.mServer.Receive(buffer, 4, 5000, MSG_WAITALL));
    EXPECT_STREQ("abcd", buffer);
    sender.join();
}

TEST(HSocketReceive, TellsClosedPeersAndErrors)
{
    tsTcpPair pair;
    pair.mClient.Close();
    char buffer[16];
    EXPECT_EQ(0, pair.mServer.Receive(buffer, sizeof buffer, 5000, 0));
    EXPECT_EQ(0, pair.mServer.Receive(buffer, sizeof buffer, 0, 0));
    pair.mServer.Close();
    EXPECT_EQ(-1, pair.mServer.Receive(buffer, sizeof buffer, 0, 0));
    EXPECT_EQ(-1, pair.mServer.Receive(buffer, sizeof buffer, 100, 0));
}

TEST(HSocketReceive, WaitsOnWhenWhatWasAnnouncedIsGone)
{
    tsTcpPair pair;
    pair.mClient.Send("x", 1);
    gnVanished = 3;
    char buffer[4];
    EXPECT_EQ(1, pair.mServer.Receive(buffer, sizeof buffer, 5000));
    EXPECT_EQ(0, gnVanished);
}

TEST(HSocketReceive, ReadsPipesWithoutATimeout)
{
    tsPipe ends;
    char buffer[16] = {};
    EXPECT_EQ(3, ends.mWriter.Send("abc", 3));
    EXPECT_EQ(3, ends.mReader.Receive(buffer, sizeof buffer, 0, 0));
    EXPECT_STREQ("abc", buffer);
}

TEST(HSocketReceive, FailsOnPipesWithATimeoutOrWhenPeeking)
{
    tsPipe ends;
    char buffer[16];
    ends.mWriter.Send("abc", 3);
    EXPECT_EQ(-1, ends.mReader.Receive(buffer, sizeof buffer, 100, 0));
    EXPECT_EQ(-1, ends.mReader.Receive(buffer, sizeof buffer, 0, MSG_PEEK));
    EXPECT_EQ(3, ends.mReader.Receive(buffer, sizeof buffer, 0, 0));
}

TEST(HSocketReceive, KeepsItsTimeoutWhenSignalsArrive)
{
    tsTcpPair pair;
    const tcInterruptions signals(pthread_self(), 1000000);
    char buffer[4];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-2, pair.mClient.Receive(buffer, sizeof buffer, 100, 0));
    EXPECT_GE(ElapsedMs(start), 99);
    EXPECT_LT(ElapsedMs(start), Within(5000));
    EXPECT_GT(tcInterruptions::snSeen, 0);
}

TEST(HSocketReceive, CountsTheTimeBeforeASignal)
{
    tsTcpPair pair;
    const pthread_t receiver = pthread_self();
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<bool> ended{false};
    std::thread sender([&] { // for 50 s, each time late in a wait that would begin anew
        for (int i = 0; i < 200 && !ended; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(250));
            pthread_kill(receiver, SIGUSR1);
        }
    });
    char buffer[4];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-2, pair.mClient.Receive(buffer, sizeof buffer, 300, 0));
    EXPECT_GE(ElapsedMs(start), 299);
    EXPECT_LT(ElapsedMs(start), Within(5000));
    ended = true;
    sender.join();
}

TEST(HSocketSend, SendsAStringWithoutItsTerminator)
{
    tsTcpPair pair;
    EXPECT_EQ(4, pair.mClient.Send("text", -1));
    EXPECT_EQ(3, pair.mClient.SendAll("end", -1));
    pair.mClient.Close();
    char buffer[16] = {};
    EXPECT_EQ(7, pair.mServer.Receive(buffer, sizeof buffer, 5000, MSG_WAITALL));
    EXPECT_STREQ("textend", buffer);
}

TEST(HSocketSend, ToAVanishedPeerFailsWithoutASignal)
{
    tsTcpPair pair;
    pair.mServer.SetAsNoLinger();
    pair.mServer.Close();
    char buffer[4];
    EXPECT_EQ(-1, pair.mClient.Receive(buffer, sizeof buffer, 5000, 0)); // the reset has arrived
    EXPECT_EQ(-1, pair.mClient.Send("x", 1));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(-1, pair.mClient.SendAll("x", 1));

    tsPipe ends;
    ends.mReader.Close();
    EXPECT_EQ(-1, ends.mWriter.Send("x", 1));
    EXPECT_EQ(EPIPE, errno);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
}

TEST(HSocketSend, OnAClosedSocketFails)
{
    HSocket socket;
    EXPECT_EQ(-1, socket.Send("x", 1));
    EXPECT_EQ(-1, socket.SendAll("x", 1));
    EXPECT_EQ(0, socket.SendAll("", 0));
}

TEST(HSocketSend, AllOfALargeBlockArrives)
{
    tsTcpPair pair;
    pair.mClient.SetSendBufferSize(4096);
    std::string block(400000, '\0');
    for (size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>(i * 7 >> 3);
    std::string received;
    std::thread receiver([&] {
        std::vector<char> buffer(65536);
        int bytes;
        while ((bytes = pair.mServer.Receive(buffer.data(), 65536, 5000, 0)) > 0)
            received.append(buffer.data(), bytes);
    });
    EXPECT_EQ(400000, pair.mClient.SendAll(block.data(), 400000));
    pair.mClient.Close();
    receiver.join();
    EXPECT_TRUE(received == block);
}

TEST(HSocketSend, AllWithinATimeArrivesAtAReaderThatIsSlow)
{
    tsTcpPair pair;
    pair.mClient.SetSendBufferSize(4096);
    const std::string block(400000, 'b');
    size_t received = 0;
    std::thread receiver([&] {
        char buffer[1000];
        int bytes;
        while ((bytes = pair.mServer.Receive(buffer, sizeof buffer, 5000, 0)) > 0)
            received += static_cast<size_t>(bytes);
    });
    EXPECT_EQ(400000, pair.mClient.SendAll(block.data(), 400000, 60000));
    EXPECT_EQ(3, pair.mClient.SendAll("end", -1, 60000));
    EXPECT_EQ(0, pair.mClient.SendAll("", 0, 60000));
    pair.mClient.Close();
    receiver.join();
    EXPECT_EQ(400003u, received);
}

TEST(HSocketSend, AllWithinATimeGivesUpOnAReaderThatDoesNotRead)
{
    tsTcpPair pair;
    const std::string block(64 << 20, 'b');
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, pair.mClient.SendAll(block.data(), 64 << 20, 200));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(ElapsedMs(start), 199);
    EXPECT_LT(ElapsedMs(start), Within(5000));
}

TEST(HSocketSend, AllWithinATimeDoesNotWaitLongerForAReaderThatTakesLittle)
{
    tsTcpPair pair;
    const std::string block(64 << 20, 'b');
    std::atomic<bool> stop{false};
    std::thread receiver([&] {
        std::vector<char> buffer(65536);
        while (!stop) {
            pair.mServer.Receive(buffer.data(), 65536, 10, 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // a minute for all
        }
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(-1, pair.mClient.SendAll(block.data(), 64 << 20, 200));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_LT(ElapsedMs(start), Within(5000));
    stop = true;
    receiver.join();
}

TEST(HSocketSend, AllWithinATimeWorksOnPipesAndFailsOnWhatIsClosed)
{
    tsPipe ends;
    char buffer[4] = {};
    EXPECT_EQ(3, ends.mWriter.SendAll("abc", 3, 5000));
    EXPECT_EQ(3, ends.mReader.Receive(buffer, 3));
    EXPECT_STREQ("abc", buffer);
    const std::string block(1 << 20, 'b');
    EXPECT_EQ(-1, ends.mWriter.SendAll(block.data(), 1 << 20, 50)); // more than a pipe holds
    EXPECT_EQ(ETIMEDOUT, errno);

    ends.mReader.Close();
    EXPECT_EQ(-1, ends.mWriter.SendAll("x", 1, 5000));
    EXPECT_EQ(EPIPE, errno);
    HSocket closed;
    EXPECT_EQ(-1, closed.SendAll("x", 1, 5000));
    EXPECT_EQ(EBADF, errno);
}

TEST(HSocketDatagrams, TravelWithTheirSendersAddress)
{
    HSocket sender, receiver;
    sender.Create(0, SOCK_DGRAM, "127.0.0.1");
    receiver.Create(0, SOCK_DGRAM, "127.0.0.1");
    const HInetAddr to("127.0.0.1", receiver.GetLocalPort());
    HInetAddr from;
    char buffer[8];

    EXPECT_EQ(-2, receiver.ReceiveFrom(buffer, sizeof buffer, from, 20));
    EXPECT_EQ(3, sender.SendTo("abc", 3, to));
    EXPECT_EQ(3, receiver.ReceiveFrom(buffer, sizeof buffer, from, 5000));
    EXPECT_EQ(sender.GetLocalPort(), from.GetPort());
    EXPECT_STREQ("127.0.0.1", from.GetIPAddr());

    EXPECT_EQ(2, sender.SendTo("de", 2, to));
    from = HInetAddr();
    EXPECT_EQ(2, receiver.ReceiveFrom(buffer, sizeof buffer, 0, from));
    EXPECT_EQ(sender.GetLocalPort(), from.GetPort());
    EXPECT_EQ(0, sender.SendTo("", 0, to));
    EXPECT_EQ(0, receiver.ReceiveFrom(buffer, sizeof buffer, from, 0));
}

TEST(HSocketDatagrams, TravelBetweenUnixSockets)
{
    const std::string base = testing::TempDir() + "dgram" + std::to_string(getpid());
    const std::string own = base + "a", other = base + "b";
    HSocket sender, receiver;
    ASSERT_TRUE(sender.CreateUnix(own.c_str(), SOCK_DGRAM, true));
    ASSERT_TRUE(receiver.CreateUnix(other.c_str(), SOCK_DGRAM, true));
    EXPECT_EQ(3, sender.SendTo("abc", 3, HUnixAddr(other.c_str())));
    char buffer[8];
    HUnixAddr from;
    EXPECT_EQ(3, receiver.ReceiveFrom(buffer, sizeof buffer, 0, from));
    EXPECT_EQ(own, from.GetPath());
    unlink(own.c_str());
    unlink(other.c_str());
}

// Helpers of the debug services' tests, which run with DBGD_DISABLE set; servers are started on
// loopback by the tests that want one.
#ifndef DEBUG_SUPPORT_H
#define DEBUG_SUPPORT_H

#include "counts.h"
#include "log_support.h"
#include "tcDbgd.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using tcClock = std::chrono::steady_clock;

inline int ElapsedMs(tcClock::time_point start)
{
    using namespace std::chrono;
    return static_cast<int>(duration_cast<milliseconds>(tcClock::now() - start).count());
}

// Waits for a condition that only has to come at all, 30 s at most in a plain build.
inline bool Eventually(const std::function<bool()>& condition, int deadlineMs = Within(30000))
{
    const auto start = tcClock::now();
    while (!condition()) {
        if (ElapsedMs(start) > deadlineMs) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

inline sockaddr_in Address(const char* host, unsigned short port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(host);
    address.sin_port = htons(port);
    return address;
}

inline const sockaddr* Plain(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

inline unsigned short LocalPort(int descriptor)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// A socket bound to loopback, on a port of the system's choice unless one is given.
class tcBound
{
public:
    explicit tcBound(int type, unsigned short port = 0)
        : mhDescriptor(socket(AF_INET, type | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in address = Address("127.0.0.1", port);
        mbBound = bind(mhDescriptor, Plain(address), sizeof address) == 0;
        const timeval limit{Within(10), 0};
        setsockopt(mhDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~tcBound() { Close(); }
    tcBound(const tcBound&) = delete;
    tcBound& operator=(const tcBound&) = delete;

    void Listen() { EXPECT_EQ(0, listen(mhDescriptor, 5)); }
    void Close()
    {
        if (mhDescriptor >= 0) close(mhDescriptor);
        mhDescriptor = -1;
    }
    bool IsBound() const { return mbBound; }
    unsigned short Port() const { return LocalPort(mhDescriptor); }

    // The next datagram, all its bytes.
    std::string Receive()
    {
        char data[2048];
        const auto size = recv(mhDescriptor, data, sizeof data, 0);
        return size < 0 ? "nothing received" : std::string(data, static_cast<size_t>(size));
    }
    bool HasReceived() const
    {
        char byte;
        return recv(mhDescriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;
    }

private:
    int mhDescriptor;
    bool mbBound;
};

// A free port that the system gives to nobody by itself, from `first` on, in an order that differs
// between processes.
inline unsigned short FreePort(unsigned first, unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        const auto port = static_cast<unsigned short>(first + (getpid() * 7u + i) % count);
        if (tcBound(SOCK_STREAM, port).IsBound()) return port;
    }
    return 0;
}

// Below and above 32767, where a signed number ends.
inline unsigned short FreePort()
{
    return FreePort(20000, 12000);
}
inline unsigned short FreeHighPort()
{
    return FreePort(61000, 4500);
}

// A connection to a server on loopback.
class tcClient
{
public:
    // With a receive buffer of so many bytes; 0: as the system has it.
    explicit tcClient(unsigned short port, const char* from = "127.0.0.1",
                      const char* to = "127.0.0.1", int buffer = 0)
        : mhDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const sockaddr_in local = Address(from, 0), remote = Address(to, port);
        if (buffer != 0) setsockopt(mhDescriptor, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
        EXPECT_EQ(0, bind(mhDescriptor, Plain(local), sizeof local));
        mbConnected = connect(mhDescriptor, Plain(remote), sizeof remote) == 0;
    }
    ~tcClient() { Close(); }
    tcClient(const tcClient&) = delete;
    tcClient& operator=(const tcClient&) = delete;

    bool IsConnected() const { return mbConnected; }

    // Whether the server took no notice of the first attempt to connect.
    bool HadToTryAgain() const
    {
        tcp_info info{};
        socklen_t size = sizeof info;
        EXPECT_EQ(0, getsockopt(mhDescriptor, IPPROTO_TCP, TCP_INFO, &info, &size));
        return info.tcpi_total_retrans != 0;
    }
    void Close()
    {
        if (mhDescriptor >= 0) close(mhDescriptor);
        mhDescriptor = -1;
    }
    // Ends both directions, under a thread that reads, too.
    void Abandon() { shutdown(mhDescriptor, SHUT_RDWR); }
    void Send(const std::string& text)
    {
        size_t done = 0;
        while (done < text.size()) {
            const auto sent =
                send(mhDescriptor, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (sent <= 0) return;
            done += static_cast<size_t>(sent);
        }
    }

    // Sends byte after byte. True when the server does not take them any more within the time.
    bool IsCutWhileItSends(int withinMs)
    {
        const auto start = tcClock::now();
        while (send(mhDescriptor, "x", 1, MSG_NOSIGNAL) == 1) {
            if (ElapsedMs(start) > withinMs) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return true;
    }

    // True when something, or the end, can be read within the time.
    bool HasAnswer(int withinMs)
    {
        const timeval limit{withinMs / 1000, withinMs % 1000 * 1000};
        setsockopt(mhDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        char byte;
        return recv(mhDescriptor, &byte, 1, MSG_PEEK) >= 0;
    }

    // How many bytes come until the server closes, read in pieces with pauses between them.
    size_t ReadSlowly(size_t piece, int pauseMs)
    {
        std::string data(piece, '\0');
        size_t all = 0;
        for (;;) {
            const auto size = recv(mhDescriptor, data.data(), data.size(), MSG_WAITALL);
            if (size <= 0) return all;
            all += static_cast<size_t>(size);
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        }
    }

    // All bytes until the server closes; "(...)" is appended when it does not, or resets.
    std::string ReadAll(int withinMs = Within(20000))
    {
        const timeval limit{withinMs / 1000, withinMs % 1000 * 1000};
        setsockopt(mhDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        std::string text;
        char data[4096];
        for (;;) {
            const auto size = recv(mhDescriptor, data, sizeof data, 0);
            if (size == 0) return text;
            if (size < 0) return text + (errno == EAGAIN ? "(not closed)" : "(reset)");
            text.append(data, static_cast<size_t>(size));
        }
    }

private:
    int mhDescriptor;
    bool mbConnected;
};

inline std::string Ask(unsigned short port, const std::string& request,
                       const char* from = "127.0.0.1", const char* to = "127.0.0.1")
{
    tcClient client(port, from, to);
    if (!client.IsConnected()) return "(not connected)";
    client.Send(request);
    return client.ReadAll();
}

inline long ResidentKiB()
{
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Has the process open so many files at a time.
inline void AllowDescriptors(rlim_t count)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= count) return;
    limit.rlim_cur = std::min(count, limit.rlim_max);
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_EQ(count, limit.rlim_cur);
}

// Something that is never destroyed, because the daemon's threads may use it until the end.
template <typename tObject>
tObject* Keep(tObject* object)
{
    static auto& objects = *new std::vector<tObject*>;
    objects.push_back(object);
    return object;
}

// The daemon's own records of up to a level.
class tcDaemonRecords : public tcQuietErrors
{
public:
    explicit tcDaemonRecords(int level) : mKept(*Keep(new tcKept))
    {
        tcDbgd::GetLog().InitFromEnvironment(); // now without console
        tcDbgd::GetLog().SetConsumer(&mKept);
        tcDbgd::GetLog().setDbgLevel(level);
    }

    // What came since the last call.
    std::vector<tcLogEvent> Events()
    {
        const std::lock_guard<std::mutex> guard(mKept.mLock);
        return std::exchange(mKept.maEvents, {});
    }

    // The same as texts, with the levels of debug records in front: "1 text", "ERR text".
    std::vector<std::string> Texts()
    {
        std::vector<std::string> texts;
        for (const tcLogEvent& event : Events()) {
            const bool isError = event.type == tcLogEvent::eError;
            texts.push_back((isError ? "ERR" : std::to_string(event.level)) + " " + event.message);
        }
        return texts;
    }

    // Whether a text was among them so far.
    bool Has(const std::string& text)
    {
        for (std::string& one : Texts())
            maSeen.push_back(std::move(one));
        return std::find(maSeen.begin(), maSeen.end(), text) != maSeen.end();
    }

private:
    struct tcKept : tcLogConsumer {
        void Output(tcLogEvent const& event) override
        {
            const std::lock_guard<std::mutex> guard(mLock);
            maEvents.push_back(event);
        }
        char const* TypeName() const override { return "KEPT"; }

        std::mutex mLock;
        std::vector<tcLogEvent> maEvents;
    };

    tcKept& mKept;
    std::vector<std::string> maSeen;
};

// A running daemon on loopback, whose announcements come to the test.
class Daemon : public ::testing::Test
{
protected:
    Daemon() : mAnnouncements(SOCK_DGRAM), mpDaemon(tcDbgd::getItem())
    {
        setenv("DBGD_PORTNUM", "0", 1);
        setenv("DBGD_BIND", "127.0.0.1", 1);
        const std::string group = "127.0.0.1:" + std::to_string(mAnnouncements.Port());
        setenv("DBGD_ANNOUCE_GROUP", group.c_str(), 1);
        unsetenv("DBGD_DISABLE");
    }
    ~Daemon() override { Stop(); }

    void Start()
    {
        mpDaemon->StartServer();
        EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() != 0; }));
        mnPort = mpDaemon->GetPort();
    }

    void Stop()
    {
        mpDaemon->StopServer();
        EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() == 0; }));
    }

    std::string Ask(const std::string& request) { return ::Ask(mnPort, request); }

    tcDaemonRecords mLog{0};
    tcBound mAnnouncements;
    tcDbgd* mpDaemon;
    unsigned short mnPort = 0;
};

#endif

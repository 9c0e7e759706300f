// The debug services of the test's own process, for vxcam to look into.
#ifndef SERVICE_SUPPORT_H
#define SERVICE_SUPPORT_H

#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

// A UDP socket on loopback, or on another address of this host.
class tcUdpPort
{
public:
    explicit tcUdpPort(const char* address = "127.0.0.1")
        : mhSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in own = Place(0, ntohl(::inet_addr(address)));
        socklen_t size = sizeof own;
        (void)::bind(mhSocket, reinterpret_cast<const sockaddr*>(&own), size);
        ::getsockname(mhSocket, reinterpret_cast<sockaddr*>(&own), &size);
        mnPort = ntohs(own.sin_port);
    }
    ~tcUdpPort() { ::close(mhSocket); }
    tcUdpPort(const tcUdpPort&) = delete;
    tcUdpPort& operator=(const tcUdpPort&) = delete;

    uint16_t Port() const { return mnPort; }
    int Handle() const { return mhSocket; }
    void Send(uint16_t port, const std::string& bytes, uint32_t address = INADDR_LOOPBACK) const
    {
        const sockaddr_in there = Place(port, address);
        ::sendto(mhSocket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&there),
                 sizeof there);
    }

private:
    static sockaddr_in Place(uint16_t port, uint32_t address)
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(address);
        place.sin_port = htons(port);
        return place;
    }

    int mhSocket;
    uint16_t mnPort = 0;
};

// A port of TCP that nobody has at this moment; not one that the system hands out by itself.
inline uint16_t FreeTcpPort()
{
    for (unsigned i = 0; i < 12000; ++i) {
        const auto port = static_cast<uint16_t>(20000 + (::getpid() * 7u + i) % 12000);
        const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        own.sin_port = htons(port);
        const bool isFree = ::bind(probe, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
        ::close(probe);
        if (isFree) return port;
    }
    return 0;
}

// The debug daemon of this process on loopback.
class Services : public testing::Test
{
protected:
    Services()
    {
        ::setenv("DBGD_PORTNUM", "0", 1);
        ::setenv("DBGD_BIND", "127.0.0.1", 1);
        ::setenv("DBGD_ANNOUCE_GROUP",
                 ("127.0.0.1:" + std::to_string(mtAnnouncements.Port())).c_str(), 1);
        ::setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        ::unsetenv("DBGD_DISABLE");
        tcDbgd::getItem()->StartServer();
        EXPECT_TRUE(WaitUntil([] { return tcDbgd::getItem()->GetPort() != 0; }));
        msTarget = "127.0.0.1:" + std::to_string(tcDbgd::getItem()->GetPort());
    }
    ~Services() override
    {
        tcDbgd::getItem()->StopServer();
        EXPECT_TRUE(WaitUntil([] { return tcDbgd::getItem()->GetPort() == 0; }));
    }

    tcUdpPort mtAnnouncements;
    std::string msTarget;
};

// What a run prints that ends well.
inline std::string Printed(const std::vector<std::string>& arguments)
{
    tcRun::tsHow how;
    how.environment = {{"DBGD_DISABLE", "1"}};
    tcRun run(arguments, how);
    EXPECT_EQ(run.Exit(), 0) << testing::PrintToString(arguments);
    EXPECT_EQ(run.Errors(), "") << testing::PrintToString(arguments);
    return run.Output();
}

// A run that ends with the code and one line about it.
inline void ExpectFailure(const std::vector<std::string>& arguments, int code,
                          const std::string& text)
{
    tcRun::tsHow how;
    how.environment = {{"DBGD_DISABLE", "1"}};
    tcRun run(arguments, how);
    EXPECT_EQ(run.Exit(), code) << testing::PrintToString(arguments);
    EXPECT_THAT(run.Errors(), testing::StartsWith("vxcam: "));
    EXPECT_THAT(run.Errors(), testing::HasSubstr(text)) << testing::PrintToString(arguments);
    EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
}

// A value that the process puts back is refused where it does so within a tenth of a second, for
// which a busy machine does not always leave it the time.
inline void ExpectPutBack(const std::vector<std::string>& arguments, const std::string& text)
{
    std::string errors;
    const auto isRefused = [&] {
        tcRun run(arguments);
        const int code = run.Exit();
        errors = run.Errors();
        return code == 4;
    };
    EXPECT_TRUE(WaitUntil(isRefused, gnRunPatience)) << testing::PrintToString(arguments);
    EXPECT_THAT(errors, testing::HasSubstr(text));
}

// A service on loopback that gives each of its clients a fixed answer and closes, or with none
// keeps silent. Counts requests.
class tcFixedService
{
public:
    explicit tcFixedService(std::string answer, bool closes = true)
        : msAnswer(std::move(answer)), mbCloses(closes)
    {
        mhSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in own{};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof own;
        (void)::bind(mhSocket, reinterpret_cast<const sockaddr*>(&own), size);
        ::getsockname(mhSocket, reinterpret_cast<sockaddr*>(&own), &size);
        ::listen(mhSocket, 10);
        msTarget = "127.0.0.1:" + std::to_string(ntohs(own.sin_port));
        mThread = std::thread([this] { Serve(); });
    }
    ~tcFixedService()
    {
        ::shutdown(mhSocket, SHUT_RDWR);
        mThread.join();
        ::close(mhSocket);
        for (int client : maClients) {
            ::close(client);
        }
    }
    tcFixedService(const tcFixedService&) = delete;
    tcFixedService& operator=(const tcFixedService&) = delete;

    const std::string& Target() const { return msTarget; }

private:
    void Serve()
    {
        for (int client; (client = ::accept4(mhSocket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            char request[1024];
            const timeval limit{5, 0};
            ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
            if (::recv(client, request, sizeof request, 0) > 0)
                ::send(client, msAnswer.data(), msAnswer.size(), MSG_NOSIGNAL);
            if (mbCloses)
                ::close(client);
            else
                maClients.push_back(client);
        }
    }

    const std::string msAnswer;
    const bool mbCloses;
    std::string msTarget;
    int mhSocket = -1;
    std::vector<int> maClients;
    std::thread mThread;
};

#endif

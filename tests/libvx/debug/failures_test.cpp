// What the debug services do when the system refuses, and where they send without being told.
// The functions below stand in front of the system's own for the whole program.
#include "debug_support.h"
#include "tcDbgItem.h"

#include <dirent.h>
#include <dlfcn.h>

#include <atomic>

namespace {

using std::string_literals::operator""s;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::internal::CaptureStderr;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStderr;
using ::testing::internal::GetCapturedStdout;

// Errors that the next calls fail with; 0: they succeed.
std::atomic<int> gnSocketError{0}, gnListenError{0}, gnAcceptError{0}, gnFolderError{0};

// What the last listen() asked for.
std::atomic<int> gnBacklog{-1};

// Where datagrams would have gone, while they are held back.
std::atomic<bool> gbHoldDatagrams{false};
std::mutex ghDatagrams;
std::vector<std::pair<std::string, std::string>> gaDatagrams;

template <typename tFunction>
tFunction* Real(tFunction*, const char* name)
{
    return reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, name));
}

bool Fails(const std::atomic<int>& error)
{
    if (error == 0) return false;
    errno = error;
    return true;
}

} // namespace

extern "C" VX_EXPORT int socket(int domain, int type, int protocol) noexcept
{
    static const auto real = Real(&socket, "socket");
    return Fails(gnSocketError) ? -1 : real(domain, type, protocol);
}

extern "C" VX_EXPORT int listen(int descriptor, int backlog) noexcept
{
    static const auto real = Real(&listen, "listen");
    gnBacklog = backlog;
    return Fails(gnListenError) ? -1 : real(descriptor, backlog);
}

extern "C" VX_EXPORT dirent* readdir(DIR* folder)
{
    static const auto real = Real(&readdir, "readdir");
    return Fails(gnFolderError) ? nullptr : real(folder);
}

extern "C" VX_EXPORT int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags)
{
    static const auto real = Real(&accept4, "accept4");
    return Fails(gnAcceptError) ? -1 : real(descriptor, address, size, flags);
}

extern "C" VX_EXPORT ssize_t sendto(int descriptor, const void* data, size_t size, int flags,
                                    const sockaddr* address, socklen_t length)
{
    static const auto real = Real(&sendto, "sendto");
    if (!gbHoldDatagrams) return real(descriptor, data, size, flags, address, length);
    const auto* to = reinterpret_cast<const sockaddr_in*>(address);
    const std::lock_guard<std::mutex> guard(ghDatagrams);
    gaDatagrams.emplace_back(inet_ntoa(to->sin_addr) + ":"s + std::to_string(ntohs(to->sin_port)),
                             std::string(static_cast<const char*>(data), size));
    return static_cast<ssize_t>(size);
}

namespace {

class FailingItemServer : public ::testing::Test
{
protected:
    // Starts the server, which must end by itself; what it says on standard error.
    std::string Outcome()
    {
        setenv("DBGITEM_PORTNUM", std::to_string(mnPort).c_str(), 1);
        setenv("DBGITEM_BIND", "127.0.0.1", 1);
        const int threads = CountThreads();
        CaptureStderr();
        CaptureStdout();
        tcDbgItem::StartServer();
        if (gnAcceptError != 0) {
            EXPECT_TRUE(Eventually([this] { return tcClient(mnPort).IsConnected(); }));
        }
        EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
        GetCapturedStdout();
        EXPECT_FALSE(tcDbgItem::mhThreadId == 0u);
        return GetCapturedStderr();
    }

    const unsigned short mnPort = FreePort();
};

class AnnouncingDaemon : public Daemon
{
protected:
    AnnouncingDaemon()
    {
        gbHoldDatagrams = true;
        tcDbgd::snAnnounceInterval = 5;
        setenv("DBGD_PORTNUM", std::to_string(mnFixedPort).c_str(), 1);
    }

    std::pair<std::string, std::string> First()
    {
        const auto isSent = [] {
            const std::lock_guard<std::mutex> guard(ghDatagrams);
            return !gaDatagrams.empty();
        };
        EXPECT_TRUE(Eventually(isSent));
        const std::lock_guard<std::mutex> guard(ghDatagrams);
        const auto first = gaDatagrams.empty() ? std::make_pair(""s, ""s) : gaDatagrams.front();
        gaDatagrams.clear();
        return first;
    }

    void Restart(const char* group)
    {
        Stop();
        {
            const std::lock_guard<std::mutex> guard(ghDatagrams);
            gaDatagrams.clear();
        }
        if (group)
            setenv("DBGD_ANNOUCE_GROUP", group, 1);
        else
            unsetenv("DBGD_ANNOUCE_GROUP");
        Start();
    }

    const unsigned short mnFixedPort = FreePort();
};

} // namespace

TEST_F(FailingItemServer, ReportsThatItHasNoSocket)
{
    gnSocketError = EMFILE;
    const std::string output = Outcome();
    gnSocketError = 0;
    EXPECT_EQ("tcDbgItem::Server:Cannot create input socket\n: Too many open files\n", output);
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

TEST_F(FailingItemServer, ReportsThatItCannotListen)
{
    gnListenError = EOPNOTSUPP;
    const int descriptors = CountDescriptors();
    EXPECT_EQ("listen: Operation not supported\n", Outcome());
    EXPECT_EQ(1024, gnBacklog); // whoever finds no place waits there
    EXPECT_EQ(descriptors, CountDescriptors());
    gnListenError = 0;
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

TEST_F(FailingItemServer, EndsWhenItCannotAccept)
{
    gnAcceptError = EMFILE;
    const int descriptors = CountDescriptors();
    EXPECT_EQ("accept: Too many open files\n", Outcome());
    EXPECT_EQ(descriptors, CountDescriptors());
    gnAcceptError = 0;
    EXPECT_FALSE(tcClient(mnPort).IsConnected());
}

TEST_F(Daemon, EndsForGoodWhenItCannotListen)
{
    const int threads = CountThreads(), descriptors = CountDescriptors();
    gnListenError = EOPNOTSUPP;
    CaptureStderr();
    mpDaemon->StartServer();
    EXPECT_TRUE(mLog.Has("ERR tcDbgd::Server: unable to listen() on socket") || Eventually([this] {
                    return mLog.Has("ERR tcDbgd::Server: unable to listen() on socket");
                }));
    EXPECT_TRUE(Eventually([&] { return CountThreads() == threads; }));
    gnListenError = 0;
    EXPECT_EQ("s.Listen: Operation not supported\n", GetCapturedStderr());
    EXPECT_EQ(descriptors, CountDescriptors());
    EXPECT_EQ(0, mpDaemon->GetPort());
}

TEST_F(Daemon, WaitsForThePortWhenAnotherWasQuickerToListen)
{
    tcDbgd::snRetrySecond = 1;
    gnListenError = EADDRINUSE;
    mpDaemon->StartServer();
    EXPECT_TRUE(Eventually([this] {
        return mLog.Has("ERR tcDbgd::Server, Error creating socket on port 0 - retry in 3 s:Error "
                        "98:No Installed error decoder");
    }));
    gnListenError = 0;
    EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() != 0; }));
}

TEST_F(Daemon, RetriesWhenThereIsNoSocket)
{
    tcDbgd::snRetrySecond = 1;
    gnSocketError = EMFILE;
    mpDaemon->StartServer();
    EXPECT_TRUE(Eventually([this] {
        return mLog.Has("ERR tcDbgd::Server, Error creating socket on port 0 - retry in 2 s:Error "
                        "24:No Installed error decoder");
    }));
    gnSocketError = 0;
    EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() != 0; }));
}

TEST_F(Daemon, GoesOnAcceptingWhenDescriptorsWereShort)
{
    Start();
    gnAcceptError = EMFILE;
    tcClient client(mnPort);
    client.Send("ECHO:late");
    EXPECT_FALSE(client.HasAnswer(50));
    gnAcceptError = 0;
    EXPECT_EQ("late\n", client.ReadAll());
}

TEST(DbgdModules, FolderThatCannotBeReadToItsEndIsReported)
{
    setenv("DBGD_MODULE_PATH", "/tmp", 1);
    CaptureStderr();
    Keep(tcDbgd::getItem());
    gnFolderError = EIO;
    Keep(new tcDbgd);
    gnFolderError = 0;
    EXPECT_EQ("/tmp: Input/output error\n", GetCapturedStderr());
}

TEST_F(AnnouncingDaemon, AnnouncesToItsGroupWithAZeroByte)
{
    const std::string message = "DBGD DBGD " + std::to_string(mnFixedPort) + "\0"s;
    Restart("127.0.0.1:9");
    ASSERT_EQ(std::make_pair("127.0.0.1:9"s, message), First()) << "datagrams are not held back";
    Restart(nullptr);
    EXPECT_EQ(std::make_pair("239.192.100.100:7020"s, message), First());
    Restart("239.1.2.3:9000");
    EXPECT_EQ(std::make_pair("239.1.2.3:9000"s, message), First());
    Restart("239.1.2.4");
    EXPECT_EQ(std::make_pair("239.1.2.4:7020"s, message), First());
    Restart("");
    EXPECT_EQ(std::make_pair("239.192.100.100:7020"s, message), First());
}

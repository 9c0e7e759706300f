// A host that has closed its standard input, output or error: the library never uses their numbers.
#include "HSocket.h"
#include "tcConfigFile.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcLogConsumer.h"
#include "tcVXCamera_Ethernet.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

bool IsOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

bool StandardIsOpen()
{
    return IsOpen(0) && IsOpen(1) && IsOpen(2);
}

// What the system's functions that open something for a moment found, and what is done meanwhile.
std::atomic<int> snCalls{0}, snCallsWithStandardClosed{0};
std::function<void()> sMeanwhile;

void NoteCall()
{
    ++snCalls;
    if (!StandardIsOpen()) ++snCallsWithStandardClosed;
    if (sMeanwhile) sMeanwhile();
}

template <class Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Runs `work` in a child process that has closed 0, 1 and 2; they are closed behind it, too.
bool WithoutStandard(const std::function<bool()>& work)
{
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 3; ++i)
            close(i);
        const bool isWell = work();
        _exit(isWell && !IsOpen(0) && !IsOpen(1) && !IsOpen(2) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

// The same for what opens something only for a moment.
bool OpensNothingBelow3(const std::function<void()>& work)
{
    return WithoutStandard([&] {
        snCalls = 0;
        work();
        return snCalls > 0 && snCallsWithStandardClosed == 0;
    });
}

} // namespace

// These stand in front of the system's own for the whole program.
extern "C" VX_EXPORT FILE* fopen(const char* path, const char* mode)
{
    static const auto real = Real<FILE*(const char*, const char*)>("fopen");
    NoteCall();
    return real(path, mode);
}

extern "C" VX_EXPORT int getaddrinfo(const char* name, const char* service, const addrinfo* wanted,
                                     addrinfo** found)
{
    static const auto real =
        Real<int(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
    NoteCall();
    return real(name, service, wanted, found);
}

extern "C" VX_EXPORT int getifaddrs(ifaddrs** list) noexcept
{
    static const auto real = Real<int(ifaddrs**)>("getifaddrs");
    NoteCall();
    return real(list);
}

extern "C" VX_EXPORT DIR* opendir(const char* path)
{
    static const auto real = Real<DIR*(const char*)>("opendir");
    NoteCall();
    return real(path);
}

TEST(Descriptors, OfSocketsAreNeverTheStandardOnes)
{
    EXPECT_TRUE(WithoutStandard([] {
        HSocket listener, datagrams, client, accepted;
        listener.Create(0, SOCK_STREAM, "127.0.0.1");
        listener.Listen(5);
        datagrams.Create(0, SOCK_DGRAM, "127.0.0.1");
        client.Connect("127.0.0.1", listener.GetLocalPort());
        listener.Accept(&accepted, 5000);
        return listener.GetFD() >= 3 && datagrams.GetFD() >= 3 && client.GetFD() >= 3 &&
               accepted.GetFD() >= 3;
    }));
}

TEST(Descriptors, OfUnixSocketsAreNeverTheStandardOnes)
{
    const std::string path = testing::TempDir() + "vx" + std::to_string(getpid());
    EXPECT_TRUE(WithoutStandard([&] {
        HSocket listener, client;
        listener.CreateUnix(path.c_str(), SOCK_STREAM, true);
        listener.Listen(5);
        return listener.GetFD() >= 3 && client.Connect(path.c_str()) != 0 && client.GetFD() >= 3;
    }));
    unlink(path.c_str());
}

TEST(Descriptors, OfLogFilesAreNeverTheStandardOnes)
{
    const std::string path = testing::TempDir() + "vxlog" + std::to_string(getpid());
    EXPECT_TRUE(WithoutStandard([&] {
        const tcLogFile file(path.c_str());
        return access(path.c_str(), F_OK) == 0 && !IsOpen(0) && !IsOpen(1) && !IsOpen(2);
    }));
    unlink(path.c_str());
}

TEST(Descriptors, OfFilesReadOrWrittenAtOnceAreNeverTheStandardOnes)
{
    EXPECT_TRUE(OpensNothingBelow3([] { DumpErrorMsgs("/dev/null"); }));
    EXPECT_TRUE(OpensNothingBelow3([] { tcConfigFile("/dev/null"); }));
}

TEST(Descriptors, OfTheResolverAndOfTheListOfInterfacesAreNeverTheStandardOnes)
{
    EXPECT_TRUE(OpensNothingBelow3([] { HSocket::GetIPAddrByName("localhost"); }));
    EXPECT_TRUE(OpensNothingBelow3([] { HInetAddr("localhost", 1); }));
    EXPECT_TRUE(OpensNothingBelow3([] { enumNics(false); }));
}

TEST(Descriptors, OfTheFolderOfModulesAreNeverTheStandardOnes)
{
    EXPECT_TRUE(OpensNothingBelow3([] {
        tcDbgd::spLoadableModulePath = "/proc/self/fdinfo";
        tcDbgd(); // loads the modules
    }));
}

TEST(Descriptors, AreNeverTheStandardOnesWhicheverOfThemIsClosed)
{
    for (unsigned closed = 0; closed < 8; ++closed) {
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 3; ++i) {
                if ((closed >> i & 1) != 0) close(i);
            }
            HSocket socket;
            socket.Create(0, SOCK_STREAM, nullptr);
            bool isWell = socket.GetFD() >= 3;
            for (int i = 0; i < 3; ++i)
                isWell = isWell && IsOpen(i) == ((closed >> i & 1) == 0);
            _exit(isWell ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status) << closed;
    }
}

TEST(Descriptors, AreNeverTheStandardOnesWithManyThreads)
{
    EXPECT_TRUE(WithoutStandard([] {
        std::atomic<int> low{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&low] {
                for (int n = 0; n < 500; ++n) {
                    HSocket socket;
                    socket.Create(0, SOCK_STREAM, nullptr);
                    if (socket.GetFD() < 3) ++low;
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        return low == 0;
    }));
}

TEST(Descriptors, ThatTheHostOpensMeanwhileStayItsOwn)
{
    EXPECT_TRUE(WithoutStandard([] {
        const int file = fcntl(open("/dev/null", O_WRONLY | O_CLOEXEC), F_DUPFD_CLOEXEC, 20);
        close(0);
        sMeanwhile = [&] { dup2(file, 1); };
        HSocket::GetIPAddrByName("localhost");
        sMeanwhile = nullptr;
        const bool isThere = write(1, "x", 1) == 1;
        close(1);
        return isThere;
    }));
}

TEST(Descriptors, TakenForAMomentTakeNoOutputOfTheHost)
{
    EXPECT_TRUE(WithoutStandard([] {
        bool isRefused = false;
        sMeanwhile = [&] {
            char byte = 'x';
            isRefused = write(1, &byte, 1) == -1 && errno == EBADF && read(0, &byte, 1) == -1;
        };
        HSocket::GetIPAddrByName("localhost");
        return isRefused;
    }));
}

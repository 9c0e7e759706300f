// The host's standard output and error in every state: the library prints there, but never waits
// for long and never raises a signal, and it counts what it could not print. Each test is a host in
// a process of its own.
#include "log_support.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <functional>
#include <future>
#include <iostream>
#include <string>
#include <thread>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

using tcClock = std::chrono::steady_clock;

// What a call may take, which is a tenth of a second, and what a busy machine adds to that.
constexpr int nLimitMs = 1000;

int Ms(tcClock::time_point start)
{
    using namespace std::chrono;
    return static_cast<int>(duration_cast<milliseconds>(tcClock::now() - start).count());
}

// Waits for a child to end or stop; kills it after 20 s.
int StatusOf(pid_t child)
{
    int status = -1;
    for (int i = 0; i < 2000; ++i) {
        if (waitpid(child, &status, WNOHANG | WUNTRACED) == child) {
            if (WIFSTOPPED(status)) kill(child, SIGKILL);
            return status;
        }
        usleep(10000);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return status;
}

void ExpectSuccess(int status)
{
    EXPECT_FALSE(WIFSTOPPED(status)) << "stopped by signal " << WSTOPSIG(status);
    EXPECT_FALSE(WIFSIGNALED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Runs `host` in a process of its own, which succeeds when no expectation fails there.
void InAProcess(const std::function<void()>& host)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        unsetenv("TCLOG_SUPPRESS_ERR_CONSOLE");
        std::signal(SIGPIPE, SIG_DFL);
        host();
        std::fflush(stdout);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    ExpectSuccess(StatusOf(child));
}

// A connection: what is put into the place of one of the host's descriptors, and its other side.
struct tsConnection {
    int mhReader = -1, mhWriter = -1;

    // Puts the writer in the place of `descriptor`, of which a copy is returned.
    int TakePlaceOf(int descriptor)
    {
        const int before = fcntl(descriptor, F_DUPFD_CLOEXEC, 100);
        dup2(mhWriter, descriptor);
        close(mhWriter);
        mhWriter = descriptor;
        return before;
    }

    // All there is to read, once there is something.
    std::string Read() const
    {
        std::string text;
        pollfd ready{mhReader, POLLIN, 0};
        char piece[4096];
        for (int patience = 5000; poll(&ready, 1, patience) > 0; patience = 0) {
            const auto size = read(mhReader, piece, sizeof piece);
            if (size <= 0) break;
            text.append(piece, static_cast<size_t>(size));
        }
        return text;
    }

    // Makes it take nothing more.
    void Fill() const
    {
        const int flags = fcntl(mhWriter, F_GETFL);
        fcntl(mhWriter, F_SETFL, flags | O_NONBLOCK);
        for (const size_t size : {4096u, 1u}) {
            const std::string text(size, '-');
            while (write(mhWriter, text.data(), size) > 0) {
            }
        }
        fcntl(mhWriter, F_SETFL, flags);
    }
};

tsConnection Pipe()
{
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    return {ends[0], ends[1]};
}

tsConnection Sockets(int type)
{
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, type, 0, ends));
    return {ends[0], ends[1]};
}

// Logs errors in several threads; the longest call.
int LongestCall(tcLog& log, int threads, int records)
{
    std::atomic<int> longest{0};
    std::vector<std::thread> loggers;
    for (int i = 0; i < threads; ++i) {
        loggers.emplace_back([&] {
            for (int record = 0; record < records; ++record) {
                const auto start = tcClock::now();
                log.logError("text");
                int known = longest;
                while (known < Ms(start) && !longest.compare_exchange_weak(known, Ms(start))) {
                }
            }
        });
    }
    for (std::thread& logger : loggers)
        logger.join();
    return longest;
}

std::string LossOf(int texts)
{
    return "libvxcamiface: " + std::to_string(texts) + " texts not printed\n";
}

// A full connection on standard error: calls go on, what is left out is counted, and told when
// there is room again.
void ExpectThatAFullOneHoldsNobody(tsConnection connection)
{
    tcLog log("CAM", 1);
    connection.TakePlaceOf(STDERR_FILENO);
    connection.Fill();
    const auto start = tcClock::now();
    EXPECT_LT(LongestCall(log, 4, 50), nLimitMs);
    EXPECT_LT(Ms(start), 5 * nLimitMs);
    EXPECT_EQ(200u, tcLog::UnprintedTexts());
    connection.Read();
    log.logError("there is room again");
    const std::string text = connection.Read();
    EXPECT_THAT(text, StartsWith(LossOf(200)));
    EXPECT_THAT(text, EndsWith(":     CAM: ERR:there is room again\n"));
    log.logError("and more");
    EXPECT_THAT(connection.Read(), Not(HasSubstr("not printed")));
    EXPECT_EQ(200u, tcLog::UnprintedTexts());
}

// Nobody reads any more.
void ExpectThatABrokenOneRaisesNoSignal(tsConnection connection)
{
    tcLog log("CAM", 1);
    connection.TakePlaceOf(STDERR_FILENO);
    close(connection.mhReader);
    EXPECT_LT(LongestCall(log, 2, 10), nLimitMs);
    EXPECT_EQ(20u, tcLog::UnprintedTexts());
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
}

// Keeps whoever writes to it until it is let go.
class tcHoldingBuffer : public std::streambuf
{
public:
    void LetGo()
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        mbFree = true;
        mChanged.notify_all();
    }
    void WaitForAWriter()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mbTaken; });
    }
    std::string msText;

protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mbTaken = true;
        mChanged.notify_all();
        mChanged.wait(lock, [&] { return mbFree; });
        msText.append(text, static_cast<size_t>(size));
        return size;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mbTaken = false, mbFree = false;
};

} // namespace

TEST(HostStreams, AFullPipeHoldsNobody)
{
    InAProcess([] { ExpectThatAFullOneHoldsNobody(Pipe()); });
}

TEST(HostStreams, AFullPipeThatDoesNotBlockIsCounted)
{
    InAProcess([] {
        const tsConnection pipe = Pipe();
        fcntl(pipe.mhWriter, F_SETFL, O_NONBLOCK);
        ExpectThatAFullOneHoldsNobody(pipe);
        EXPECT_TRUE(std::cerr.good());
        EXPECT_EQ(0, std::ferror(stderr));
    });
}

TEST(HostStreams, AFullSocketHoldsNobody)
{
    InAProcess([] { ExpectThatAFullOneHoldsNobody(Sockets(SOCK_STREAM)); });
}

TEST(HostStreams, WithoutAReaderNoSignalIsRaised)
{
    InAProcess([] { ExpectThatABrokenOneRaisesNoSignal(Pipe()); });
    InAProcess([] { ExpectThatABrokenOneRaisesNoSignal(Sockets(SOCK_STREAM)); });
}

TEST(HostStreams, ASignalThatWasPendingStaysSo)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection pipe = Pipe();
        pipe.TakePlaceOf(STDERR_FILENO);
        close(pipe.mhReader);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        log.logError("text");
        sigpending(&set);
        EXPECT_EQ(0, sigismember(&set, SIGPIPE));
        pthread_kill(pthread_self(), SIGPIPE);
        log.logError("text");
        sigpending(&set);
        EXPECT_EQ(1, sigismember(&set, SIGPIPE));
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_EQ(1, sigismember(&mask, SIGPIPE));
        EXPECT_EQ(0, sigismember(&mask, SIGTTOU));
    });
}

TEST(HostStreams, AHostThatHoldsTheStreamHoldsNobodyElse)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection pipe = Pipe();
        pipe.TakePlaceOf(STDERR_FILENO);
        flockfile(stderr);
        EXPECT_LT(LongestCall(log, 2, 20), nLimitMs);
        EXPECT_EQ(40u, tcLog::UnprintedTexts());
        log.logError("from its own thread");
        EXPECT_THAT(pipe.Read(), EndsWith(":from its own thread\n"));
        funlockfile(stderr);
        LongestCall(log, 1, 1);
        EXPECT_THAT(pipe.Read(), EndsWith(":     CAM: ERR:text\n"));
        EXPECT_EQ(40u, tcLog::UnprintedTexts());
    });
}

TEST(HostStreams, EveryPrintOfTheLibraryCounts)
{
    InAProcess([] {
        tsConnection out = Pipe();
        const int before = out.TakePlaceOf(STDOUT_FILENO);
        out.Fill();
        const auto start = tcClock::now();
        SetLogLevel("nobody", 1);
        ListLogs();
        tcLog::FindLog("CAM")->logError("text");
        DumpErrorMsgs(nullptr);
        const int taken = Ms(start);
        dup2(before, STDOUT_FILENO);
        EXPECT_LT(taken, nLimitMs);
        EXPECT_EQ(3u, tcLog::UnprintedTexts());
    });
}

TEST(HostStreams, WhatTheHostHasPutInGoesFirst)
{
    for (const bool isSynchronised : {true, false}) {
        InAProcess([isSynchronised] {
            std::ios::sync_with_stdio(isSynchronised);
            tsConnection out = Pipe();
            const int before = out.TakePlaceOf(STDOUT_FILENO);
            static char room[4096];
            setvbuf(stdout, room, _IOFBF, sizeof room);
            std::cout << "the host, ";
            SetLogLevel("nobody", 1);
            std::cout << "the host" << std::endl;
            const std::string text = out.Read();
            dup2(before, STDOUT_FILENO);
            EXPECT_EQ("the host, !!! nobody doesn't point to a valid log anymore!\nthe host\n",
                      text);
        });
    }
}

TEST(HostStreams, WhatTheHostHasPutInIsNotLost)
{
    for (const bool isSynchronised : {true, false}) {
        InAProcess([isSynchronised] {
            std::ios::sync_with_stdio(isSynchronised);
            tsConnection out = Pipe();
            const int before = out.TakePlaceOf(STDOUT_FILENO);
            static char room[8192];
            setvbuf(stdout, room, _IOFBF, sizeof room);
            out.Fill();
            std::string part(4096, '-'); // room for a page, which is less than the host's text
            EXPECT_EQ(4096, read(out.mhReader, &part[0], part.size()));
            std::string own;
            for (int i = 0; i < 500; ++i) {
                const std::string word = "word " + std::to_string(1000 + i) + ",";
                own += word;
                std::cout << word;
            }
            SetLogLevel("nobody", 1);
            const unsigned long unprinted = tcLog::UnprintedTexts();
            std::string text = out.Read();
            std::cout << std::endl;
            text += out.Read();
            dup2(before, STDOUT_FILENO);
            EXPECT_EQ(1u, unprinted);
            EXPECT_THAT(text, EndsWith("-" + own + "\n"));
        });
    }
}

TEST(HostStreams, OutputIsFlushedBeforeErrorsArePrinted)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection both = Pipe();
        dup2(both.mhWriter, STDERR_FILENO);
        const int before = both.TakePlaceOf(STDOUT_FILENO);
        static char room[4096];
        setvbuf(stdout, room, _IOFBF, sizeof room);
        std::printf("the host\n");
        log.logError("text");
        const std::string text = both.Read();
        dup2(before, STDOUT_FILENO);
        EXPECT_THAT(text, StartsWith("the host\n"));
        EXPECT_THAT(text, EndsWith(":text\n"));
    });
}

TEST(HostStreams, UnsynchronisedOutputHoldsNobodyEither)
{
    InAProcess([] {
        std::ios::sync_with_stdio(false);
        ExpectThatAFullOneHoldsNobody(Pipe());
    });
    InAProcess([] {
        std::ios::sync_with_stdio(false);
        ExpectThatABrokenOneRaisesNoSignal(Pipe());
    });
}

TEST(HostStreams, AClosedOneIsCounted)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        close(STDERR_FILENO);
        log.logError("text");
        EXPECT_EQ(1u, tcLog::UnprintedTexts());
    });
}

TEST(HostStreams, AFileThatMayNotGrowRaisesNoSignal)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        FILE* const file = std::tmpfile();
        dup2(fileno(file), STDERR_FILENO);
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        log.logError("%s", std::string(120, 'x').c_str());
        EXPECT_EQ(1u, tcLog::UnprintedTexts());
        char name[] = "/tmp/host_streams_XXXXXX";
        close(mkstemp(name));
        tcLogFile own(name);
        log.SetConsumer(&own);
        log.logEvent("%s", std::string(120, 'x').c_str());
        unlink(name);
    });
}

TEST(HostStreams, AHeldTerminalHoldsNobody)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection terminal;
        ASSERT_EQ(0, openpty(&terminal.mhReader, &terminal.mhWriter, nullptr, nullptr, nullptr));
        terminal.TakePlaceOf(STDERR_FILENO);
        tcflow(STDERR_FILENO, TCOOFF);
        EXPECT_LT(LongestCall(log, 2, 20), nLimitMs);
        EXPECT_EQ(40u, tcLog::UnprintedTexts());
        tcflow(STDERR_FILENO, TCOON);
        log.logError("text");
        EXPECT_THAT(terminal.Read(), HasSubstr("CAM: ERR:text"));
    });
}

TEST(HostStreams, ATerminalDoesNotStopAProcessInTheBackground)
{
    InAProcess([] {
        tsConnection terminal;
        ASSERT_EQ(0, openpty(&terminal.mhReader, &terminal.mhWriter, nullptr, nullptr, nullptr));
        setsid();
        ASSERT_EQ(0, ioctl(terminal.mhWriter, TIOCSCTTY, 0));
        termios settings;
        tcgetattr(terminal.mhWriter, &settings);
        settings.c_lflag |= TOSTOP;
        tcsetattr(terminal.mhWriter, TCSANOW, &settings);
        const pid_t background = fork();
        if (background == 0) {
            setpgid(0, 0);
            terminal.TakePlaceOf(STDERR_FILENO);
            tcLog("CAM", 1).logError("from the background");
            _exit(static_cast<int>(tcLog::UnprintedTexts()));
        }
        ExpectSuccess(StatusOf(background));
        EXPECT_THAT(terminal.Read(), HasSubstr("CAM: ERR:from the background"));
    });
}

TEST(HostStreams, AStreamOfTheApplicationHoldsOnlyWhoeverWritesToIt)
{
    InAProcess([] {
        tcHoldingBuffer buffer;
        std::ostream stream(&buffer);
        tcLogStream first(stream), second(stream);
        tcLog log("CAM", 1), other("CAN", 1);
        log.SetConsumer(&first);
        other.SetConsumer(&second);
        std::thread writer([&] { log.logEvent("one"); });
        buffer.WaitForAWriter();
        for (tcLog* logger : {&log, &other}) {
            const auto start = tcClock::now();
            logger->logEvent("two");
            EXPECT_LT(Ms(start), nLimitMs);
        }
        EXPECT_EQ(2u, tcLog::UnprintedTexts());
        buffer.LetGo();
        writer.join();
        other.logEvent("three");
        EXPECT_THAT(buffer.msText, ::testing::MatchesRegex("[^\n]*:one\n[^\n]*:three\n"));
        log.SetConsumer(nullptr);
        other.SetConsumer(nullptr);
    });
}

TEST(HostStreams, AListOnASlowStreamHoldsNoLogger)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tcHoldingBuffer buffer;
        std::ostream stream(&buffer);
        std::thread writer([&] { StreamLogs(stream); });
        buffer.WaitForAWriter();
        std::promise<void> logged;
        std::thread logger([&] {
            tcLog("CAN", 1).logError("text");
            logged.set_value();
        });
        EXPECT_EQ(std::future_status::ready, logged.get_future().wait_for(std::chrono::seconds(5)));
        buffer.LetGo();
        logger.join();
        writer.join();
        EXPECT_THAT(buffer.msText, HasSubstr("CAM = 1 [NULL Log Device]"));
    });
}

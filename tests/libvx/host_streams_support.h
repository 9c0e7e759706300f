// A host in a process of its own, and what its standard output and error may be connected to.
#ifndef HOST_STREAMS_SUPPORT_H
#define HOST_STREAMS_SUPPORT_H

#include "log_support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using tcClock = std::chrono::steady_clock;

// What a call may take, which is a tenth of a second, and what a busy machine adds to that.
inline constexpr int nLimitMs = Within(2000);

inline int Ms(tcClock::time_point start)
{
    using namespace std::chrono;
    return static_cast<int>(duration_cast<milliseconds>(tcClock::now() - start).count());
}

// Waits for a child to end or stop; kills it after a minute.
inline int StatusOf(pid_t child)
{
    int status = -1;
    for (int i = 0; i < 6000; ++i) {
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

inline void ExpectSuccess(int status)
{
    EXPECT_FALSE(WIFSTOPPED(status)) << "stopped by signal " << WSTOPSIG(status);
    EXPECT_FALSE(WIFSIGNALED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// Runs `host` in a process of its own, which succeeds when no expectation fails there.
inline void InAProcess(const std::function<void()>& host)
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

inline tsConnection Pipe()
{
    int ends[2];
    EXPECT_EQ(0, pipe(ends));
    return {ends[0], ends[1]};
}

// Logs errors in several threads; the longest call.
inline int LongestCall(tcLog& log, int threads, int records)
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

inline std::string LossOf(int texts)
{
    return "libvxcamiface: " + std::to_string(texts) + " texts not printed\n";
}

// A full connection on standard error: calls go on, what is left out is counted, and told when
// there is room again.
inline void ExpectThatAFullOneHoldsNobody(tsConnection connection)
{
    tcLog log("CAM", 1);
    connection.TakePlaceOf(STDERR_FILENO);
    connection.Fill();
    const auto start = tcClock::now();
    EXPECT_LT(LongestCall(log, 4, 400), nLimitMs);
    EXPECT_LT(Ms(start), Within(5000)); // one wait of 80 ms for each would be 32 s at least
    EXPECT_EQ(1600u, tcLog::UnprintedTexts());
    connection.Read();
    log.logError("there is room again");
    const std::string text = connection.Read();
    EXPECT_THAT(text, StartsWith(LossOf(1600)));
    EXPECT_THAT(text, EndsWith(":     CAM: ERR:there is room again\n"));
    log.logError("and more");
    EXPECT_THAT(connection.Read(), Not(HasSubstr("not printed")));
    EXPECT_EQ(1600u, tcLog::UnprintedTexts());
}

// Nobody reads any more.
inline void ExpectThatABrokenOneRaisesNoSignal(tsConnection connection)
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

#endif

// The host's standard output and error in every state: the library prints there, but never waits
// for long and never raises a signal, and it counts what it could not print. Each test is a host in
// a process of its own.
#include "host_streams_support.h"
#include "log_support.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

tsConnection Sockets(int type)
{
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, type, 0, ends));
    return {ends[0], ends[1]};
}

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

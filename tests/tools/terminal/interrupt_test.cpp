#include "interrupt.h"

#include "failure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <unistd.h>

TEST(Interrupt, NothingIsThrownWithoutASignal)
{
    CatchSignals();
    EXPECT_EQ(CaughtSignal(), 0);
    EXPECT_NO_THROW(ThrowIfInterrupted());
}

TEST(Interrupt, SignalsAreRememberedAndThrown)
{
    CatchSignals();
    std::raise(SIGTERM);
    EXPECT_EQ(CaughtSignal(), SIGTERM);
    try {
        ThrowIfInterrupted();
        FAIL();
    } catch (const tcFailure& failure) {
        EXPECT_EQ(failure.Code(), 128 + SIGTERM);
    }
}

TEST(Interrupt, IgnoredSignalsStayIgnored)
{
    std::signal(SIGHUP, SIG_IGN);
    CatchSignals();
    std::raise(SIGHUP);
    EXPECT_EQ(CaughtSignal(), 0);
}

TEST(Interrupt, WritingToAClosedPipeOnlyFails)
{
    CatchSignals();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

TEST(InterruptDeathTest, QuickExitEndsTheProcessAtOnce)
{
    EXPECT_EXIT(
        {
            CatchSignals();
            tcQuickExit quickExit;
            std::raise(SIGINT);
        },
        testing::ExitedWithCode(130), "");
}

TEST(Interrupt, QuickExitIsRefusedAfterASignal)
{
    CatchSignals();
    std::raise(SIGINT);
    EXPECT_THROW(tcQuickExit(), tcFailure);
    std::raise(SIGINT); // remembered again, no exit
    EXPECT_EQ(CaughtSignal(), SIGINT);
}

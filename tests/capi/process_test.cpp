// Loading and unloading, exits at bad moments, fork and exec: no crash, no hang. VX_EXIT_ROUNDS
// repeats the ends with everything running more often.
#include "shell.h"
#include "tcSimServer.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

namespace {

// Runs the host program, debug daemon included; its exit status, 124 when it hung, more than 128
// when it crashed.
int Host(const std::string& mode, unsigned port = 0)
{
    unsetenv("DBGD_DISABLE");
    setenv("DBGD_BIND", "127.0.0.1", 1);
    setenv("DBGD_PORTNUM", "0", 1);
    setenv("DBGD_ANNOUCE_GROUP", "127.0.0.1:7020", 1);
    int status = -1;
    std::string errors = Output("timeout 20 " VX_HOST " " VX_LIBRARY " " + mode + " " +
                                    std::to_string(port) + " 2>&1",
                                &status);
    EXPECT_EQ(errors, "");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int Rounds()
{
    const char* rounds = getenv("VX_EXIT_ROUNDS");
    return rounds != nullptr ? atoi(rounds) : 3;
}

class Process : public ::testing::Test
{
protected:
    Process()
    {
        tsSimOptions options;
        options.columns = options.rows = 64;
        mpSim = std::make_unique<tcSimServer>(options);
        mnPort = mpSim->Start();
    }

    std::unique_ptr<tcSimServer> mpSim;
    unsigned mnPort = 0;
};

} // namespace

TEST(ProcessLife, LoadsAndUnloadsAgainAndAgain)
{
    EXPECT_EQ(Host("load-again"), 0);
}

TEST_F(Process, ExitsWithACameraOpen)
{
    EXPECT_EQ(Host("exit-open", mnPort), 0);
}

TEST_F(Process, ExitsWhileThreadsAskTheCamera)
{
    EXPECT_EQ(Host("exit-asking", mnPort), 0);
}

TEST_F(Process, UnloadsAfterTheCameraIsClosed)
{
    EXPECT_EQ(Host("unload-closed", mnPort), 0);
}

TEST_F(Process, UnloadsWithACameraOpen)
{
    EXPECT_EQ(Host("unload-open", mnPort), 0);
}

TEST_F(Process, BecomesAnotherProgramAfterForkWithACameraOpen)
{
    EXPECT_EQ(Host("fork-exec", mnPort), 0);
}

TEST_F(Process, ExitsWithEverythingRunning)
{
    for (int i = 0; i < Rounds(); ++i)
        EXPECT_EQ(Host("exit-busy", mnPort), 0) << "round " << i;
}

TEST_F(Process, UnloadsWithEverythingRunning)
{
    for (int i = 0; i < Rounds(); ++i)
        EXPECT_EQ(Host("unload-busy", mnPort), 0) << "round " << i;
}

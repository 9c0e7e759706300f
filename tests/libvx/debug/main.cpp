// Runs the tests without a daemon of the process's own, also when started by hand.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    if (!getenv("DBGD_DISABLE")) {
        setenv("DBGD_DISABLE", "1", 1);
        execv("/proc/self/exe", argv);
        return 1;
    }
    std::thread([] {}).join(); // a sanitizer's own thread starts with the first one, not later
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// The library as Python's ctypes meets it.
#include "shell.h"
#include "tcSimServer.h"

#include <gtest/gtest.h>

TEST(Python, TakesFramesThroughTheLibrary)
{
    if (VX_SANITIZED) GTEST_SKIP() << "a sanitizer's runtime must come before the library";
    tsSimOptions options;
    options.columns = 96;
    options.rows = 64;
    options.timeScale = 100;
    tcSimServer sim(options);
    const unsigned port = sim.Start();
    int status = -1;
    const std::string sums = Output("DBGD_DISABLE=1 timeout 60 python3 " VX_SOURCE_DIR
                                    "/tests/capi/frames.py " VX_LIBRARY " 127.0.0.1 " +
                                        std::to_string(port) + " 2>&1",
                                    &status);
    std::string expected;
    for (const tsSimFrame& frame : sim.Frames()) {
        expected += (expected.empty() ? "" : " ") + std::to_string(frame.pixelSum);
    }
    EXPECT_EQ(0, status);
    EXPECT_EQ(5u, sim.Frames().size());
    EXPECT_EQ(expected, Trim(sums));
}

// Records on a disk that gets full.
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

// What is still in memory when the disk is looked at takes its room, too.
TEST(RecordOnADisk, LeavesItTheRoomThatItPromises)
{
    const tcDisk disk(8);
    if (!disk) GTEST_SKIP() << "no mount namespaces here";
    for (const std::string name : {"a.raw", "a.fits", "a.tif", "a.ser", "a.h5"}) {
        tcRun run(disk.Words("\"$0\" record -q --sim-sensor 200x160 -e 1ms -n 1000 -o disk/" +
                             name + "; echo $?; df --output=avail -B 1 disk | tail -n 1"),
                  disk.How());
        EXPECT_EQ(run.Exit(), 0) << name;
        EXPECT_THAT(run.Errors(), HasSubstr("the disk is nearly full")) << name;
        EXPECT_THAT(run.Output(), testing::StartsWith("5\n")) << name;
        EXPECT_GE(std::stol("0" + run.Output().substr(2)), 4 << 20) << name << run.Output();
    }
}

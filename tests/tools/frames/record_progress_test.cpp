// What is shown of a record while it grows.
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(RecordProgress, IsALineThatIsWipedInTheEnd)
{
    const tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.terminal = true;
    tcRun run({"record", "sim", "--sim-sensor=640x480", "-e", "5ms", "--for", "1s", "--when-full",
               "drop", "-o", "a.raw"},
              how);
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Terminal(),
                ContainsRegex("recording (\\[[#-]+\\] )?[1-9][0-9]* frames, [0-9]+ MB/s, "
                              "buffer [0-9]+ %, [0-9]+ dropped, "
                              "[0-9.]+ [kMGT]?B left \\([0-9.]+ [a-z]+\\)"));
    EXPECT_THAT(run.Terminal(), EndsWith("\r\x1b[K"));
    EXPECT_THAT(run.Output(), Not(HasSubstr("\x1b")));
}

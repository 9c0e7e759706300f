// A host whose standard error takes nothing: its cameras go on.
#include "fault_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <iostream>

// Behind every exposure come three hundred errors, which the library prints. The pipe is in place
// of standard error only while nothing is expected here.
TEST_F(Faults, GoOnWithAFullPipeOnStandardError)
{
    static auto* const stream = new tcLogStream(std::cerr); // loggers may still refer to it
    tcLog::mpDefaultConsumer = stream;
    OpenWith({"error-storm:id=0x60,times=0,count=300,code=7,subcode=3"});
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    while (write(ends[1], "-", 1) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
    const unsigned long before = tcLog::UnprintedTexts();
    tcImage<uint16_t> image(nRows, nColumns);
    const int standardError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
    dup2(ends[1], STDERR_FILENO);
    const auto start = steady_clock::now();
    int results = 0;
    for (int i = 0; i < 3; ++i) {
        long exposure = 0;
        results |= VXGetExposureTime(handle, &exposure);
        results |= VXReadCCDArea(handle, image.Data(), 1, 0);
        results |= VXWaitCompletion(handle, gnPatienceMs);
    }
    const bool isTold = WaitUntil([&] { return events.Errors().size() == 900; });
    const int taken = ElapsedMs(start);
    dup2(standardError, STDERR_FILENO);
    EXPECT_EQ(0, results);
    EXPECT_TRUE(isTold);
    EXPECT_LT(taken, Within(5000)); // one wait of 80 ms for each would be 72 s
    EXPECT_THAT(WrongRows(image), ::testing::IsEmpty());
    EXPECT_GE(tcLog::UnprintedTexts() - before, 900u);
    for (const int descriptor : {ends[0], ends[1], standardError})
        close(descriptor);
}

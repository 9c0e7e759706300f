// The sums that a camera's figures must keep, whatever happens.
#ifndef BOOKS_H
#define BOOKS_H

#include "vxcamext.h"

#include <gtest/gtest.h>

inline void ExpectThatTheyAddUp(const tsStatistics& f)
{
    EXPECT_EQ(f.FramesRequested, f.FramesComplete + f.FramesIncomplete + f.FramesFailed +
                                     f.FramesAborted + f.FramesPending);
    EXPECT_EQ(f.RequestsSent,
              f.RequestsAnswered + f.RequestsTimedOut + f.RequestsFailed + f.RequestsPending);
    EXPECT_EQ(f.PacketsReceived + f.PacketsMissing, f.PacketsExpected + f.PacketsDuplicate +
                                                        f.PacketsStray + f.PacketsShort +
                                                        f.PacketsRunning);
}

#endif

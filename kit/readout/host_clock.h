// The host's clock, as the system keeps it.
#ifndef VXCAMKIT_HOST_CLOCK_H
#define VXCAMKIT_HOST_CLOCK_H

#include <vxcamkit/frame_times.h>

struct timex;

namespace vxcam {

Moment presentMoment();

ClockState hostClock();

// Of what adjtimex() fills in and returns.
ClockState clockStateOf(int result, const timex& told);

} // namespace vxcam

#endif

#include "readout/host_clock.h"

#include <sys/timex.h>

namespace vxcam {

Moment presentMoment()
{
    return {UtcTime(std::chrono::system_clock::now()), SteadyTime(std::chrono::steady_clock::now()),
            true};
}

ClockState clockStateOf(int result, const timex& told)
{
    ClockState state;
    if (result < 0) return state;
    state.synchronised = result != TIME_ERROR && (told.status & STA_UNSYNC) == 0;
    state.maximumError = std::chrono::microseconds(told.maxerror);
    return state;
}

ClockState hostClock()
{
    timex told{};
    const int result = ::adjtimex(&told);
    return clockStateOf(result, told);
}

} // namespace vxcam

// When a frame was exposed, and how well that is known.
#ifndef VXCAMKIT_FRAME_TIMES_H
#define VXCAMKIT_FRAME_TIMES_H

#include <vxcamkit/export.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace vxcam {

using UtcTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;
using SteadyTime = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

// One moment on the host's two clocks.
struct Moment {
    UtcTime utc;
    SteadyTime steady;
    bool known = false; // it happened, and was seen
};

// The host's clock when the frame came, as the system tells it.
struct ClockState {
    bool synchronised = false;
    std::chrono::microseconds maximumError{0}; // of utc, beyond the frame's uncertainty
};

struct FrameTimes {
    // How begin and end were found.
    enum class How {
        Commanded, // the exposure was started by the readout's command
        Interval,  // it follows another one at the camera's image interval
        Triggered, // an external trigger started it; the end is known from the first packet
        Bounded    // only that it lies within `uncertainty` of the middle
    };

    Moment commandSent, firstPacket, lastPacket;
    UtcTime begin, middle, end;              // of the exposure
    std::chrono::nanoseconds uncertainty{0}; // the true begin lies within begin +/- uncertainty
    How how = How::Bounded;
    ClockState clock;
};

// "commanded", "interval", "triggered", "bounded"
VXCAMKIT_EXPORT const char* nameOf(FrameTimes::How how);

// "2026-01-31T23:59:59.999": rounded to 0 to 9 decimals of a second.
VXCAMKIT_EXPORT std::string utcText(UtcTime time, int decimals = 3);

} // namespace vxcam

#endif

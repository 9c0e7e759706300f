// Times as clients are told them.
#ifndef VXCAMD_TIME_TEXT_H
#define VXCAMD_TIME_TEXT_H

#include <vxcamkit/frame_times.h>

#include <chrono>
#include <string>

namespace vxcam {

// As RFC 3339 has it, in UTC: "2026-01-31T23:59:59.999Z".
inline std::string timeText(UtcTime time, int decimals = 3)
{
    return utcText(time, decimals) + "Z";
}

inline std::string presentText()
{
    return timeText(std::chrono::system_clock::now());
}

} // namespace vxcam

#endif

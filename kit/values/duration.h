// Times as people write them.
#ifndef VXCAMKIT_DURATION_H
#define VXCAMKIT_DURATION_H

#include <vxcamkit/export.h>

#include <chrono>
#include <string>

namespace vxcam {

// "500ms", "2s", "0.5", "1min", "1h": a number and a unit (us, ms, s, min, h), seconds without one.
// Rounded to whole milliseconds, at most 4294967295 of them. Throws Error{Usage} for everything
// else, also for what is shorter than 1 ms, but not 0: cameras count in milliseconds.
VXCAMKIT_EXPORT std::chrono::milliseconds parsedDuration(const std::string& text);

// The same of a number of milliseconds that was written so.
std::chrono::milliseconds checkedDuration(double milliseconds, const std::string& text);

// Exact, and read by parsedDuration() again: "250ms", "90s".
VXCAMKIT_EXPORT std::string exactText(std::chrono::milliseconds duration);

} // namespace vxcam

#endif

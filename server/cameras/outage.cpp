#include "cameras/outage.h"

#include <vxcamkit/duration.h>

#include <algorithm>

namespace vxcam {

namespace {

std::string spanText(Outage::Clock::duration span)
{
    return exactText(std::chrono::round<std::chrono::seconds>(span));
}

} // namespace

std::string Outage::isMissing(const std::string& why, Clock::time_point now)
{
    if (begun_ && now < due_) return "";
    std::string line = camera_;
    if (begun_) {
        line += ", still after " + spanText(now - *begun_);
        interval_ = std::min<Clock::duration>(2 * interval_, kMost);
    } else {
        begun_ = now;
        interval_ = kLeast;
    }
    due_ = now + interval_;
    return line + ": " + why;
}

std::string Outage::isThere(Clock::time_point now)
{
    if (!begun_) return "";
    const Clock::duration span = now - *begun_;
    begun_.reset();
    return camera_ + ": is there, after " + spanText(span);
}

} // namespace vxcam

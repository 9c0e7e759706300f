// The exposure at which frames become as bright as they shall be.
#ifndef VXCAMKIT_FLAT_EXPOSURE_H
#define VXCAMKIT_FLAT_EXPOSURE_H

#include <vxcamkit/sequence.h>

#include <chrono>
#include <functional>
#include <optional>

namespace vxcam {

// What frames read grows with the exposure, from what they read without one.
//
// Threads: one.
class FlatExposure
{
public:
    using Time = std::chrono::milliseconds;
    // The mean of a frame with this exposure; of a dark one with none.
    using Measure = std::function<double(std::optional<Time> exposure)>;

    FlatExposure(const SequenceLevel& level, Time first) : level_(level), exposure_(first) {}

    // Takes frames until one is as bright as it shall be; then returns its exposure at once. Throws
    // Error{Camera} when the level cannot be had.
    Time find(const Measure& measure);

    // A frame had this mean. False when that is too far off: find() begins anew then.
    bool accept(double mean);

private:
    bool isNear(double mean) const;
    Time next(double mean) const;

    const SequenceLevel level_;
    Time exposure_;
    std::optional<double> offset_;
    bool isFound_ = false;
};

} // namespace vxcam

#endif

// Finds the exposure at which frames are as bright as they shall be.
#ifndef VXCAMKIT_EXPOSURE_SEARCH_H
#define VXCAMKIT_EXPOSURE_SEARCH_H

#include <vxcamkit/export.h>

#include <chrono>

namespace vxcam {

struct ExposureGoal {
    double level = 0;        // ADU: the median of a frame's pixels
    double tolerance = 0.02; // of the light in it, that is near enough
    double offset = 0;       // ADU, of frames without light
    double fullScale = 65535;
    std::chrono::milliseconds first{1000}; // tried first
    std::chrono::milliseconds least{1}, most{600000};
    int tries = 20;
};

// A frame is taken with exposure(), and its median told to add(), until that says something else
// than Searching. Light may change meanwhile, but not all the time.
//
// Threads: one.
class VXCAMKIT_EXPORT ExposureSearch
{
public:
    enum class State {
        Searching,
        Found,     // exposure() is the one
        TooDark,   // at the longest exposure
        TooBright, // at the shortest one
        Unsteady   // light changes faster than it can be measured
    };

    // Throws Error{Usage} for a goal that no frame can have.
    explicit ExposureSearch(const ExposureGoal& goal);

    std::chrono::milliseconds exposure() const { return exposure_; }
    State add(double median);

private:
    ExposureGoal goal_;
    std::chrono::milliseconds exposure_;
    int tried_ = 0;
};

} // namespace vxcam

#endif

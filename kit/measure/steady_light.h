// Frames of a steady light: of a level, and pairs for photon transfer.
#ifndef VXCAMKIT_STEADY_LIGHT_H
#define VXCAMKIT_STEADY_LIGHT_H

#include <vxcamkit/export.h>
#include <vxcamkit/exposure_search.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/photon_transfer.h>
#include <vxcamkit/plan.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace vxcam {

// Takes the frames of a plan in one readout, and returns them, all complete; throws what ends it.
// `what` is for people: "bias", "level", "pair 3/16".
using TakeFrames = std::function<std::vector<Frame>(const Plan& plan, const std::string& what)>;
// Gets each exposure that was tried, and the median of its frame.
using TellTry = std::function<void(std::chrono::milliseconds exposure, double median)>;

// An exposure of such frames at which the light is as bright as `goal` says; its offset is found
// here, by a frame without light. Throws what `take` throws, Error{Usage} as ExposureSearch does,
// and Error{Camera} where no exposure does it.
VXCAMKIT_EXPORT std::chrono::milliseconds
exposureFor(Plan plan, ExposureGoal goal, const TakeFrames& take, const TellTry& told = {});

struct TransferOptions {
    Plan plan;      // of each readout: its part of the sensor; what is taken is set here
    int pairs = 16; // exposures, of two frames each: 4 to 200
    // From the shortest exposure to the longest one. Both 0: from a hundredth of what fills the
    // scale to beyond that, which is found by trying up to `longest`.
    std::chrono::milliseconds from{0}, to{0};
    std::chrono::milliseconds longest{600000};
};

// What photonTransferOf() takes.
struct TransferSeries {
    FramePair dark;
    std::vector<FramePair> flats; // by their exposures; evenly spread over the decades of light
};

// Throws what `take` and exposureFor() throw, and Error{Usage} for options that mean nothing,
// before anything is taken.
VXCAMKIT_EXPORT TransferSeries takeTransfer(const TransferOptions& options, const TakeFrames& take);

} // namespace vxcam

#endif

// Frames that are looked at, and not kept.
#ifndef SHOTS_H
#define SHOTS_H

#include "complaints.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/exposure_search.h>

#include <functional>
#include <string>
#include <vector>

// Threads: the main one.
class tcShots
{
public:
    tcShots(vxcam::Camera& camera, tcProgress& progress)
        : mCamera(camera), mProgress(progress), mComplaints(camera)
    {}

    // The frames of one readout; `what` is shown meanwhile. Throws vxcam::Error when it fails,
    // tcFailure with eExitCamera for a frame that is incomplete and an error of the camera, and
    // after a signal.
    std::vector<vxcam::Frame> Take(const vxcam::Plan& plan, const std::string& what);

    // An exposure of such frames at which the light is as bright as `goal` says; its offset is
    // found here, by a frame without light. `told` gets each frame's exposure and median. Throws
    // as Take() does, and tcFailure with eExitCamera where no exposure does it.
    std::chrono::milliseconds
    Expose(vxcam::Plan plan, vxcam::ExposureGoal goal,
           const std::function<void(std::chrono::milliseconds, double)>& told);

private:
    vxcam::Camera& mCamera;
    tcProgress& mProgress;
    tcComplaints mComplaints;
};

#endif

// Frames that are looked at, and not kept.
#ifndef SHOTS_H
#define SHOTS_H

#include "complaints.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/steady_light.h>

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

    // Take() as the kit asks for it; as long as this is there.
    vxcam::TakeFrames Taking()
    {
        return
            [this](const vxcam::Plan& plan, const std::string& what) { return Take(plan, what); };
    }

private:
    vxcam::Camera& mCamera;
    tcProgress& mProgress;
    tcComplaints mComplaints;
};

#endif

// Which camera the frames of a sequence are of.
#ifndef VXCAMKIT_SEQUENCE_CAMERA_H
#define VXCAMKIT_SEQUENCE_CAMERA_H

#include <vxcamkit/area.h>
#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>
#include <vxcamkit/frame.h>

#include <string>

namespace vxcam {

struct SequenceCamera {
    Size sensor;
    std::string serial, name; // empty: not told
};

SequenceCamera cameraOf(const Camera& camera);
SequenceCamera cameraOf(const Frame& frame);
std::string
textOf(const SequenceCamera& camera); // "vxcamsim with serial number 17, 96 x 64 pixels"

// By sensor and serial number.
bool isSame(const SequenceCamera& one, const SequenceCamera& other);

// Frames of two cameras would stand in one sequence: Usage before anything is done, Camera behind
// that.
class OtherCamera : public Error
{
public:
    OtherCamera(ErrorKind kind, const std::string& journal, const SequenceCamera& before,
                const SequenceCamera& present);
};

} // namespace vxcam

#endif

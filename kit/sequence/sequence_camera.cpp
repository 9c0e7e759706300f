#include "sequence/sequence_camera.h"

namespace vxcam {

SequenceCamera cameraOf(const Camera& camera)
{
    const Identity& identity = camera.identity();
    return {camera.sensor(), identity.serial, identity.name};
}

SequenceCamera cameraOf(const Frame& frame)
{
    return {frame.facts().sensor, frame.facts().serial, frame.facts().cameraName};
}

std::string textOf(const SequenceCamera& camera)
{
    const std::string who = camera.name.empty() ? "a camera that tells no name" : camera.name;
    return who + (camera.serial.empty() ? "" : " with serial number " + camera.serial) + ", " +
           std::to_string(camera.sensor.columns) + " x " + std::to_string(camera.sensor.rows) +
           " pixels";
}

bool isSame(const SequenceCamera& one, const SequenceCamera& other)
{
    return one.sensor == other.sensor && one.serial == other.serial;
}

OtherCamera::OtherCamera(ErrorKind kind, const std::string& journal, const SequenceCamera& before,
                         const SequenceCamera& present)
    : Error(kind, journal + ": the sequence was begun with another camera (" + textOf(before) +
                      ") than this one (" + textOf(present) +
                      "); go on with that one, or choose another folder for this one")
{}

} // namespace vxcam

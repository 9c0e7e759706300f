// What to read out.
#ifndef VXCAMKIT_PLAN_H
#define VXCAMKIT_PLAN_H

#include <vxcamkit/area.h>
#include <vxcamkit/frame.h>

#include <chrono>
#include <optional>
#include <vector>

namespace vxcam {

// What becomes of frames for which no buffer is free, since the consumer is too slow.
enum class WhenFull {
    // The camera is held back through its connection until the consumer takes frames, and so is all
    // that it says meanwhile. A command that is given while it is held goes ahead: up to 32 MiB of
    // frames are taken in beyond the buffers to get at its answer.
    Wait,
    // They are dropped, counted (StreamBooks::dropped) and told (FrameFacts::dropped).
    DropNewest
};

// Every field has a default that takes a picture. What is given holds for this readout; afterwards
// the camera is set to what it was set to before. What is not given is what the camera is set to.
struct Plan {
    // As set: of the binned kind where bins are given; of the area kind where an area, regions, 8
    // bits or flags are; else of the binned kind where the camera is set to simple binning of more
    // than one pixel, whatever its area, and of the area kind where it is not.
    ReadoutKind kind = ReadoutKind::AsSet;
    FrameType type = FrameType::Light; // darks and bias frames keep the shutter closed
    std::optional<std::chrono::microseconds> exposure; // whole ms; bias frames: 0 unless given
    int frames = 1;                                    // up to 32767; 0: until stopped
    int bits = 16;                                     // 8 or 16; binned kinds have 32
    std::optional<Area> area;  // of the area kind; the whole sensor if the camera knows of none
    std::vector<Area> regions; // instead of the area: up to 16, read as one frame
    std::optional<int> binningX, binningY; // of the binned kind: columns and rows in a bin
    int mode = 0; // of the binned kinds: the table's number; of the area kind: more flags,
                  // but those of the type and the bits
    WhenFull whenFull = WhenFull::Wait;
    // Frames that are held between camera and consumer, at most; the camera's pixels land in these
    // buffers and are not copied again. 0: eight, but no more than fit into 256 MiB, and two at
    // least. Half of them may be outside, with the consumer; one that keeps more frames gets
    // further ones as copies in memory of their own.
    int buffers = 0;
    // Silence allowed beyond the moment when a frame is due: the end of its exposure, image
    // interval included. Not given: 20 s, and none where a trigger is waited for. Given, it also
    // counts while a trigger is waited for.
    std::optional<std::chrono::milliseconds> timeout;
    // Whether frames carry the settings in force, which the camera is asked for before its first
    // readout. Of questions that it does not answer, one holds up each readout; the rest comes
    // before the next one.
    bool settings = true;
    // Whether an error that the camera reports while it reads out ends the readout. If not, it is
    // among the complaints of the frames. Errors that answer a command meanwhile are the command's.
    bool endOnCameraError = true;
};

// How a readout ended, which it does in exactly one way.
enum class ReadoutEnd {
    Running,     // it has not
    Complete,    // every frame came, complete
    Incomplete,  // it ended, but a frame came incomplete, was dropped, or never came
    TimedOut,    // the camera was silent for too long
    Aborted,     // by Stream::stop(), Camera::abort() or the next readout
    LinkLost,    // the connection broke, or the command could not be sent
    CameraError, // the camera reported an error
    Closed       // the camera was closed
};

// "running", "complete", "incomplete", "timed-out", "aborted", "link-lost", "camera-error",
// "closed"
VXCAMKIT_EXPORT const char* nameOf(ReadoutEnd end);

} // namespace vxcam

#endif

// How good the link to a camera is.
#ifndef VXCAMKIT_LINK_CHECK_H
#define VXCAMKIT_LINK_CHECK_H

namespace vxcam {

// What became of messages of random bytes that the camera sent back.
struct LinkCheck {
    static constexpr int kMessageBytes = 1024;

    int messages = 0;              // that came back
    int damaged = 0;               // of those, others than went out
    double megabytesPerSecond = 0; // there and back
};

} // namespace vxcam

#endif

// Whether a camera's TCP port can be reached, and why not.
#ifndef VXCAMKIT_PROBE_H
#define VXCAMKIT_PROBE_H

#include <chrono>
#include <cstdint>
#include <string>

namespace vxcam {

struct Probe {
    enum class Outcome {
        Reached,    // and nothing was said
        Turned,     // reached, and turned away without a word
        InUse,      // a camera is there, and says that it serves somebody else
        NoName,     // the host's name is not known
        Unreachable // nothing listens there, no way there, no answer
    };
    Outcome outcome = Outcome::Reached;
    std::string words; // the camera's, or the system's
};

// Connects, says nothing, listens for a moment, and disconnects when the other side has seen that.
Probe probe(const std::string& host, uint16_t port, std::chrono::milliseconds patience);

} // namespace vxcam

#endif

// From the answers to a search to the cameras that gave them.
#ifndef VXCAMKIT_ANSWERS_H
#define VXCAMKIT_ANSWERS_H

#include <vxcamkit/discover.h>

namespace vxcam {

struct FoundAnswer {
    std::string address;
    uint16_t port = 0;
    uint32_t serial = 0, value = 0;
};

// Answers that agree in serial number, port and value are those of one camera.
std::vector<FoundCamera> camerasOf(const std::vector<FoundAnswer>& answers,
                                   const std::vector<HostInterface>& interfaces);

} // namespace vxcam

#endif

// Cameras that answer on the local networks.
#ifndef VXCAMKIT_DISCOVER_H
#define VXCAMKIT_DISCOVER_H

#include <vxcamkit/export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// An interface of this host, with one of its IPv4 addresses.
struct HostInterface {
    std::string name, address;
    uint32_t network = 0, mask = 0; // in host order
};

// Those that are up and have an IPv4 address, in the system's order.
VXCAMKIT_EXPORT std::vector<HostInterface> hostInterfaces();

// "lo 127.0.0.1, eth0 10.1.0.1"
VXCAMKIT_EXPORT std::string textOf(const std::vector<HostInterface>& interfaces);

// A way to a camera.
struct FoundPath {
    std::string address;   // of the camera
    std::string interface; // this host's address on the way; empty when no interface leads there
};

// A camera, once, however many ways lead to it.
struct VXCAMKIT_EXPORT FoundCamera {
    uint32_t serial = 0;
    uint16_t port = 0;
    uint32_t value = 0;           // as the camera tells it
    std::vector<FoundPath> paths; // at least one, in the order in which they answered

    std::string target() const; // to open it: "192.168.1.20:2000"
};

// Looks for cameras, for a little over 0.5 s; in the order in which they answered. Throws
// Error{NotFound} when that is not possible, which is not the case that none answers.
VXCAMKIT_EXPORT std::vector<FoundCamera> discover();

} // namespace vxcam

#endif

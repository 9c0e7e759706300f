// Cameras that answer on the network, and the interfaces that they were looked for on.
#ifndef FOUND_H
#define FOUND_H

#include <cstdint>
#include <string>
#include <vector>

// An interface of this host, with one of its IPv4 addresses.
struct tsInterface {
    std::string name, address;
    uint32_t network = 0, mask = 0; // in host order
};

struct tsFound {
    std::string address;
    uint16_t port = 0;
    uint32_t serial = 0;
    uint32_t value = 0;         // as the camera tells it
    std::string interface = {}; // address of the interface that leads there; empty when none does
};

// Those that are up and have an IPv4 address, in the system's order.
std::vector<tsInterface> Interfaces();

// "lo 127.0.0.1, eth0 10.1.0.1"
std::string InterfaceText(const std::vector<tsInterface>& interfaces);

// Looks for cameras, for a little over 0.5 s. A signal ends the process meanwhile. Throws tcFailure
// with eExitNoCamera when that is not possible.
std::vector<tsFound> Discover(const std::vector<tsInterface>& interfaces);

// Why the camera with a serial number was not opened; looks for it once more.
std::string WhyNotFound(uint32_t serial);

#endif

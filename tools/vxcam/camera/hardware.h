// Who a camera says it is.
#ifndef HARDWARE_H
#define HARDWARE_H

#include <cstdint>
#include <string>

class tcSession;

// Known only of cameras whose hardware information is laid out as docs/simulator.md tells; of
// others, most of it is reserved.
struct tsIdentity {
    bool isKnown = false;
    std::string name;
    uint32_t serial = 0, version = 0;
    uint16_t bits = 0; // a pixel
};

// Asks the camera. Throws tcFailure when it does not answer.
tsIdentity ReadIdentity(tcSession& session);

// "3.7": the high and the low 16 bits.
std::string VersionText(uint32_t version);

#endif

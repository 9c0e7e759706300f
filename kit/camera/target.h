// Which camera: where it is, or that it is the simulated one.
#ifndef VXCAMKIT_TARGET_H
#define VXCAMKIT_TARGET_H

#include <vxcamkit/area.h>
#include <vxcamkit/export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// The simulated camera that lives in the application itself.
struct SimulatorOptions {
    Size sensor{2048, 2048};
    uint64_t seed = 1;             // same seed, same commands: same pixels
    double timeScale = 1.0;        // camera time by wall-clock time: 10 makes it ten times as fast
    double heartbeatSeconds = 0.2; // between heartbeats; 0: none
    uint64_t faultSeed = 1;        // of what the faults leave to chance
    std::vector<std::string> faults; // what goes wrong: "stall:packet=20,seconds=0.5"
};

struct VXCAMKIT_EXPORT Target {
    enum class Kind {
        Network,  // at a host and a TCP port
        Serial,   // on the local networks, with a serial number
        Simulator // in this process
    };

    Kind kind = Kind::Simulator;
    std::string host; // a name or a dotted IPv4 address
    uint16_t port = 0;
    uint32_t serial = 0;
    SimulatorOptions simulator;

    // Of a text as people write it:
    //
    //     HOST:PORT        192.168.1.20:2000
    //     serial:NUMBER    serial:17
    //     sim              sim?sensor=1024x1024&seed=3&scale=10&fault=stall:packet=20&fault=reset
    //
    // What may stand behind "sim?": sensor (COLUMNSxROWS), seed, scale, heartbeat (seconds),
    // fault-seed and fault; only fault more than once. Throws Error{Usage} for anything else.
    static Target parse(const std::string& text);

    // As it can be written: "192.168.1.20:2000", "serial:17", "sim".
    std::string text() const;
};

} // namespace vxcam

#endif

// A simulated camera that lives in this process, for as many cameras one after another as like.
#ifndef VXCAMKIT_SIMULATED_CAMERA_H
#define VXCAMKIT_SIMULATED_CAMERA_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame_times.h>
#include <vxcamkit/target.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// What the simulated camera knows of a frame that it sent.
struct SentFrame {
    uint32_t readout = 0, frame = 0; // readouts since the camera began, frames within; from 1
    int rows = 0, columns = 0, bits = 0;
    uint64_t sum = 0;     // of the pixels that it meant to send
    uint32_t crc = 0;     // CRC-32 of the same, as they go out: row by row, low bytes first
    uint64_t sentSum = 0; // of those that went out, where a fault made them others
    uint32_t sentCrc = 0;
    bool complete = false; // sent to its end
    bool intact = false;   // all packets went out once, in order and unchanged
    UtcTime begin, end;    // of its exposure
};

// Listens on a port of the loopback from its making to its end, and keeps its settings from client
// to client. "sim" as a target is the same for one camera. A Camera of this process that is opened
// with the target knows its time scale, and the sums of what it sent, as one of "sim" does.
//
// Threads: making, close() and the destructor on one; the rest on any.
class VXCAMKIT_EXPORT SimulatedCamera
{
public:
    // Throws Error: Usage for options that are impossible, NotFound when there is no port.
    explicit SimulatedCamera(const SimulatorOptions& options = {});
    ~SimulatedCamera(); // as close()
    SimulatedCamera(SimulatedCamera&& other) noexcept;
    SimulatedCamera& operator=(SimulatedCamera&& other) noexcept;

    // Whoever is connected loses the connection.
    void close();

    std::string target() const; // to open it: "127.0.0.1:40123"

    // One more fault, for what leaves from now on: "half-open", "no-answer:times=3". Throws
    // Error{Usage} for what is none, and when it is closed.
    void inject(const std::string& fault);

    // The last 64 frames, the oldest first; none when it is closed.
    std::vector<SentFrame> frames() const;

private:
    struct Body;
    std::shared_ptr<Body> body_;
};

} // namespace vxcam

#endif

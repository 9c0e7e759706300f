// The simulated camera inside this process.
#ifndef VXCAMKIT_SIMULATOR_H
#define VXCAMKIT_SIMULATOR_H

#include <vxcamkit/simulated_camera.h>
#include <vxcamkit/target.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class tcSimServer;

namespace vxcam {

// Threads: start and end on one, the rest on any. Owns: the server.
class Simulator
{
public:
    // Throws Error{Usage} for options that are impossible.
    explicit Simulator(const SimulatorOptions& options);
    ~Simulator();

    uint16_t start(); // its port on 127.0.0.1; throws Error{NotFound} when it has none

    // The camera's own sum of the pixels of a frame of its last readout; nothing if it is not
    // known.
    std::optional<uint64_t> sumOf(uint32_t frame) const;

    // As SimulatedCamera has them.
    std::vector<SentFrame> frames() const;
    void inject(const std::string& fault);

private:
    std::unique_ptr<tcSimServer> server_;
};

} // namespace vxcam

#endif

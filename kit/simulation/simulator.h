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

// What a simulated camera of this process knows, for who is connected to it.
//
// Threads: any. Owns: nothing; outlives the camera.
class SimulatorWitness
{
public:
    virtual ~SimulatorWitness() = default;

    virtual double timeScale() const = 0; // camera time by wall-clock time

    // The camera's own sum of the pixels of a frame of its last readout; nothing if it is not
    // known.
    virtual std::optional<uint64_t> sumOf(uint32_t frame) const = 0;
};

// Threads: start and end on one, the rest on any. Owns: the server.
class Simulator
{
public:
    // Throws Error{Usage} for options that are impossible.
    explicit Simulator(const SimulatorOptions& options);
    ~Simulator();

    uint16_t start(); // its port on 127.0.0.1; throws Error{NotFound} when it has none

    // Of the simulated camera of this process that listens there; null when none does.
    static std::shared_ptr<SimulatorWitness> witnessAt(const std::string& host, uint16_t port);

    // As SimulatedCamera has them.
    std::vector<SentFrame> frames() const;
    void inject(const std::string& fault);

private:
    std::unique_ptr<tcSimServer> server_;
    class Witness;
    std::shared_ptr<Witness> witness_;
};

} // namespace vxcam

#endif

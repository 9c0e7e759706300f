#include "camera/simulator.h"

#include <vxcamkit/error.h>

#include "tcSimServer.h"

#include <stdexcept>

namespace vxcam {

namespace {

tsSimOptions optionsOf(const SimulatorOptions& options)
{
    tsSimOptions result;
    result.columns = static_cast<uint16_t>(options.sensor.columns);
    result.rows = static_cast<uint16_t>(options.sensor.rows);
    result.seed = options.seed;
    result.timeScale = options.timeScale;
    result.heartbeatSeconds = options.heartbeatSeconds;
    result.faults = ParseSimFaults(options.faults);
    result.faultSeed = options.faultSeed;
    return result;
}

} // namespace

Simulator::Simulator(const SimulatorOptions& options)
try : server_(std::make_unique<tcSimServer>(optionsOf(options))) {
} catch (const std::runtime_error& error) {
    throw Error(ErrorKind::Usage, std::string("simulated camera: ") + error.what());
}

Simulator::~Simulator() = default;

uint16_t Simulator::start()
{
    try {
        return server_->Start();
    } catch (const std::runtime_error& error) {
        throw Error(ErrorKind::NotFound, std::string("simulated camera: ") + error.what());
    }
}

std::optional<uint64_t> Simulator::sumOf(uint32_t frame) const
{
    const std::vector<tsSimFrame> frames = server_->Frames();
    for (auto known = frames.rbegin(); known != frames.rend(); ++known) {
        if (known->readout != frames.back().readout) break;
        if (known->frame == frame && known->complete) return known->pixelSum;
    }
    return std::nullopt;
}

} // namespace vxcam

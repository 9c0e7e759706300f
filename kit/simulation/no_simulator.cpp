// In place of simulator.cpp, where the kit is built without the simulated camera.
#include "simulation/simulator.h"

#include <vxcamkit/error.h>

class tcSimServer
{};

namespace vxcam {

Simulator::Simulator(const SimulatorOptions&)
{
    throw Error(ErrorKind::Usage, "this kit was built without the simulated camera");
}

Simulator::~Simulator() = default;

uint16_t Simulator::start()
{
    return 0;
}

std::optional<uint64_t> Simulator::sumOf(uint32_t) const
{
    return std::nullopt;
}

std::vector<SentFrame> Simulator::frames() const
{
    return {};
}

void Simulator::inject(const std::string&) {}

} // namespace vxcam

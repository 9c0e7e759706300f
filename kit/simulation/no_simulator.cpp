// In place of simulator.cpp, where the kit is built without the simulated camera.
#include "simulation/simulator.h"

#include <vxcamkit/error.h>

class tcSimServer
{};

namespace vxcam {

class Simulator::Witness
{};

Simulator::Simulator(const SimulatorOptions&)
{
    throw Error(ErrorKind::Usage, "this kit was built without the simulated camera");
}

Simulator::~Simulator() = default;

uint16_t Simulator::start()
{
    return 0;
}

std::shared_ptr<SimulatorWitness> Simulator::witnessAt(const std::string&, uint16_t)
{
    return nullptr;
}

std::vector<SentFrame> Simulator::frames() const
{
    return {};
}

void Simulator::inject(const std::string&) {}

} // namespace vxcam

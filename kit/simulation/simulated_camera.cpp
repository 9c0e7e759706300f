#include <vxcamkit/simulated_camera.h>

#include "simulation/simulator.h"

#include <vxcamkit/error.h>

#include <mutex>

namespace vxcam {

struct SimulatedCamera::Body {
    mutable std::mutex lock;
    std::unique_ptr<Simulator> simulator; // null: closed
    std::string target;
};

SimulatedCamera::SimulatedCamera(const SimulatorOptions& options) : body_(std::make_shared<Body>())
{
    body_->simulator = std::make_unique<Simulator>(options);
    body_->target = "127.0.0.1:" + std::to_string(body_->simulator->start());
}

SimulatedCamera::SimulatedCamera(SimulatedCamera&& other) noexcept = default;
SimulatedCamera& SimulatedCamera::operator=(SimulatedCamera&& other) noexcept = default;
SimulatedCamera::~SimulatedCamera() = default;

void SimulatedCamera::close()
{
    const std::lock_guard<std::mutex> guard(body_->lock);
    body_->simulator.reset();
}

std::string SimulatedCamera::target() const
{
    return body_->target;
}

void SimulatedCamera::inject(const std::string& fault)
{
    const std::lock_guard<std::mutex> guard(body_->lock);
    if (!body_->simulator) {
        throw Error(ErrorKind::Usage, body_->target + ": the simulated camera is closed");
    }
    body_->simulator->inject(fault);
}

std::vector<SentFrame> SimulatedCamera::frames() const
{
    const std::lock_guard<std::mutex> guard(body_->lock);
    return body_->simulator ? body_->simulator->frames() : std::vector<SentFrame>();
}

} // namespace vxcam

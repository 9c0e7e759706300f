#include <vxcamkit/camera.h>

#include "camera/camera_core.h"

namespace vxcam {

Camera::Camera(std::shared_ptr<CameraCore> core) : core_(std::move(core)) {}
Camera::Camera(Camera&& other) noexcept = default;

Camera::~Camera()
{
    if (core_) core_->close();
}

Camera& Camera::operator=(Camera&& other) noexcept
{
    if (this != &other) {
        if (core_) core_->close();
        core_ = std::move(other.core_);
    }
    return *this;
}

Camera Camera::open(const std::string& target, const OpenOptions& options)
{
    return open(Target::parse(target), options);
}

Camera Camera::open(const Target& target, const OpenOptions& options)
{
    return Camera(CameraCore::open(target, options, nullptr));
}

Camera Camera::open(const Target& target, const OpenOptions& options, const WireCapture& capture)
{
    return Camera(CameraCore::open(target, options, capture.body()));
}

void Camera::close()
{
    core_->close();
}

Value Camera::get(const std::string& name)
{
    return core_->get(name);
}

Value Camera::set(const std::string& name, const Value& value)
{
    return core_->set(name, value);
}

std::optional<Value> Camera::tryGet(const std::string& name, std::string* why)
{
    return core_->tryGet(name, why);
}

std::optional<Value> Camera::getWithin(const std::string& name, std::chrono::milliseconds most)
{
    return core_->getWithin(name, most);
}

Value Camera::checked(const std::string& name, const Value& value)
{
    return core_->checked(name, value);
}

Snapshot Camera::snapshot()
{
    return core_->snapshot();
}

Profile Camera::profile(bool withMask)
{
    return core_->profile(withMask);
}

std::vector<Outcome> Camera::apply(const Profile& profile)
{
    return core_->apply(profile);
}

bool Camera::waitForLink(std::chrono::milliseconds most)
{
    return core_->waitForLink(most);
}

std::string Camera::restore()
{
    return core_->restore();
}

ReadoutKind Camera::kindOf(const Plan& plan)
{
    return core_->kindOf(plan);
}

Stream Camera::stream(const Plan& plan)
{
    return Stream(core_->stream(plan));
}

Frame Camera::grab(const Plan& plan)
{
    Plan one = plan;
    one.frames = 1;
    Stream stream(core_->stream(one));
    std::optional<Frame> frame = stream.next();
    if (!frame) throw Error(ErrorKind::Incomplete, target() + ": the frame never came");
    if (!frame->complete()) throw IncompleteFrame(std::move(*frame));
    return std::move(*frame);
}

void Camera::abort()
{
    core_->abort();
}

LinkCheck Camera::checkLink(int messages)
{
    return core_->checkLink(messages);
}

Subscription Camera::onEvent(EventHandler handler)
{
    return core_->onEvent(std::move(handler));
}

std::string Camera::flight() const
{
    return core_->flight();
}

Cooler& Camera::cooler()
{
    return core_->cooler();
}

Size Camera::sensor() const
{
    return core_->sensor();
}

const Identity& Camera::identity() const
{
    return core_->identity();
}

std::string Camera::target() const
{
    return core_->target().text();
}

std::string Camera::address() const
{
    return core_->address();
}

Statistics Camera::statistics() const
{
    return core_->statistics();
}

double Camera::timeScale() const
{
    return core_->timeScale();
}

int Camera::handle() const
{
    return core_->isClosed() ? -1 : core_->handle();
}

} // namespace vxcam

#include <vxcamkit/stream.h>

#include "readout/stream_core.h"

namespace vxcam {

const char* nameOf(ReadoutEnd end)
{
    switch (end) {
    case ReadoutEnd::Complete:
        return "complete";
    case ReadoutEnd::Incomplete:
        return "incomplete";
    case ReadoutEnd::TimedOut:
        return "timed-out";
    case ReadoutEnd::Aborted:
        return "aborted";
    case ReadoutEnd::LinkLost:
        return "link-lost";
    case ReadoutEnd::CameraError:
        return "camera-error";
    case ReadoutEnd::Closed:
        return "closed";
    case ReadoutEnd::Running:
        break;
    }
    return "running";
}

Stream::Stream(std::shared_ptr<StreamCore> core) : core_(std::move(core)) {}
Stream::Stream(Stream&& other) noexcept = default;

Stream::~Stream()
{
    if (core_) core_->stop();
}

Stream& Stream::operator=(Stream&& other) noexcept
{
    if (this != &other) {
        if (core_) core_->stop();
        core_ = std::move(other.core_);
    }
    return *this;
}

std::optional<Frame> Stream::next(std::chrono::milliseconds wait)
{
    return core_->next(SteadyTime(std::chrono::steady_clock::now() + wait));
}

std::optional<Frame> Stream::next()
{
    return core_->next(std::nullopt);
}

void Stream::stop()
{
    core_->stop();
}

ReadoutEnd Stream::end() const
{
    return core_->end();
}

std::string Stream::endText() const
{
    return core_->endText();
}

StreamBooks Stream::books() const
{
    return core_->books();
}

Progress Stream::progress() const
{
    return core_->progress();
}

namespace {

std::string incompleteText(const FrameFacts& facts)
{
    return facts.target + ": frame " + std::to_string(facts.number) +
           " is incomplete: " + std::to_string(facts.packetsMissing) + " of " +
           std::to_string(facts.packetsExpected) + " packets are missing, " +
           std::to_string(facts.packetsDamaged) + " damaged, " +
           std::to_string(facts.packetsMisplaced) + " misplaced";
}

} // namespace

IncompleteFrame::IncompleteFrame(Frame frame)
    : Error(ErrorKind::Incomplete, incompleteText(frame.facts())), frame_(std::move(frame))
{}

IncompleteFrame::~IncompleteFrame() = default;

} // namespace vxcam

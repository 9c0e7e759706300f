#include "frame_ring.h"

#include <vxcamkit/error.h>

#include <algorithm>

namespace vxcam {

namespace {

int indexOf(const Frame& frame)
{
    return frame.facts().number - 1;
}

} // namespace

FrameRing::FrameRing(size_t frames, size_t bytes)
    : frames_(std::max<size_t>(frames, 1)), bytes_(bytes)
{}

void FrameRing::clear()
{
    std::deque<Frame> old; // let go without the lock
    const std::lock_guard<std::mutex> guard(lock_);
    old.swap(held_);
    heldBytes_ = 0;
}

void FrameRing::add(const Frame& frame)
{
    std::deque<Frame> old;
    const std::lock_guard<std::mutex> guard(lock_);
    held_.push_back(frame);
    heldBytes_ += frame.bytes();
    while (held_.size() > 1 && (held_.size() > frames_ || heldBytes_ > bytes_)) {
        heldBytes_ -= held_.front().bytes();
        old.push_back(std::move(held_.front()));
        held_.pop_front();
    }
}

std::optional<Frame> FrameRing::last() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (held_.empty()) return std::nullopt;
    return held_.back();
}

int FrameRing::lastIndex() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return held_.empty() ? -1 : indexOf(held_.back());
}

size_t FrameRing::size() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return held_.size();
}

Frame FrameRing::at(int index) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = std::find_if(held_.begin(), held_.end(),
                                    [&](const Frame& frame) { return indexOf(frame) == index; });
    if (found != held_.end()) return *found;
    throw Error(ErrorKind::Usage,
                "image " + std::to_string(index) + " is not held: " +
                    (held_.empty() ? std::string("none came yet")
                                   : std::to_string(indexOf(held_.front())) + " to " +
                                         std::to_string(indexOf(held_.back())) + " are"));
}

} // namespace vxcam

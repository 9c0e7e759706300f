#include "readout/exposure_clock.h"

#include <algorithm>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr int64_t kClockTolerance = 10000; // one part in so many: what a camera's clock may be off
constexpr nanoseconds kDelayMargin = milliseconds(1);
constexpr nanoseconds kTriggerMargin = milliseconds(5); // of a trigger that nobody told of
constexpr nanoseconds kRounding(1000);

constexpr size_t kRecent = 4, kRemembered = 64; // frames that are looked back on
constexpr size_t kMostTriggers = 4096;

nanoseconds shortened(nanoseconds time)
{
    return time - time / kClockTolerance;
}

UtcTime utcOf(SteadyTime time, const Moment& reference)
{
    return reference.utc + (time - reference.steady);
}

} // namespace

ExposureClock::ExposureClock(const ExposurePlan& plan) : plan_(plan) {}

uint64_t ExposureClock::triggerBegins(bool isActive, SteadyTime now)
{
    std::lock_guard<std::mutex> guard(lock_);
    triggers_.push_back({isActive, now, SteadyTime::max()});
    if (triggers_.size() > kMostTriggers) {
        triggers_.pop_front();
        ++droppedTriggers_;
    }
    return droppedTriggers_ + triggers_.size() - 1;
}

void ExposureClock::triggerEnds(uint64_t number, SteadyTime now)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (number >= droppedTriggers_) triggers_[number - droppedTriggers_].done = now;
}

bool ExposureClock::isTriggered(int number) const
{
    return plan_.eachIsTriggered || (plan_.firstIsTriggered && number == 1);
}

ExposureClock::Span ExposureClock::exposureFloor() const
{
    return plan_.lengthIsTriggered ? Span(0) : shortened(plan_.exposure);
}

ExposureClock::Span ExposureClock::spacing() const
{
    if (plan_.eachIsTriggered) return exposureFloor();
    return std::max(exposureFloor(), shortened(plan_.interval));
}

// The most that recent frames came too early or too late by, as seen from the ones before them.
ExposureClock::Span ExposureClock::unrest() const
{
    Span most(0);
    for (size_t i = 1; i < seen_.size(); ++i) {
        const Span step = spacing() * (seen_[i].number - seen_[i - 1].number);
        const Span off = seen_[i].latest - seen_[i - 1].latest - step;
        most = std::max(most, off < Span(0) ? -off : off);
    }
    return most;
}

// What follows for this frame from the recent one that was the quickest.
SteadyTime ExposureClock::recentBound(int number) const
{
    SteadyTime least = SteadyTime::max();
    size_t count = 0;
    for (auto one = seen_.rbegin(); one != seen_.rend() && count < kRecent; ++one, ++count) {
        least = std::min(least, one->quickest + spacing() * (number - one->number));
    }
    return least - *floor_ - unrest();
}

// A frame that follows another one without a trigger.
ExposureClock::Bounds ExposureClock::follow(const FrameMoments& frame, FrameTimes::How* how)
{
    Bounds bounds{frame.commandBegun.steady, frame.firstPacket.steady - exposureFloor()};
    *how = FrameTimes::How::Bounded;
    if (!last_) return bounds; // frames before it were never seen
    const int steps = frame.number - lastNumber_;
    bounds.low = std::max(bounds.low, last_->low + spacing() * steps);
    // The camera had sent the frame before when the interval was over: that alone decided.
    const bool isPaced =
        steps == 1 && plan_.interval > plan_.exposure && lastPacket_ <= last_->low + plan_.interval;
    if (isPaced) *how = FrameTimes::How::Interval;
    if (floor_ && !isHeld_) bounds.low = std::max(bounds.low, recentBound(frame.number));
    return bounds;
}

// A frame that an external trigger began. Of the commands that made the trigger active, the first
// one that can have been it bounds its begin; where it is the only one, on both sides.
ExposureClock::Bounds ExposureClock::triggered(const FrameMoments& frame,
                                               std::optional<Span>* exposure)
{
    Bounds bounds{frame.commandBegun.steady, frame.firstPacket.steady - exposureFloor()};
    if (last_) bounds.low = std::max(bounds.low, last_->low + spacing());
    std::lock_guard<std::mutex> guard(lock_);
    const Trigger* first = nullptr;
    size_t candidates = 0;
    std::optional<SteadyTime> released;
    for (uint64_t i = std::max(nextTrigger_, droppedTriggers_);
         i - droppedTriggers_ < triggers_.size(); ++i) {
        const Trigger& command = triggers_[i - droppedTriggers_];
        if (command.begun > frame.firstPacket.steady) break;
        if (!command.isActive && first != nullptr && !released) released = command.begun;
        if (!command.isActive || command.done < bounds.low) continue;
        if (first == nullptr) {
            first = &command;
            nextTrigger_ = i + 1;
        }
        ++candidates;
    }
    if (first == nullptr) { // from outside
        if (plan_.lengthIsTriggered || isHeld_) return bounds;
        const Span delay = floor_.value_or(plan_.delay + kDelayMargin) + kTriggerMargin;
        bounds.low = std::max(bounds.low, frame.earliestPacket() - exposureFloor() - delay);
        return bounds;
    }
    bounds.low = std::max(bounds.low, first->begun);
    if (candidates == 1) bounds.high = std::min(bounds.high, first->done);
    if (plan_.lengthIsTriggered && released && candidates == 1)
        *exposure = *released - first->begun;
    return bounds;
}

FrameTimes ExposureClock::timesOf(const FrameMoments& frame, std::optional<Span>* exposure)
{
    FrameTimes times;
    times.commandSent = frame.commandSent;
    times.firstPacket = frame.firstPacket;
    times.lastPacket = frame.lastPacket;
    isHeld_ = isHeld_ || frame.wasHeld;
    Bounds bounds{};
    seen_.push_back({frame.number, frame.firstPacket.steady - exposureFloor(),
                     frame.earliestPacket() - exposureFloor()});
    if (seen_.size() > kRemembered) seen_.pop_front();
    if (isTriggered(frame.number)) {
        bounds = triggered(frame, exposure);
        times.how = FrameTimes::How::Triggered;
    } else if (frame.number == 1) {
        bounds = {frame.commandBegun.steady, frame.firstPacket.steady - exposureFloor()};
        times.how = FrameTimes::How::Commanded;
    } else {
        bounds = follow(frame, &times.how);
    }
    if (bounds.high < bounds.low) std::swap(bounds.low, bounds.high);
    if (!last_) floor_ = bounds.high - bounds.low + kDelayMargin;
    last_ = bounds;
    lastNumber_ = frame.number;
    lastPacket_ = frame.lastPacket.known ? frame.lastPacket.steady : frame.firstPacket.steady;

    const Span exposed = exposure->value_or(plan_.lengthIsTriggered ? Span(0) : plan_.exposure);
    const SteadyTime begin = bounds.low + (bounds.high - bounds.low) / 2;
    times.uncertainty = (bounds.high - bounds.low) / 2 + kRounding;
    times.begin = utcOf(begin, frame.firstPacket);
    times.middle = times.begin + exposed / 2;
    times.end = times.begin + exposed;
    return times;
}

} // namespace vxcam

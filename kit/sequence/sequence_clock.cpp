#include "sequence/sequence_clock.h"

#include <algorithm>

namespace vxcam {

namespace {

bool isFrame(const SequenceUnit& unit)
{
    return unit.kind == SequenceUnit::Kind::Frame;
}

} // namespace

SequenceClock::Time SequenceClock::costOf(const SequenceUnit& unit) const
{
    const std::chrono::duration<double, std::nano> cost = vxcam::costOf(unit, sensor_);
    return std::chrono::duration_cast<Time>(cost / scale_);
}

SequenceClock::Time SequenceClock::more() const
{
    return measured_ > 0 ? more_ / measured_ : Time(0);
}

SequenceClock::Time SequenceClock::elapsed() const
{
    return begun_ ? Time(Clock::now() - *begun_) : Time(0);
}

void SequenceClock::wasDone(const SequenceUnit& unit)
{
    spent_ += costOf(unit);
}

void SequenceClock::isLeft(const SequenceUnit& unit)
{
    left_ += costOf(unit);
    framesLeft_ += isFrame(unit);
}

void SequenceClock::begin(const SequenceUnit& unit)
{
    begun_ = Clock::now();
    expected_ = costOf(unit) + (isFrame(unit) ? more() : Time(0));
}

void SequenceClock::end(const SequenceUnit& unit)
{
    const Time taken = elapsed(), cost = costOf(unit);
    begun_.reset();
    spent_ += taken;
    left_ -= cost;
    if (!isFrame(unit)) return;
    more_ += taken - cost;
    ++measured_;
    --framesLeft_;
}

void SequenceClock::beginAgain(const SequenceUnit& unit)
{
    begin(unit);
    again_ = expected_;
}

void SequenceClock::endAgain()
{
    spent_ += elapsed();
    drop();
}

void SequenceClock::drop()
{
    begun_.reset();
    again_ = Time(0);
}

SequenceProgress SequenceClock::progress() const
{
    const Time under = elapsed(), rest = left_ + again_ + more() * framesLeft_;
    const Time left = std::max(Time(0), rest - std::min(under, expected_));
    const Time spent = spent_ + under, all = spent + left;
    SequenceProgress progress;
    progress.left = std::chrono::duration_cast<std::chrono::milliseconds>(left);
    if (all.count() > 0) {
        progress.done = static_cast<double>(spent.count()) / static_cast<double>(all.count());
    }
    return progress;
}

} // namespace vxcam

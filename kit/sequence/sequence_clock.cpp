#include "sequence/sequence_clock.h"

#include <algorithm>

namespace vxcam {

namespace {

bool isFrame(const SequenceUnit& unit)
{
    return unit.kind == SequenceUnit::Kind::Frame;
}

// Whether another one of the same step takes as long: a temperature is reached only once.
bool isLikeOthers(const SequenceUnit& unit)
{
    return isFrame(unit) || unit.kind == SequenceUnit::Kind::Hook;
}

} // namespace

SequenceClock::Time SequenceClock::costOf(const SequenceUnit& unit) const
{
    const std::chrono::duration<double, std::nano> cost = vxcam::costOf(unit, sensor_);
    return std::chrono::duration_cast<Time>(cost / scale_);
}

SequenceClock::Time SequenceClock::framesThought(Time cost, int frames) const
{
    if (fastCost_ > Time(0)) {
        const std::chrono::duration<double, std::nano> whole = cost;
        const auto part =
            static_cast<double>(fastTaken_.count()) / static_cast<double>(fastCost_.count());
        return std::chrono::duration_cast<Time>(whole * part);
    }
    const Time more = measured_ > 0 ? more_ / measured_ : Time(0);
    return std::max(Time(0), cost + more * frames);
}

SequenceClock::Time SequenceClock::thought(const SequenceUnit& unit) const
{
    const auto known = known_.find({unit.step, unit.kind});
    if (known != known_.end()) return known->second.each();
    return isFrame(unit) ? framesThought(costOf(unit), 1) : costOf(unit);
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
    ++left_[{unit.step, unit.kind}];
    (isFrame(unit) ? frameCost_ : otherCost_) += costOf(unit);
    framesLeft_ += isFrame(unit);
}

void SequenceClock::begin(const SequenceUnit& unit)
{
    begun_ = Clock::now();
    expected_ = thought(unit);
}

void SequenceClock::end(const SequenceUnit& unit)
{
    const bool isMeasured = begun_.has_value();
    const Time taken = elapsed();
    begun_.reset();
    spent_ += taken;
    const Thing thing(unit.step, unit.kind);
    auto known = known_.find(thing);
    if (known == known_.end()) {
        const bool isLearned = isMeasured && isLikeOthers(unit);
        const int left = left_[thing], gone = isLearned ? left : 1;
        (isFrame(unit) ? frameCost_ : otherCost_) -= costOf(unit) * gone;
        if (isFrame(unit)) framesLeft_ -= gone;
        left_[thing] -= gone;
        if (left_[thing] == 0) left_.erase(thing);
        if (!isLearned) return;
        known = known_.emplace(thing, Known{left, 0, Time(0)}).first;
    }
    --known->second.left;
    if (isMeasured) {
        ++known->second.done;
        known->second.taken += taken;
        learn(unit, taken);
    }
    if (known->second.left == 0) known_.erase(known);
}

// What a frame says of those of other steps. The exposure of one that is to have a level is found
// on the way.
void SequenceClock::learn(const SequenceUnit& unit, Time taken)
{
    if (!isFrame(unit) || unit.step->level.mean > 0) return;
    const std::chrono::duration<double, std::nano> exposure =
        unit.step->plan.exposure.value_or(std::chrono::microseconds(0));
    if (taken < exposure / scale_) {
        fastTaken_ += taken;
        fastCost_ += costOf(unit);
    } else {
        more_ += taken - costOf(unit);
        ++measured_;
    }
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

SequenceClock::Time SequenceClock::rest() const
{
    Time rest = otherCost_ + framesThought(frameCost_, framesLeft_) + again_;
    for (const auto& one : known_) {
        rest += one.second.each() * one.second.left;
    }
    return rest;
}

SequenceProgress SequenceClock::progress() const
{
    const Time under = elapsed();
    const Time left = std::max(Time(0), rest() - std::min(under, expected_));
    const Time spent = spent_ + under, all = spent + left;
    SequenceProgress progress;
    progress.left = std::chrono::duration_cast<std::chrono::milliseconds>(left);
    if (all.count() > 0) {
        progress.done = static_cast<double>(spent.count()) / static_cast<double>(all.count());
    }
    return progress;
}

} // namespace vxcam

#include "cooling/ramp.h"

#include "values/decimals.h"

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr double kMinute = 60;    // seconds
constexpr double kStep = 0.1;     // of a set point, degrees
constexpr double kProgress = 0.2; // degrees nearer that count as such
constexpr double kLag = 1.0;      // behind the set point, beyond the tolerance, while it moves
constexpr double kRounding = 1e-6;
constexpr int kLooks = 3; // at the least, before a sensor is said to stay where it is

double inSteps(double degrees)
{
    return std::round(degrees / kStep) * kStep;
}

std::string degreesText(double degrees)
{
    return fixedText(degrees, 1) + " C";
}

} // namespace

const char* nameOf(CoolingPhase phase)
{
    switch (phase) {
    case CoolingPhase::Ramping:
        return "ramping";
    case CoolingPhase::Settling:
        return "settling";
    case CoolingPhase::Settled:
        return "settled";
    case CoolingPhase::WarmingUp:
        return "warming-up";
    case CoolingPhase::Warm:
        return "warm";
    case CoolingPhase::Failed:
        return "failed";
    case CoolingPhase::Idle:
        break;
    }
    return "idle";
}

Ramp::Ramp(const Cooling& cooling, Time silence)
    : isWarming_(false), rampRate_(cooling.ramp / kMinute), tolerance_(cooling.tolerance),
      settle_(cooling.settle), patience_(cooling.patience), silence_(std::max(patience_, silence))
{
    state_.phase = CoolingPhase::Ramping;
    state_.target = inSteps(cooling.target);
    describe();
}

Ramp::Ramp(const Warming& warming, Time silence)
    : isWarming_(true), rampRate_(warming.ramp / kMinute), tolerance_(kStep), settle_(0),
      patience_(warming.patience), silence_(std::max(patience_, silence))
{
    state_.phase = CoolingPhase::WarmingUp;
    state_.target = inSteps(warming.target);
    describe();
}

bool Ramp::isWatching() const
{
    return state_.phase != CoolingPhase::Warm && state_.phase != CoolingPhase::Failed;
}

void Ramp::fail(const std::string& text)
{
    state_.phase = CoolingPhase::Failed;
    state_.text = text;
}

Ramp::Orders Ramp::step(Time now, std::optional<double> temperature, bool isNew)
{
    state_.temperature = temperature;
    if (!isWatching()) return {};
    if (!temperature) {
        if (!silentSince_) silentSince_ = now;
        if (now - *silentSince_ > silence_) fail("the camera tells no temperature of its sensor");
        return {};
    }
    if (silentSince_ && began_) passOver(now - *silentSince_);
    silentSince_.reset();
    const bool isFirst = !began_;
    Orders orders = isFirst ? begin(now, *temperature) : move(now);
    if (isNew || isFirst) {
        if (isWarming_) {
            judgeWarm(&orders, now, *temperature);
        } else {
            judge(now, *temperature);
        }
    }
    if (state_.phase != CoolingPhase::Failed) describe();
    return orders;
}

Ramp::Orders Ramp::begin(Time now, double temperature)
{
    began_ = now;
    from_ = temperature;
    noteProgress(now, temperature);
    state_.setPoint = rampRate_ > 0 ? inSteps(temperature) : state_.target;
    if (isWarming_ && rampRate_ == 0) return {std::nullopt, false};
    return {state_.setPoint, true};
}

// Time in which nothing was told and no order given counts for nothing.
void Ramp::passOver(Time silence)
{
    *began_ += silence;
    bestTime_ += silence;
    if (within_) *within_ += silence;
}

void Ramp::noteProgress(Time now, double temperature)
{
    best_ = temperature;
    bestTime_ = now;
    lookedSince_ = 0;
}

// The set point where the ramp has it now.
Ramp::Orders Ramp::move(Time now)
{
    if (rampRate_ == 0 || state_.setPoint == state_.target) return {};
    const double way = rampRate_ * (now - *began_).count();
    const double next = inSteps(state_.target < from_ ? std::max(from_ - way, state_.target)
                                                      : std::min(from_ + way, state_.target));
    if (std::abs(next - state_.setPoint) < kStep / 2) return {};
    state_.setPoint = std::abs(next - state_.target) < kStep / 2 ? state_.target : next;
    return {state_.setPoint, std::nullopt};
}

// Whether the sensor has not come nearer for as long as that may take.
bool Ramp::isStuck(Time now, double temperature)
{
    ++lookedSince_;
    if (std::abs(temperature - state_.target) < std::abs(best_ - state_.target) - kProgress) {
        noteProgress(now, temperature);
    }
    return now - bestTime_ > patience_ && lookedSince_ >= kLooks;
}

void Ramp::judge(Time now, double temperature)
{
    const bool isThere = state_.setPoint == state_.target;
    const double away = std::abs(temperature - state_.target);
    const double way = std::abs(from_ - state_.target);
    state_.done = way > tolerance_ ? std::clamp(1 - away / way, 0.0, 1.0) : 1;
    if (isThere && away <= tolerance_ + kRounding) {
        if (!within_) within_ = now;
        const bool isSettled = now - *within_ >= settle_;
        state_.phase = isSettled ? CoolingPhase::Settled : CoolingPhase::Settling;
        if (isSettled) state_.done = 1;
        noteProgress(now, temperature);
        return;
    }
    if (within_) noteProgress(now, temperature); // it was there, and has left again
    within_.reset();
    state_.phase = isThere ? CoolingPhase::Settling : CoolingPhase::Ramping;
    const bool isBehind = isThere || std::abs(temperature - state_.setPoint) > tolerance_ + kLag;
    if (!isBehind) {
        noteProgress(now, temperature);
    } else if (isStuck(now, temperature)) {
        fail("out of reach: the sensor stays at " + degreesText(temperature) + ", " +
             degreesText(away) + " from the target of " + degreesText(state_.target));
    }
}

// Warm is a sensor that has reached the target, or that gets no warmer.
void Ramp::judgeWarm(Orders* orders, Time now, double temperature)
{
    const double away = std::max(0.0, state_.target - temperature);
    const double way = std::max(0.0, state_.target - from_);
    state_.done = way > 0 ? std::clamp(1 - away / way, 0.0, 1.0) : 1;
    const bool isBehind = rampRate_ == 0 || state_.setPoint - temperature > kLag;
    if (!isBehind) noteProgress(now, temperature);
    if (away > tolerance_ + kRounding && !(isBehind && isStuck(now, temperature))) return;
    orders->setPoint.reset();
    orders->cooling = false;
    state_.phase = CoolingPhase::Warm;
    state_.done = 1;
}

void Ramp::describe()
{
    const std::string now =
        state_.temperature ? degreesText(*state_.temperature) : "no temperature yet";
    const bool isMoving = state_.setPoint != state_.target && began_;
    state_.text = now + (isMoving ? ", set to " + degreesText(state_.setPoint) : "") + ", target " +
                  degreesText(state_.target);
}

} // namespace vxcam

#include "sequence/sequence_units.h"

#include <vxcamkit/duration.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vxcam {

namespace {

using std::chrono::milliseconds;

constexpr int kBinnedBytes = 4;
constexpr uint64_t kHeaderBytes = 4 * 2880, kBlock = 2880;
constexpr double kBytesEachMs = 100000; // of a readout, until one is seen
constexpr milliseconds kReadoutMore(100);
constexpr double kAmbient = 20; // degrees Celsius, where a way down is thought to begin
constexpr milliseconds kCoolingAtOnce(60000);

int dithersOf(const SequenceStep& step)
{
    return step.dither.command.empty() ? 0 : (step.count - 1) / step.ditherEvery;
}

// At most one more than may be.
int64_t unitCount(const std::vector<SequenceStep>& steps)
{
    int64_t count = 0;
    for (const SequenceStep& step : steps) {
        int64_t more = 1;
        if (step.kind == SequenceStep::Kind::Frames) {
            more = int64_t{step.count} + dithersOf(step) + (step.settings.empty() ? 0 : 1);
        } else if (step.kind == SequenceStep::Kind::Repeat) {
            more = int64_t{step.count} * unitCount(step.steps);
        }
        count = std::min<int64_t>(count + more, kMostUnits + 1);
    }
    return count;
}

void requireFew(const SequencePlan& plan)
{
    if (unitCount(plan.steps) <= kMostUnits) return;
    const std::string text =
        "more than " + std::to_string(kMostUnits) + " things to do, repeats counted";
    throw SequenceError(plan.path, {{0, text}});
}

void expand(const std::vector<SequenceStep>& steps, std::vector<SequenceUnit>* units, int* frames);

void expandFrames(const SequenceStep& step, std::vector<SequenceUnit>* units, int* frames)
{
    using Kind = SequenceUnit::Kind;
    if (!step.settings.empty()) units->push_back({Kind::Set, &step, nullptr, 0});
    for (int i = 1; i <= step.count; ++i) {
        units->push_back({Kind::Frame, &step, nullptr, ++*frames});
        const bool isDithered = !step.dither.command.empty() && i % step.ditherEvery == 0;
        if (isDithered && i < step.count) units->push_back({Kind::Hook, &step, &step.dither, 0});
    }
}

void expandStep(const SequenceStep& step, std::vector<SequenceUnit>* units, int* frames)
{
    using Kind = SequenceUnit::Kind;
    switch (step.kind) {
    case SequenceStep::Kind::Frames:
        return expandFrames(step, units, frames);
    case SequenceStep::Kind::Set:
        return units->push_back({Kind::Set, &step, nullptr, 0});
    case SequenceStep::Kind::Cool:
        return units->push_back({Kind::Cool, &step, nullptr, 0});
    case SequenceStep::Kind::WarmUp:
        return units->push_back({Kind::WarmUp, &step, nullptr, 0});
    case SequenceStep::Kind::Delay:
        return units->push_back({Kind::Delay, &step, nullptr, 0});
    case SequenceStep::Kind::Hook:
        return units->push_back({Kind::Hook, &step, &step.hook, 0});
    case SequenceStep::Kind::Repeat:
        for (int i = 0; i < step.count; ++i) {
            expand(step.steps, units, frames);
        }
        return;
    }
}

void expand(const std::vector<SequenceStep>& steps, std::vector<SequenceUnit>* units, int* frames)
{
    for (const SequenceStep& step : steps) {
        expandStep(step, units, frames);
    }
}

milliseconds frameCost(const SequenceStep& step, const std::optional<Size>& sensor)
{
    const auto exposure = step.plan.exposure.value_or(std::chrono::microseconds(0));
    const auto bytes = static_cast<double>(bytesOf(step, sensor).value_or(0));
    return std::chrono::duration_cast<milliseconds>(exposure) + kReadoutMore +
           milliseconds(std::llround(bytes / kBytesEachMs));
}

milliseconds coolingCost(const SequenceStep& step)
{
    const Cooling& cooling = step.cooling;
    if (!step.waits) return milliseconds(0);
    constexpr double minute = 60000;
    const double way = std::abs(cooling.target - kAmbient);
    const milliseconds ramp =
        cooling.ramp > 0 ? milliseconds(std::llround(way / cooling.ramp * minute)) : kCoolingAtOnce;
    return ramp + (step.kind == SequenceStep::Kind::Cool ? cooling.settle : milliseconds(0));
}

// Of a step without frames.
milliseconds timeOf(const SequenceStep& step)
{
    using Kind = SequenceStep::Kind;
    if (step.kind == Kind::Cool || step.kind == Kind::WarmUp) return coolingCost(step);
    return step.kind == Kind::Delay ? step.delay : milliseconds(0);
}

void requireArea(const SequencePlan& plan, const SequenceStep& step,
                 const std::optional<Size>& sensor)
{
    if (!sensor || !step.plan.area || step.plan.area->fits(*sensor)) return;
    const std::string text = "the area reaches beyond the sensor of " +
                             std::to_string(sensor->columns) + " x " +
                             std::to_string(sensor->rows) + " pixels";
    throw SequenceError(plan.path, {{step.line, text}});
}

} // namespace

std::vector<SequenceUnit> unitsOf(const SequencePlan& plan)
{
    requireFew(plan);
    std::vector<SequenceUnit> units;
    int frames = 0;
    expand(plan.steps, &units, &frames);
    return units;
}

milliseconds costOf(const SequenceUnit& unit, const std::optional<Size>& sensor)
{
    using Kind = SequenceUnit::Kind;
    if (unit.kind == Kind::Frame) return frameCost(*unit.step, sensor);
    return unit.isCooling() || unit.kind == Kind::Delay ? timeOf(*unit.step) : milliseconds(0);
}

std::optional<uint64_t> bytesOf(const SequenceStep& step, const std::optional<Size>& sensor)
{
    const Plan& plan = step.plan;
    if (!plan.area && !sensor) return {};
    const Size size = plan.area ? plan.area->size() : *sensor;
    auto columns = static_cast<uint64_t>(size.columns), rows = static_cast<uint64_t>(size.rows);
    uint64_t pixelBytes = static_cast<uint64_t>(plan.bits) / 8;
    if (plan.kind == ReadoutKind::Binned) {
        columns = std::max<uint64_t>(columns / static_cast<uint64_t>(plan.binningX.value_or(1)), 1);
        rows = std::max<uint64_t>(rows / static_cast<uint64_t>(plan.binningY.value_or(1)), 1);
        pixelBytes = kBinnedBytes;
    }
    return kHeaderBytes + (columns * rows * pixelBytes + kBlock - 1) / kBlock * kBlock;
}

std::string fileOf(const SequenceUnit& unit)
{
    char number[16];
    std::snprintf(number, sizeof number, "-%04d.fits", unit.frame);
    return unit.step->name + number;
}

std::string textOf(const SequenceUnit& unit)
{
    switch (unit.kind) {
    case SequenceUnit::Kind::Frame:
        return unit.step->name + " " + std::to_string(unit.frame);
    case SequenceUnit::Kind::Set:
        return "settings";
    case SequenceUnit::Kind::Cool:
        return "temperature";
    case SequenceUnit::Kind::WarmUp:
        return "warm-up";
    case SequenceUnit::Kind::Delay:
        return "wait " + exactText(unit.step->delay);
    case SequenceUnit::Kind::Hook:
        break;
    }
    return (unit.hook == &unit.step->dither ? "dither '" : "run '") + unit.hook->command + "'";
}

int framesOf(const SequencePlan& plan)
{
    requireFew(plan);
    int frames = 0;
    forEachStep(plan.steps, [&](const SequenceStep& step, int times) {
        if (step.kind == SequenceStep::Kind::Frames) frames += times * step.count;
    });
    return frames;
}

// Each step is looked at once, however many frames it has.
SequenceNeeds needsOf(const SequencePlan& plan, const std::optional<Size>& camera)
{
    requireFew(plan);
    const std::optional<Size> sensor = camera ? camera : plan.sensor;
    SequenceNeeds needs;
    needs.bytes = 0;
    forEachStep(plan.steps, [&](const SequenceStep& step, int times) {
        if (step.kind != SequenceStep::Kind::Frames) {
            needs.duration += times * timeOf(step);
            if (step.kind == SequenceStep::Kind::Hook) needs.hooks += times;
            return;
        }
        requireArea(plan, step, sensor);
        const int frames = times * step.count;
        needs.frames += frames;
        needs.hooks += times * dithersOf(step);
        needs.duration += frames * frameCost(step, sensor);
        needs.exposure += frames * std::chrono::duration_cast<milliseconds>(
                                       step.plan.exposure.value_or(std::chrono::microseconds(0)));
        const std::optional<uint64_t> bytes = bytesOf(step, sensor);
        needs.bytes = needs.bytes && bytes
                          ? std::optional(*needs.bytes + *bytes * static_cast<uint64_t>(frames))
                          : std::nullopt;
    });
    return needs;
}

} // namespace vxcam

// A plan as the single things that are done, one after the other.
#ifndef VXCAMKIT_SEQUENCE_UNITS_H
#define VXCAMKIT_SEQUENCE_UNITS_H

#include <vxcamkit/sequence.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace vxcam {

inline constexpr int kMostUnits = 1000000;
inline constexpr const char* kSequenceCard = "SEQID";
inline constexpr const char* kSequenceNumberCard = "SEQFRAME";

// Points into the plan, which outlives it.
struct SequenceUnit {
    enum class Kind { Frame, Set, Cool, WarmUp, Delay, Hook };
    Kind kind = Kind::Frame;
    const SequenceStep* step = nullptr;
    const SequenceHook* hook = nullptr; // of a hook: the step's, or its dither
    int frame = 0;                      // of the sequence, from 1; of a frame

    // What is done once and stays done; the others put something into force.
    bool isKept() const { return kind == Kind::Frame || kind == Kind::Delay || kind == Kind::Hook; }
    bool isCooling() const { return kind == Kind::Cool || kind == Kind::WarmUp; }
};

// Calls of(step, how often it is done) for each step that is no repeat, in their order; of plans
// that have not too many units.
template <class Of>
void forEachStep(const std::vector<SequenceStep>& steps, const Of& of, int times = 1)
{
    for (const SequenceStep& step : steps) {
        if (step.kind != SequenceStep::Kind::Repeat) {
            of(step, times);
        } else if (!step.steps.empty()) {
            forEachStep(step.steps, of, times * step.count);
        }
    }
}

// Both throw SequenceError when there are too many units.
int framesOf(const SequencePlan& plan);
std::vector<SequenceUnit> unitsOf(const SequencePlan& plan);

// By the camera's clock, as far as it is known before.
std::chrono::milliseconds costOf(const SequenceUnit& unit, const std::optional<Size>& sensor);
std::optional<uint64_t> bytesOf(const SequenceStep& step, const std::optional<Size>& sensor);

std::string fileOf(const SequenceUnit& unit); // "light-0001.fits"
std::string textOf(const SequenceUnit& unit); // "light 1", for people

} // namespace vxcam

#endif

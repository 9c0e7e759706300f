// How far a sequence has come, by the time that its units take.
#ifndef VXCAMKIT_SEQUENCE_CLOCK_H
#define VXCAMKIT_SEQUENCE_CLOCK_H

#include "sequence/sequence_units.h"

#include <chrono>
#include <map>
#include <optional>
#include <utility>

namespace vxcam {

// What is done is known by what it took; of earlier runs, whose time nobody kept, by what it costs.
// What is left of a step takes as long as what is done of it in this run; before, what it costs and
// what frames took beyond that so far, or less by as much as the camera's clock is faster.
//
// Threads: one.
class SequenceClock
{
public:
    SequenceClock(Size sensor, double timeScale) : sensor_(sensor), scale_(timeScale) {}

    void wasDone(const SequenceUnit& unit); // by an earlier run
    void isLeft(const SequenceUnit& unit);

    void begin(const SequenceUnit& unit);      // one of those that are left
    void end(const SequenceUnit& unit);        // which took no time of its own, if it was dropped
    void beginAgain(const SequenceUnit& unit); // one that is done already
    void endAgain();
    void drop(); // what has begun came to nothing

    SequenceProgress progress() const; // of that, the time

private:
    using Clock = std::chrono::steady_clock;
    using Time = std::chrono::nanoseconds; // on the wall
    using Thing = std::pair<const SequenceStep*, SequenceUnit::Kind>;

    // What is done of a thing in this run, of which more is left.
    struct Known {
        int left = 0, done = 0;
        Time taken{0};
        Time each() const { return taken / done; }
    };

    Time costOf(const SequenceUnit& unit) const;
    Time thought(const SequenceUnit& unit) const; // that it takes
    Time framesThought(Time cost, int frames) const;
    void learn(const SequenceUnit& unit, Time taken);
    Time rest() const;
    Time elapsed() const;

    const Size sensor_;
    const double scale_;
    Time spent_{0};
    std::map<Thing, int> left_; // of which nothing is done yet
    std::map<Thing, Known> known_;
    Time frameCost_{0}, otherCost_{0};       // of what is in left_
    int framesLeft_ = 0;                     // there
    Time again_{0};                          // of what is done again
    Time expected_{0};                       // of what has begun
    std::optional<Clock::time_point> begun_; // nothing: nothing is under way
    Time more_{0};                           // that frames took beyond their costs
    int measured_ = 0;                       // of them
    Time fastTaken_{0}, fastCost_{0};        // of frames that took less than their exposure
};

} // namespace vxcam

#endif

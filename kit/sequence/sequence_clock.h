// How far a sequence has come, by the time that its units take.
#ifndef VXCAMKIT_SEQUENCE_CLOCK_H
#define VXCAMKIT_SEQUENCE_CLOCK_H

#include "sequence/sequence_units.h"

#include <chrono>
#include <optional>

namespace vxcam {

// What is left is known by what it costs, what is done by what it took; of earlier runs, whose time
// nobody kept, by what it costs, too. What frames take beyond their costs tells how long the rest
// takes.
//
// Threads: one.
class SequenceClock
{
public:
    SequenceClock(Size sensor, double timeScale) : sensor_(sensor), scale_(timeScale) {}

    void wasDone(const SequenceUnit& unit); // by an earlier run
    void isLeft(const SequenceUnit& unit);

    void begin(const SequenceUnit& unit); // one of those that are left
    void end(const SequenceUnit& unit);
    void beginAgain(const SequenceUnit& unit); // one that is done already
    void endAgain();
    void drop(); // what has begun came to nothing

    SequenceProgress progress() const; // of that, the time

private:
    using Clock = std::chrono::steady_clock;
    using Time = std::chrono::nanoseconds; // on the wall

    Time costOf(const SequenceUnit& unit) const;
    Time more() const; // that a frame is thought to take beyond its costs
    Time elapsed() const;

    const Size sensor_;
    const double scale_;
    Time spent_{0}, left_{0};
    Time again_{0};                          // of what is done again
    Time expected_{0};                       // of what has begun
    std::optional<Clock::time_point> begun_; // nothing: nothing is under way
    Time more_{0};                           // that all frames took beyond their costs
    int measured_ = 0, framesLeft_ = 0;
};

} // namespace vxcam

#endif

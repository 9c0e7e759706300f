// When frames were exposed: bounds from what a host can know.
//
// A host sees when it sent a command and when a frame's first packet came. The camera cannot have
// begun before the command left, nor have ended after the packet came; so the exposure lies
// between, and where in there cannot be known. Bounds that follow from this alone are certain.
//
// Frames that follow others have no command. They begin no sooner than the image interval (or at
// least the exposure) behind the one before, which is certain as well; but a camera that is late
// every time, as each is by a little, leaves that bound further and further behind. So something is
// assumed: that of the last four frames one came as quickly after its end as the readout's first
// one did, give or take a millisecond and the most that a recent frame came too early or too late
// by. Where the camera was held back, that is not assumed. Nor is a frame taken for one that came
// quickly that may have waited unread in the host: it counts as of the moment when it had not come.
#ifndef VXCAMKIT_EXPOSURE_CLOCK_H
#define VXCAMKIT_EXPOSURE_CLOCK_H

#include <vxcamkit/frame_times.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>

namespace vxcam {

// How frames of one readout come to be exposed, by the clock on the wall.
struct ExposurePlan {
    std::chrono::nanoseconds exposure{0};
    std::chrono::nanoseconds interval{0};
    std::chrono::nanoseconds delay{0}; // of an answer of this camera: there and back
    bool firstIsTriggered = false, eachIsTriggered = false;
    bool lengthIsTriggered = false; // exposed while the trigger is active: `exposure` means nothing
};

struct FrameMoments {
    int number = 0; // within the readout, from 1
    Moment commandBegun, commandSent, firstPacket, lastPacket;
    bool wasHeld = false;      // the camera was held back since the frame before
    Moment firstPacketAfter{}; // known: the first packet may have waited to be read since then

    SteadyTime earliestPacket() const
    {
        return firstPacketAfter.known ? firstPacketAfter.steady : firstPacket.steady;
    }
};

// Threads: timesOf() on one, those of triggers on any. Locks: its own, for the triggers.
class ExposureClock
{
public:
    explicit ExposureClock(const ExposurePlan& plan);

    // A command that makes the trigger active, or inactive, is about to be sent: its number. And
    // the camera has answered to something that was sent later.
    uint64_t triggerBegins(bool isActive, SteadyTime now);
    void triggerEnds(uint64_t number, SteadyTime now);

    // Of each frame in turn; numbers may be left out. `exposure` gets the frame's, where triggers
    // decide on it and are known.
    FrameTimes timesOf(const FrameMoments& frame,
                       std::optional<std::chrono::nanoseconds>* exposure);

private:
    using Span = std::chrono::nanoseconds;
    struct Bounds {
        SteadyTime low, high; // of the begin
    };
    struct Trigger {
        bool isActive;
        SteadyTime begun, done; // it reached the camera between these
    };
    struct Seen {
        int number;
        SteadyTime latest;   // that it can have begun
        SteadyTime quickest; // that it can have begun if it came at once
    };

    bool isTriggered(int number) const;
    Span exposureFloor() const; // as short as the camera's clock may make it
    Span spacing() const;       // of two begins, at least
    Bounds follow(const FrameMoments& frame, FrameTimes::How* how);
    Bounds triggered(const FrameMoments& frame, std::optional<Span>* exposure);
    Span unrest() const;
    SteadyTime recentBound(int number) const;

    const ExposurePlan plan_;
    std::optional<Span> floor_;  // a frame's delay, that is not exceeded for long
    bool isHeld_ = false;        // since some frame of this readout
    std::optional<Bounds> last_; // of the frame before
    int lastNumber_ = 0;
    SteadyTime lastPacket_; // of the frame before
    std::deque<Seen> seen_;

    std::mutex lock_;
    std::deque<Trigger> triggers_;
    uint64_t droppedTriggers_ = 0; // from the front
    uint64_t nextTrigger_ = 0;     // the first one that may have started the next frame
};

} // namespace vxcam

#endif

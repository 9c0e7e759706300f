// A readout under way.
#ifndef VXCAMKIT_STREAM_H
#define VXCAMKIT_STREAM_H

#include <vxcamkit/error.h>
#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/plan.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vxcam {

class StreamCore;

// What became of a readout's frames so far.
struct StreamBooks {
    uint64_t complete = 0;   // came with all their pixels
    uint64_t incomplete = 0; // came, and are marked
    uint64_t dropped = 0;    // came when no buffer was free, see WhenFull::DropNewest
    uint64_t taken = 0;      // of those that came, handed to the consumer
};

// Where the frame is that runs now.
struct Progress {
    enum class Phase { Waiting, Exposing, Exposed, Reading, Ended }; // Waiting: for a trigger
    Phase phase = Phase::Ended;
    int frame = 0;                         // from 1
    double done = 0;                       // of this phase, 0 to 1
    std::chrono::milliseconds elapsed{0};  // of the exposure, by the clock on the wall
    std::chrono::milliseconds exposure{0}; // likewise
};

// The frames of one readout, in order.
//
// Threads: one consumer; stop(), end(), books() and progress() on any.
// Owns: the readout. It may outlive the camera, whose closing ends it.
class VXCAMKIT_EXPORT Stream
{
public:
    explicit Stream(std::shared_ptr<StreamCore> core); // of Camera::stream()
    ~Stream();                                         // as stop()
    Stream(Stream&& other) noexcept;
    Stream& operator=(Stream&& other) noexcept;

    // Waits for the next frame; nothing at the end: behind the last frame, or after stop(). Frames
    // that are incomplete come, too. Frames that came before a failure come first.
    //
    // Throws Error when the readout failed, once and again: Timeout, LinkLost, Camera, Aborted (by
    // others, or closed), Incomplete (frames never came). Also Error{Timeout} when `wait` is over;
    // the readout goes on then, end() is Running, and the next call waits for the same frame.
    std::optional<Frame> next(std::chrono::milliseconds wait);
    std::optional<Frame> next();

    // Ends the readout, unless it has ended. Frames that came before can still be taken.
    void stop();

    ReadoutEnd end() const;
    // As an Error would say it; empty while it runs, when complete, and where frames came
    // incomplete or were dropped, which is no failure.
    std::string endText() const;
    StreamBooks books() const;
    Progress progress() const;

private:
    std::shared_ptr<StreamCore> core_;
};

// A frame came without all of its pixels, or some in a wrong place; which ones, its facts say.
class VXCAMKIT_EXPORT IncompleteFrame : public Error
{
public:
    explicit IncompleteFrame(Frame frame);
    ~IncompleteFrame() override;

    const Frame& frame() const { return frame_; }

private:
    Frame frame_;
};

} // namespace vxcam

#endif

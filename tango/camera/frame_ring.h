// The latest frames of an acquisition.
#ifndef VXCAMERA_FRAME_RING_H
#define VXCAMERA_FRAME_RING_H

#include <vxcamkit/frame.h>

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

namespace vxcam {

// Frames by their index: 0 is the first of the acquisition.
//
// Threads: any.
class FrameRing
{
public:
    // So many frames at most, and no more than so many bytes of pixels, but always one.
    FrameRing(size_t frames, size_t bytes);

    void clear();
    void add(const Frame& frame);

    std::optional<Frame> last() const; // nothing: none came
    int lastIndex() const;             // -1: none came
    size_t size() const;
    // Throws Error{Usage} for one that did not come yet or is not held any more.
    Frame at(int index) const;

private:
    const size_t frames_, bytes_;
    mutable std::mutex lock_;
    std::deque<Frame> held_;
    size_t heldBytes_ = 0;
};

} // namespace vxcam

#endif

// The newest frame of a camera, for watchers.
#ifndef VXCAMD_FEED_H
#define VXCAMD_FEED_H

#include <vxcamkit/frame.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

namespace vxcam {

// A frame, and the how-manieth it is of its camera since the server was started.
struct FedFrame {
    Frame frame;
    uint64_t number = 0;
    uint64_t exposure = 0;
};

// Watchers that are slow miss frames, and hold up nobody.
//
// Threads: any. Locks: its own.
class Feed
{
public:
    void put(const Frame& frame, uint64_t exposure);
    // The newest one, if it is newer than that; waits for it, for at most so long.
    std::optional<FedFrame> newer(uint64_t than, std::chrono::milliseconds most) const;
    uint64_t last() const; // number of the newest one; 0: none yet

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::optional<FedFrame> newest_;
    uint64_t last_ = 0;
};

} // namespace vxcam

#endif

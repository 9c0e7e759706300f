// The memory of frames, used again and again.
#ifndef VXCAMKIT_FRAME_POOL_H
#define VXCAMKIT_FRAME_POOL_H

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace vxcam {

// Memory of a frame, aligned for direct writing to disks. Throws std::bad_alloc.
std::shared_ptr<void> allocateFrame(size_t bytes);

// A number of buffers of one size. Memory is taken from the system as it is written to.
//
// Threads: any. Locks: its own, never held while calling out.
// Owns: the buffers; one that is claimed keeps the pool alive.
class FramePool : public std::enable_shared_from_this<FramePool>
{
public:
    FramePool(size_t bytes, int count);
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;

    size_t bytes() const { return bytes_; } // of a buffer
    int count() const { return static_cast<int>(buffers_.size()); }
    int claimed() const;

    // A buffer, which comes back when nobody holds it any more; the one that came back last, as it
    // is warm. Null when none is free.
    std::shared_ptr<void> claim();

    // Called whenever a buffer has come back, on the thread that let it go. Null: nobody. The one
    // that is replaced does not run any more when this returns.
    void whenReturned(std::function<void()> handler);

private:
    void giveBack(void* buffer);

    const size_t bytes_;
    std::vector<std::shared_ptr<void>> buffers_;
    mutable std::mutex lock_;
    std::vector<void*> free_;
    std::mutex handlerLock_; // held while it runs
    std::function<void()> handler_;
};

} // namespace vxcam

#endif

// The memory of frames, used again and again.
#ifndef VXCAMKIT_FRAME_POOL_H
#define VXCAMKIT_FRAME_POOL_H

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

namespace vxcam {

// Memory of a frame, aligned for direct writing to disks. Throws std::bad_alloc.
std::shared_ptr<void> allocateFrame(size_t bytes);

// A number of buffers of one size, which frames hold in turn. Memory is taken from the system as it
// is written to.
//
// Threads: any. Locks: one for its figures, never held while calling out, and one while a handler
//   runs.
// Owns: the buffers; one that is held keeps the pool alive.
class FramePool : public std::enable_shared_from_this<FramePool>
{
public:
    FramePool(size_t bytes, int count);
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;

    size_t bytes() const { return bytes_; } // of a buffer
    int count() const { return static_cast<int>(buffers_.size()); }
    const std::vector<void*>& buffers() const { return buffers_; }
    int held() const;

    // Holds one of the buffers, which comes back when nobody holds it any more. Null when it is
    // none of them, or is held already.
    std::shared_ptr<void> hold(void* buffer);

    // Calls the handler with each buffer that comes back, on the thread that let it go, until the
    // same owner ends that; of several owners, the last one's. When endReturns() returns, it does
    // not run any more.
    void onReturn(const void* owner, std::function<void(void*)> handler);
    void endReturns(const void* owner);

private:
    void giveBack(void* buffer);

    const size_t bytes_;
    std::vector<std::shared_ptr<void>> memory_;
    std::vector<void*> buffers_;
    mutable std::mutex lock_;
    std::set<void*> held_;
    std::mutex handlerLock_; // held while it runs
    const void* owner_ = nullptr;
    std::function<void(void*)> handler_;
};

} // namespace vxcam

#endif

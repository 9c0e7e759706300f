#include "readout/frame_pool.h"

#include <cstdlib>
#include <new>

namespace vxcam {

namespace {

constexpr size_t kAlignment = 4096; // of a page, and of what disks take directly

} // namespace

std::shared_ptr<void> allocateFrame(size_t bytes)
{
    const size_t whole = (bytes + kAlignment - 1) / kAlignment * kAlignment;
    void* const memory = std::aligned_alloc(kAlignment, whole);
    if (memory == nullptr) throw std::bad_alloc();
    return {memory, std::free};
}

FramePool::FramePool(size_t bytes, int count) : bytes_(bytes)
{
    for (int i = 0; i < count; ++i) {
        buffers_.push_back(allocateFrame(bytes));
        free_.push_back(buffers_.back().get());
    }
}

int FramePool::claimed() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return static_cast<int>(buffers_.size() - free_.size());
}

std::shared_ptr<void> FramePool::claim()
{
    void* buffer = nullptr;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (free_.empty()) return nullptr;
        buffer = free_.back();
        free_.pop_back();
    }
    return {buffer, [pool = shared_from_this()](void* back) { pool->giveBack(back); }};
}

void FramePool::giveBack(void* buffer)
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        free_.push_back(buffer);
    }
    std::lock_guard<std::mutex> guard(handlerLock_);
    if (handler_) handler_();
}

void FramePool::whenReturned(std::function<void()> handler)
{
    std::lock_guard<std::mutex> guard(handlerLock_);
    handler_ = std::move(handler);
}

} // namespace vxcam

#include "readout/frame_pool.h"

#include "values/block_memory.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace vxcam {

std::shared_ptr<void> allocateFrame(size_t bytes)
{
    return {allocateBlocks(bytes), std::free};
}

FramePool::FramePool(size_t bytes, int count) : bytes_(bytes)
{
    for (int i = 0; i < count; ++i) {
        memory_.push_back(allocateFrame(bytes));
        buffers_.push_back(memory_.back().get());
    }
}

int FramePool::held() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return static_cast<int>(held_.size());
}

std::shared_ptr<void> FramePool::hold(void* buffer)
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        const bool isKnown = std::find(buffers_.begin(), buffers_.end(), buffer) != buffers_.end();
        if (!isKnown || !held_.insert(buffer).second) return nullptr;
    }
    return {buffer, [pool = shared_from_this()](void* back) { pool->giveBack(back); }};
}

void FramePool::giveBack(void* buffer)
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        held_.erase(buffer);
    }
    std::lock_guard<std::mutex> guard(handlerLock_);
    if (handler_) handler_(buffer);
}

void FramePool::onReturn(const void* owner, std::function<void(void*)> handler)
{
    std::lock_guard<std::mutex> guard(handlerLock_);
    owner_ = owner;
    handler_ = std::move(handler);
}

void FramePool::endReturns(const void* owner)
{
    std::lock_guard<std::mutex> guard(handlerLock_);
    if (owner_ == owner) handler_ = nullptr;
}

} // namespace vxcam

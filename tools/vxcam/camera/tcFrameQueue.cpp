#include "tcFrameQueue.h"

#include <utility>

bool tcFrameQueue::Push(tsFrame&& frame)
{
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return mbClosed || maFrames.size() < mnCapacity; });
    if (mbClosed) return false;
    maFrames.push_back(std::move(frame));
    mChanged.notify_all();
    return true;
}

std::optional<tsFrame> tcFrameQueue::Pop()
{
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return mbClosed || mbFinished || !maFrames.empty(); });
    if (mbClosed || maFrames.empty()) return std::nullopt;
    tsFrame frame = std::move(maFrames.front());
    maFrames.pop_front();
    mChanged.notify_all();
    return frame;
}

tsFrame tcFrameQueue::Empty()
{
    std::lock_guard<std::mutex> lock(mLock);
    if (maEmpty.empty()) return {};
    tsFrame frame = std::move(maEmpty.back());
    maEmpty.pop_back();
    return frame;
}

void tcFrameQueue::Recycle(tsFrame&& frame)
{
    std::lock_guard<std::mutex> lock(mLock);
    if (maEmpty.size() < mnCapacity) maEmpty.push_back(std::move(frame));
}

void tcFrameQueue::Finish()
{
    std::lock_guard<std::mutex> lock(mLock);
    mbFinished = true;
    mChanged.notify_all();
}

void tcFrameQueue::Close()
{
    std::lock_guard<std::mutex> lock(mLock);
    mbClosed = true;
    mChanged.notify_all();
}

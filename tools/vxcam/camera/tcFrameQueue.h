// Frames on their way from the camera's thread to the one that writes files.
#ifndef TCFRAMEQUEUE_H
#define TCFRAMEQUEUE_H

#include "tsFrame.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

// Holds at most `capacity` frames. A frame more waits in Push, which holds the camera's thread and,
// through the connection, the camera back: memory stays bounded however slow the disk is.
//
// Threads: Push on one, Pop and Recycle on another, Finish and Close on any.
// Locks: its own, never held while calling out.
// Owns: the frames inside and the empty ones kept for reuse.
class tcFrameQueue
{
public:
    explicit tcFrameQueue(size_t capacity) : mnCapacity(capacity) {}

    // Waits while the queue is full. False when it was closed; the frame is lost then.
    bool Push(tsFrame&& frame);

    // Waits for a frame. Nothing when the queue was closed, or was finished and is empty.
    std::optional<tsFrame> Pop();

    // A frame whose storage may be reused; empty at first.
    tsFrame Empty();
    void Recycle(tsFrame&& frame);

    void Finish(); // no Push comes any more; what is inside still leaves
    void Close();  // all waiting ends, what is inside is dropped

private:
    const size_t mnCapacity;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<tsFrame> maFrames;
    std::vector<tsFrame> maEmpty;
    bool mbFinished = false, mbClosed = false;
};

#endif

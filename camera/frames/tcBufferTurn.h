// The application's image buffers, in the order in which they are to be filled.
#ifndef TCBUFFERTURN_H
#define TCBUFFERTURN_H

#include <cstddef>
#include <mutex>
#include <vector>

// Each buffer is either free or the application's.
//
// Threads: any. Locks: one of its own, the innermost.
class tcBufferTurn
{
public:
    static constexpr int gnMost = 4096;

    // Replaces all of them by others, which are free; with a count of 0 there are none. False, and
    // nothing changes, for a count outside 0 to gnMost, null pointers, no bytes, or buffers that
    // overlap. Throws for want of memory.
    bool Set(void* const* buffers, int count, size_t bytes);
    // Bytes of each; 0 when there are none.
    size_t Bytes() const;
    // The one that has been free for longest is the application's from now on; null without any.
    void* Take();
    // Frees one, the last in the order. False when it is none of them, or free.
    bool Return(void* buffer);
    // All are the application's.
    void LendAll();

private:
    struct tsBuffer {
        void* memory;
        bool isFree;
    };

    mutable std::mutex mMutex;
    size_t mnBytes = 0;
    std::vector<tsBuffer> maBuffers; // ascending
    std::vector<tsBuffer*> maFree;   // a ring
    size_t mnFirst = 0, mnFree = 0;  // of the ring
};

#endif

// The frame of C functions, private to the library.
#ifndef VX_GUARDED_H
#define VX_GUARDED_H

#include <pthread.h>

namespace vx {

// Holds off that the calling thread is cancelled (pthread_cancel): what a call has begun is ended
// first. A cancellation that came meanwhile takes effect at the thread's next cancellation point.
class tcNoCancel
{
public:
    tcNoCancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mnBefore); }
    // A thread that is cancelled at any point, not only at certain ones, is so here.
    ~tcNoCancel() noexcept(false) { pthread_setcancelstate(mnBefore, nullptr); }
    tcNoCancel(const tcNoCancel&) = delete;
    tcNoCancel& operator=(const tcNoCancel&) = delete;

private:
    int mnBefore = PTHREAD_CANCEL_ENABLE;
};

// Makes the call, whole even if the thread is cancelled. What it throws, for want of memory, is
// `failure`.
template <class Call, class Result>
Result Guarded(Result failure, Call call)
{
    const tcNoCancel noCancel;
    try {
        return call();
    } catch (...) {
        return failure;
    }
}

} // namespace vx

#endif

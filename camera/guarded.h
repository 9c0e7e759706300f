// The frame of every C function.
#ifndef GUARDED_H
#define GUARDED_H

#include "vxcamtypes.h"

#include <pthread.h>

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

// Makes the call. What it throws for want of memory or threads is a failure as others are.
template <class Call>
int Guarded(Call call)
{
    const tcNoCancel noCancel;
    try {
        return call();
    } catch (...) {
        return eVXFailed;
    }
}

#endif

// The frame of every C function.
#ifndef GUARDED_H
#define GUARDED_H

#include "vxcamtypes.h"
#include "vxguarded.h"

// Makes the call. What it throws for want of memory or threads is a failure as others are.
template <class Call>
int Guarded(Call call)
{
    const vx::tcNoCancel noCancel;
    try {
        return call();
    } catch (...) {
        return eVXFailed;
    }
}

#endif

// The time zone of the environment, private to the library.
#ifndef VX_TIMEZONE_H
#define VX_TIMEZONE_H

#include "vxenvironment.h"

#include <ctime>

namespace vx {

// Has the C library look at the variable TZ, which may have been changed, by a configuration file
// for one, before a time is converted.
//
// Threads: any, several at once.
inline void TakeTimeZone()
{
    const std::lock_guard<std::mutex> guard(EnvironmentLock());
    tzset();
}

} // namespace vx

#endif

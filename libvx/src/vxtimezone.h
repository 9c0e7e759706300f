// The time zone of the environment, private to the library.
#ifndef VX_TIMEZONE_H
#define VX_TIMEZONE_H

#include <ctime>
#include <mutex>

namespace vx {

// Has the C library look at the variable TZ, which may have been changed, by a configuration file
// for one, before a time is converted.
//
// Threads: any, several at once.
inline void TakeTimeZone()
{
    static std::mutex lock; // without a destructor, so never gone
    const std::lock_guard<std::mutex> guard(lock);
    tzset();
}

} // namespace vx

#endif

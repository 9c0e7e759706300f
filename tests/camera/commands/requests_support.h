// What the tests of requests share.
#ifndef REQUESTS_SUPPORT_H
#define REQUESTS_SUPPORT_H

#include "tcTestCamera.h"

#include <chrono>

using std::chrono::steady_clock;

inline tcMessage TriggerRequest()
{
    return tcMessage(cmdGetTrigger.id, {});
}

inline double SecondsSince(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

#endif

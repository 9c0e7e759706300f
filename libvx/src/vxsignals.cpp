#include "vxsignals.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <initializer_list>

vx::tcNoWriteSignals::tcNoWriteSignals()
{
    sigset_t writing, pending;
    sigemptyset(&writing);
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU})
        sigaddset(&writing, signal);
    pthread_sigmask(SIG_BLOCK, &writing, &mBefore);
    // What was not blocked was not pending.
    const bool mayBePending =
        sigismember(&mBefore, SIGPIPE) == 1 || sigismember(&mBefore, SIGXFSZ) == 1;
    sigemptyset(&pending);
    if (mayBePending) sigpending(&pending);
    sigemptyset(&mOurs);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        if (sigismember(&pending, signal) == 0) sigaddset(&mOurs, signal);
    }
}

vx::tcNoWriteSignals::~tcNoWriteSignals()
{
    const int error = errno;
    const timespec atOnce{};
    while (mbMayHaveOne && sigtimedwait(&mOurs, nullptr, &atOnce) > 0) {
    }
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    errno = error;
}

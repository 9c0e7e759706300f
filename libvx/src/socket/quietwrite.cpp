#include "quietwrite.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

ssize_t vx::WriteQuietly(int descriptor, const void* data, size_t length)
{
    sigset_t pipeSignal, before, pending;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigpending(&pending);
    const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    const ssize_t written = write(descriptor, data, length);
    const int error = errno;
    if (written < 0 && error == EPIPE && !alreadyPending) {
        const timespec atOnce{};
        sigtimedwait(&pipeSignal, nullptr, &atOnce);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

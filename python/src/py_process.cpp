#include "py_process.h"

#include <vxcamkit/error.h>

#include <pthread.h>

#include <atomic>

namespace vxcam::py {

namespace {

std::atomic<int> forks{0};
std::atomic<pthread_t> mainThread{};

void forked()
{
    ++forks;
    mainThread = pthread_self();
}

} // namespace

int forksSoFar()
{
    return forks;
}

bool isMainThread()
{
    return pthread_equal(mainThread, pthread_self()) != 0;
}

void watchForks()
{
    mainThread = pthread_self();
    pthread_atfork(nullptr, nullptr, forked);
}

void refuseAfterFork(const std::string& what)
{
    throw Error(ErrorKind::Usage,
                what + " belongs to the process that this one was forked from, and cannot be used "
                       "here: open the camera in the child, or start processes with the method "
                       "'spawn' of multiprocessing");
}

} // namespace vxcam::py

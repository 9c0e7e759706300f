// Threads, with a word about those that cannot be.
#ifndef VXCAMKIT_STARTED_THREAD_H
#define VXCAMKIT_STARTED_THREAD_H

#include <system_error>
#include <thread>
#include <utility>

namespace vxcam {

// Throws std::system_error, which says what could not be done, where the system allows no more.
template <class Work>
std::thread startedThread(Work&& work)
{
    try {
        return std::thread(std::forward<Work>(work));
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "a thread could not be started, see ulimit -u");
    }
}

} // namespace vxcam

#endif

// A thread that does one thing after the other.
#ifndef VXINDI_WORKER_H
#define VXINDI_WORKER_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace vxcam {

// Threads: any. Locks: its own, never held while it works. Owns: its thread, which starts with the
//   first piece of work and lives as long as the process.
class Worker
{
public:
    void post(std::function<void()> work); // it must not throw

private:
    void run();

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> queue_;
    bool isStarted_ = false;
};

} // namespace vxcam

#endif

#include "worker.h"

#include <utility>

namespace vxcam {

void Worker::post(std::function<void()> work)
{
    std::lock_guard<std::mutex> guard(lock_);
    queue_.push_back(std::move(work));
    changed_.notify_one();
    if (!std::exchange(isStarted_, true)) std::thread([this] { run(); }).detach();
}

void Worker::run()
{
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock<std::mutex> guard(lock_);
            changed_.wait(guard, [this] { return !queue_.empty(); });
            work = std::move(queue_.front());
            queue_.pop_front();
        }
        work();
    }
}

} // namespace vxcam

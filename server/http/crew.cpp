#include "http/crew.h"

#include <system_error>

namespace vxcam {

struct Crew::Job {
    const std::function<void()>* work;
    bool isDone = false;
};

Crew::~Crew()
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

Crew::Crew(size_t most) : most_(most)
{
    threads_.emplace_back([this] { serve(); });
}

void Crew::run(const std::function<void()>& work)
{
    Job job{&work};
    std::unique_lock<std::mutex> guard(mutex_);
    jobs_.push_back(&job);
    if (jobs_.size() > idle_ && threads_.size() < most_) grow();
    changed_.notify_one();
    done_.wait(guard, [&] { return job.isDone; });
}

// Where the system gives no more threads, those that are there have to do.
void Crew::grow()
{
    try {
        threads_.emplace_back([this] { serve(); });
    } catch (const std::system_error&) {
        return;
    }
}

void Crew::serve()
{
    std::unique_lock<std::mutex> guard(mutex_);
    for (;;) {
        ++idle_;
        changed_.wait(guard, [this] { return isEnding_ || !jobs_.empty(); });
        --idle_;
        if (jobs_.empty()) return;
        Job* const job = jobs_.front();
        jobs_.pop_front();
        guard.unlock();
        (*job->work)();
        guard.lock();
        job->isDone = true;
        done_.notify_all();
    }
}

} // namespace vxcam

#include "http/crew.h"

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

void Crew::run(const std::function<void()>& work)
{
    Job job{&work};
    std::unique_lock<std::mutex> guard(mutex_);
    jobs_.push_back(&job);
    if (jobs_.size() > idle_ && threads_.size() < most_) threads_.emplace_back([this] { serve(); });
    changed_.notify_one();
    done_.wait(guard, [&] { return job.isDone; });
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

#include "asker.h"

#include <vxcamkit/error.h>

namespace vxcam {

using std::chrono::steady_clock;

Asker::Asker() : thread_([this] { loop(); }) {}

Asker::~Asker()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Asker::run(std::function<void()> work, std::chrono::milliseconds patience)
{
    const auto job = std::make_shared<Job>();
    job->work = std::move(work);
    std::unique_lock<std::mutex> guard(lock_);
    if (job_ && !changed_.wait_until(guard, job_->since + patience, [this] { return !job_; })) {
        throw Error(ErrorKind::Timeout, "the camera has not answered an earlier question yet");
    }
    job->since = steady_clock::now();
    job_ = job;
    changed_.notify_all();
    if (!changed_.wait_until(guard, job->since + patience, [&] { return job->isDone; })) {
        throw Error(ErrorKind::Timeout,
                    "the camera has not answered for " + std::to_string(patience.count()) + " ms");
    }
    if (job->failure) std::rethrow_exception(job->failure);
}

void Asker::loop()
{
    std::unique_lock<std::mutex> guard(lock_);
    while (true) {
        changed_.wait(guard, [this] { return isEnding_ || job_; });
        if (isEnding_) return;
        const std::shared_ptr<Job> job = job_;
        guard.unlock();
        try {
            job->work();
        } catch (...) {
            job->failure = std::current_exception();
        }
        guard.lock();
        job->isDone = true;
        job_.reset();
        changed_.notify_all();
    }
}

} // namespace vxcam

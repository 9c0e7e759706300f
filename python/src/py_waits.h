// Waits without the interpreter lock, which signals end.
#ifndef VXCAM_PY_WAITS_H
#define VXCAM_PY_WAITS_H

#include "py_process.h"

#include <pybind11/pybind11.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace vxcam::py {

// So long a signal waits at most until it is looked at.
inline constexpr std::chrono::milliseconds kSlice(50);

// So long a camera may be silent that was asked something.
inline constexpr std::chrono::milliseconds kUsualPatience(13000);

// How long a wait may take: at most so long, then it throws Error{Timeout} with the text.
struct Limit {
    std::optional<std::chrono::milliseconds> most;
    std::function<std::string()> text;
};

// What goes on beside a wait, with the interpreter lock: `look` after each slice, and what it
// throws ends the wait; `leave` has the job end when that, or a signal, has ended the wait, which
// goes on for at most so long then, until the job has ended.
struct Company {
    std::function<void()> look;
    std::function<std::chrono::milliseconds()> leave;
};

// What another thread does meanwhile.
class Job
{
public:
    virtual ~Job() = default;
    virtual void run() noexcept = 0;
};

// Runs the job on a thread of its own and waits for it. Throws pybind11::error_already_set when the
// handler of a signal raised meanwhile, and as the limit says; the job goes on then, and nobody
// waits for it. With the interpreter lock, which is free during the wait.
void runAside(std::shared_ptr<Job> job, const Limit& limit, const Company& company = {});

// Keeps what the work returns or throws; lets the work go on the thread that did it.
template <class Work>
class JobOf final : public Job
{
public:
    using Result = decltype(std::declval<Work&>()());

    explicit JobOf(Work work) : work_(std::move(work)) {}

    void run() noexcept override
    {
        try {
            if constexpr (std::is_void_v<Result>) {
                (*work_)();
            } else {
                result_.emplace((*work_)());
            }
        } catch (...) {
            failure_ = std::current_exception();
        }
        work_.reset();
    }

    Result take()
    {
        if (failure_) std::rethrow_exception(failure_);
        if constexpr (!std::is_void_v<Result>) return std::move(*result_);
    }

private:
    std::optional<Work> work_;
    std::optional<std::conditional_t<std::is_void_v<Result>, bool, Result>> result_;
    std::exception_ptr failure_;
};

// Throws what the handler of a signal raised, if one came. With the interpreter lock.
void checkSignals();

// A thread that takes no signals: those are for Python's own.
std::thread startQuietly(std::function<void()> work);

// What `work` returns or throws; the interpreter lock is free while it runs. A signal ends the
// wait, not the work, unless `company` has it end: that must own all it uses, and throws its result
// away. On other threads than the main one there are no signals, and nothing is beside the work.
template <class Work>
auto interruptible(Work work, const Limit& limit = {}, const Company& company = {})
    -> decltype(work())
{
    if (!isMainThread() && !limit.most) {
        const pybind11::gil_scoped_release released;
        return work();
    }
    const auto job = std::make_shared<JobOf<Work>>(std::move(work));
    runAside(job, limit, company);
    return job->take();
}

} // namespace vxcam::py

#endif

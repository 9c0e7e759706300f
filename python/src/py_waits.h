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
    std::string text;
};

// Runs the work on a thread of its own and waits for it. Throws pybind11::error_already_set when
// the handler of a signal raised meanwhile, and as the limit says; the work goes on then, and
// nobody waits for it. With the interpreter lock, which is free during the wait.
void runAside(std::function<void()> work, const Limit& limit);

// Throws what the handler of a signal raised, if one came. With the interpreter lock.
void checkSignals();

// What `work` returns or throws; the interpreter lock is free while it runs. A signal ends the
// wait, not the work: that must own all it uses, and throws its result away.
template <class Work>
auto interruptible(Work work, const Limit& limit = {}) -> decltype(work())
{
    using Result = decltype(work());
    if (!isMainThread() && !limit.most) {
        const pybind11::gil_scoped_release released;
        return work();
    }
    using Held = std::conditional_t<std::is_void_v<Result>, bool, Result>;
    struct Outcome {
        std::optional<Held> result;
        std::exception_ptr failure;
    };
    const auto outcome = std::make_shared<Outcome>();
    runAside(
        [outcome, work = std::make_shared<Work>(std::move(work))] {
            try {
                if constexpr (std::is_void_v<Result>) {
                    (*work)();
                } else {
                    outcome->result.emplace((*work)());
                }
            } catch (...) {
                outcome->failure = std::current_exception();
            }
        },
        limit);
    if (outcome->failure) std::rethrow_exception(outcome->failure);
    if constexpr (!std::is_void_v<Result>) return std::move(*outcome->result);
}

} // namespace vxcam::py

#endif

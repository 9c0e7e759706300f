// The process that an object belongs to, which a fork leaves behind.
#ifndef VXCAM_PY_PROCESS_H
#define VXCAM_PY_PROCESS_H

#include <pybind11/pybind11.h>

#include <memory>
#include <new>
#include <string>
#include <utility>

namespace vxcam::py {

// Counts the forks between the process that loaded the module and this one.
int forksSoFar();

// Whether this is the thread on which Python handles signals.
bool isMainThread();

// To be called when the module is loaded, on the main thread.
void watchForks();

// Throws Error{Usage}: `what` was made in another process.
[[noreturn]] void refuseAfterFork(const std::string& what);

// Shares something that has threads. A forked child has none of these, and locks that they held are
// never given back there: in a child it is neither used nor destroyed.
//
// Threads: a value.
template <class Thing>
class Owned
{
public:
    explicit Owned(std::shared_ptr<Thing> thing) : thing_(std::move(thing)) {}
    ~Owned()
    {
        if (isForeign()) new (std::nothrow) std::shared_ptr<Thing>(std::move(thing_));
    }
    Owned(const Owned&) = default;
    Owned(Owned&&) noexcept = default;
    Owned& operator=(const Owned&) = delete;
    Owned& operator=(Owned&&) = delete;

    bool isForeign() const { return forks_ != forksSoFar(); }

    // Throws Error{Usage} in a forked child: "the camera sim belongs to ...".
    const std::shared_ptr<Thing>& use(const char* what, const std::string& name = {}) const
    {
        if (isForeign()) refuseAfterFork(name.empty() ? what : what + (" " + name));
        return thing_;
    }
    // For what only reads memory.
    const Thing& look() const { return *thing_; }

private:
    std::shared_ptr<Thing> thing_;
    int forks_ = forksSoFar();
};

// Deletes what Python lets go. Without the interpreter lock: threads that are waited for may want
// it.
struct LetGo {
    template <class Thing>
    void operator()(Thing* thing) const
    {
        const pybind11::gil_scoped_release released;
        delete thing;
    }
};

} // namespace vxcam::py

#endif

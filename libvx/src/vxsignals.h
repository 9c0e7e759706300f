// Signals of writing, private to the library.
#ifndef VX_SIGNALS_H
#define VX_SIGNALS_H

#include <csignal>

namespace vx {

// While one lives, what the calling thread writes raises no signal: SIGPIPE where a pipe or socket
// has no reader and SIGXFSZ where a file may not grow are taken away again, unless one was pending
// before; SIGTTOU does not stop a process in the background that prints on its terminal, and the
// text appears. Keeps errno.
//
// Limit: one of these two signals that another process sends in this short time is taken for our
// own.
class tcNoWriteSignals
{
public:
    tcNoWriteSignals();
    ~tcNoWriteSignals();
    tcNoWriteSignals(const tcNoWriteSignals&) = delete;
    tcNoWriteSignals& operator=(const tcNoWriteSignals&) = delete;

    // Something may have failed: signals are looked for.
    void MayHaveFailed() { mbMayHaveOne = true; }

private:
    sigset_t mBefore; // blocked
    sigset_t mOurs;   // not pending
    bool mbMayHaveOne = false;
};

} // namespace vx

#endif

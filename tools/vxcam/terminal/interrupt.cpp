#include "interrupt.h"

#include "failure.h"

#include <unistd.h>

#include <atomic>
#include <csignal>

namespace {

std::atomic<int> gnSignal{0};
std::atomic<bool> gbQuickExit{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "used in a signal handler");

void Remember(int signal)
{
    gnSignal = signal;
    if (gbQuickExit) ::_exit(eExitSignal + signal);
}

} // namespace

void CatchSignals()
{
    struct sigaction action {};
    action.sa_handler = Remember;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        // What the caller had ignored, as nohup does, stays ignored.
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
        ::sigaction(signal, &action, nullptr);
    }
    std::signal(SIGCHLD, SIG_DFL); // how commands ended is not told where it is ignored
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

int CaughtSignal()
{
    return gnSignal;
}

void ThrowIfInterrupted()
{
    if (CaughtSignal() != 0) throw tcFailure(eExitSignal + CaughtSignal(), "interrupted");
}

tcQuickExit::tcQuickExit()
{
    gbQuickExit = true;
    if (CaughtSignal() == 0) return;
    gbQuickExit = false;
    ThrowIfInterrupted();
}

tcQuickExit::~tcQuickExit()
{
    gbQuickExit = false;
}

// Ctrl-C and its kin.
#ifndef INTERRUPT_H
#define INTERRUPT_H

// Takes over SIGINT, SIGTERM and SIGHUP, has the end of children told though the caller ignored it,
// and has writing to a closed pipe or beyond a file size limit fail instead of ending the process.
// Call it once, early in main().
void CatchSignals();

// The signal that came; 0 as long as none has.
int CaughtSignal();

// Throws tcFailure with eExitSignal + the signal's number if one has come.
void ThrowIfInterrupted();

// While one lives, a signal ends the process at once: for calls that wait long and have nothing to
// clean up.
//
// Threads: the main one only.
class tcQuickExit
{
public:
    tcQuickExit();
    ~tcQuickExit();
    tcQuickExit(const tcQuickExit&) = delete;
    tcQuickExit& operator=(const tcQuickExit&) = delete;
};

#endif

// How a run of vxcam ends.
#ifndef FAILURE_H
#define FAILURE_H

#include <stdexcept>
#include <string>

// Exit codes of the program. After a signal it is 128 + the signal's number: 130 after Ctrl-C.
enum teExit {
    eExitDone = 0,
    eExitUsage = 1,    // unknown verb or option, impossible value
    eExitNoCamera = 2, // the camera cannot be reached, does not answer or serves somebody else
    eExitTimeout = 3,  // the camera answered first and then fell silent, or does not get cold
    eExitCamera = 4,   // the camera reports an error or refuses a command
    eExitFile = 5,     // a file cannot be written, or exists already
    eExitHook = 6,     // a command of the user's, that a plan has run, fails
    eExitSignal = 128
};

// Thrown by whatever cannot go on; main() prints its text in one line and exits with its code.
class tcFailure : public std::runtime_error
{
public:
    tcFailure(int code, const std::string& text) : std::runtime_error(text), mnCode(code) {}
    int Code() const { return mnCode; }

private:
    int mnCode;
};

// Whoever read standard output has gone, as a pager that was left.
class tcOutputClosed : public tcFailure
{
public:
    using tcFailure::tcFailure;
};

#endif

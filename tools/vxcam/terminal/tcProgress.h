// A line on standard error that says how far things are.
#ifndef TCPROGRESS_H
#define TCPROGRESS_H

#include <chrono>
#include <string>

// The line itself, at most `width` characters: label, bar, text.
std::string ProgressLine(const std::string& label, double fraction, const std::string& text,
                         int width);

// Of standard error: whether it is a terminal that is not dumb, and its columns, 80 if unknown.
bool TerminalTakesEscapes();
int TerminalWidth();

// Draws nothing when standard error is no terminal, or TERM says that it is a dumb one. Wipes its
// line when it goes.
//
// Threads: one.
class tcProgress
{
public:
    explicit tcProgress(bool wanted);
    ~tcProgress() { Clear(); }
    tcProgress(const tcProgress&) = delete;
    tcProgress& operator=(const tcProgress&) = delete;

    // fraction: 0 to 1. At most 20 times a second, calls between are dropped.
    void Show(const std::string& label, double fraction, const std::string& text);
    bool IsDue() const; // whether Show() would draw something now
    void Clear();

private:
    bool mbDrawn;
    bool mbShown = false;
    std::chrono::steady_clock::time_point mLast;
};

#endif

// How good and how fast the link to a camera is.
#ifndef LINKCHECK_H
#define LINKCHECK_H

#include <vector>

class tcSession;

inline constexpr int gnLinkTestBytes = 1024; // a message

struct tsLinkCheck {
    int result = 0; // of the first message that was not answered
    int done = 0, damaged = 0;
    double megabytesPerSecond = 0; // there and back
};

// Has the camera send random bytes back, message by message.
tsLinkCheck TestLink(tcSession& session, int messages);

// Each trip: the exposure time is asked for, and the answer has come. In milliseconds, sorted.
// Throws tcFailure when the camera does not answer, or after a signal.
std::vector<double> MeasureTrips(tcSession& session, int count);

// Of sorted figures.
double Percentile(const std::vector<double>& sorted, unsigned percent);

#endif

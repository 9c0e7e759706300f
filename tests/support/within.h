// How long something may take in a test.
#ifndef WITHIN_H
#define WITHIN_H

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int gnStretch = 5;
#else
inline constexpr int gnStretch = 1;
#endif

// An upper limit for what takes processor time or turns of threads: of any unit, as it is for a
// plain build, and longer under a sanitizer. What the limit is to tell apart, a wait that should
// not be, has to take longer than the longer one, or is made so in the test.
template <class tTime>
constexpr tTime Within(tTime limit)
{
    return limit * gnStretch;
}

#endif

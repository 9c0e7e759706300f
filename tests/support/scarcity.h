// Memory and threads that run out: a program that links scarcity.cpp says which of the allocations
// and thread creations of the process fail.
#ifndef SCARCITY_H
#define SCARCITY_H

namespace scarcity {

enum class teExtent { eOnce, eFromThenOn };

// From now on the n-th request (from 1) for memory or a thread fails; so do those that follow it,
// unless it is to be once. Requests of exempt threads are neither counted nor refused. Under a
// sanitizer only operator new and threads count.
void Begin(long nth, teExtent extent);
// Ends that; whether anything was refused.
bool End();
// The calling thread is exempt from now on.
void ExemptThisThread();

// Calls `step` with the first, the second, ... of its requests refused, until it does with fewer.
template <class Step>
long ForEach(teExtent extent, Step step)
{
    constexpr long limit = 100000;
    long nth = 1;
    while (nth < limit && step(nth, extent)) {
        ++nth;
    }
    return nth;
}

} // namespace scarcity

#endif

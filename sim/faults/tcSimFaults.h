// When which fault strikes.
#ifndef TCSIMFAULTS_H
#define TCSIMFAULTS_H

#include "faults.h"
#include "random.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A message or pixel packet that is about to leave.
struct tsSimUnit {
    uint32_t id = 0;
    bool isPacket = false, isAnswer = false;
    uint32_t readout = 0, frame = 0, packet = 0; // of a pixel packet
    uint64_t firstByte = 0;                      // of the connection
    size_t bytes = 0;
    double time = 0; // seconds since the connection began
};

// A fault that strikes now, and numbers for what it leaves to chance.
struct tsSimStroke {
    const tsSimFault* fault;
    tcSimRandom* random;
};

// Every fault draws its numbers from a stream of its own, so it strikes the same units in every run
// that sends the same.
//
// Threads: one, the server's.
class tcSimFaults
{
public:
    tcSimFaults(const std::vector<tsSimFault>& faults, uint64_t seed);

    bool Any() const { return !maFaults.empty(); }

    void ConnectionBegins();

    // The faults that strike the unit, in the order in which they were given.
    std::vector<tsSimStroke> Strike(const tsSimUnit& unit);

    // Faults that wait for a moment of this connection only, and when.
    struct tsMoment {
        size_t fault;
        double time;
    };
    std::vector<tsMoment> Moments() const;
    // What strikes at a moment that has come; nothing, when the fault has struck often enough.
    std::vector<tsSimStroke> StrikeAt(const tsMoment& moment);

    // A connection is being made; null: nothing is wrong with it. Without a number the fault waits
    // for clients that come while another one is served.
    const tsSimFault* Refusal(bool inUse);
    // The readout that starts; null: it ends as it should.
    const tsSimFault* Endless(uint32_t readout);
    // A discovery request is answered; null: once.
    const tsSimFault* Conflict();

private:
    struct tsState {
        tsSimFault fault;
        tcSimRandom random;
        int64_t struck = 0;
        int64_t seen = 0; // messages of this connection that it could have struck
    };

    bool Fits(tsState& state, const tsSimUnit& unit) const;
    static bool Strikes(tsState& state);
    template <class Condition>
    const tsSimFault* First(teSimFault kind, Condition condition);

    std::vector<tsState> maFaults;
    int64_t mnConnection = 0, mnAttempt = 0;
};

#endif

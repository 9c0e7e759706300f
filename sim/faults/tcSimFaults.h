// When which fault strikes.
#ifndef TCSIMFAULTS_H
#define TCSIMFAULTS_H

#include "faultkinds.h"
#include "random.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
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

// A fault that strikes; it stays as it is after it was lifted. Null: none does.
using tpSimFault = std::shared_ptr<const tsSimFault>;

// A fault that strikes now, and numbers for what it leaves to chance.
struct tsSimStroke {
    tpSimFault fault;
    tcSimRandom* random; // lives as long as `fault`
};

// Every fault draws its numbers from a stream of its own, so it strikes the same units in every run
// that sends the same.
//
// Threads: Any, Inject, Lift and States on any; the rest on one, the server's.
// Locks: mtMutex guards the faults.
class tcSimFaults
{
public:
    tcSimFaults(const std::vector<tsSimFault>& faults, uint64_t seed);

    // Whether there is or was one, so that something may still be wrong.
    bool Any() const { return mnMade > 0; }

    // A fault more; its number. Where the kind may strike alone, no place is given and it is to
    // strike once, it does so at once, or as the next connection begins.
    uint32_t Inject(tsSimFault fault);
    // Forgets those that `which` chooses; what they were.
    std::vector<tsSimFault> Lift(const std::function<bool(const tsSimFaultState&)>& which);
    // Those that can strike still, and those whose effect lasts.
    std::vector<tsSimFaultState> States() const;

    void ConnectionBegins();

    // The faults that strike the unit, in the order in which they were given.
    std::vector<tsSimStroke> Strike(const tsSimUnit& unit);

    // Faults that wait for a moment of this connection only, and when.
    struct tsMoment {
        uint32_t number; // of the fault
        double time;
    };
    std::vector<tsMoment> Moments() const;
    // What strikes at a moment that has come; nothing, when the fault has struck often enough.
    std::vector<tsSimStroke> StrikeAt(const tsMoment& moment);

    // A connection is being made; null: nothing is wrong with it. Without a number the fault waits
    // for clients that come while another one is served.
    tpSimFault Refusal(bool inUse);
    // The readout that starts; null: it ends as it should.
    tpSimFault Endless(uint32_t readout);
    // A discovery request is answered; null: once.
    tpSimFault Conflict();

private:
    struct tsState {
        uint32_t number;
        tsSimFault fault;
        tcSimRandom random;
        int64_t struck = 0;
        int64_t seen = 0; // messages of this connection that it could have struck
        bool Spent() const { return fault.times > 0 && struck >= fault.times; }
        bool InForce() const { return !Spent() || Lasts(fault.kind); }
    };
    using tpState = std::shared_ptr<tsState>;

    bool Fits(tsState& state, const tsSimUnit& unit) const;
    static bool Strikes(tsState& state);
    template <class Condition>
    tpSimFault First(teSimFault kind, Condition condition);
    uint32_t Add(const tsSimFault& fault);
    static tpSimFault FaultOf(const tpState& state) { return {state, &state->fault}; }

    const uint64_t mnSeed;
    mutable std::mutex mtMutex;
    std::vector<tpState> maFaults;
    std::atomic<uint32_t> mnMade{0};
    int64_t mnConnection = 0, mnAttempt = 0;
};

#endif

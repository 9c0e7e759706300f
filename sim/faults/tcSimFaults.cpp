#include "tcSimFaults.h"

#include <algorithm>

namespace {

bool Is(int64_t wanted, int64_t found)
{
    return wanted < 0 || wanted == found;
}

bool StrikesUnits(teSimStrikes strikes, const tsSimUnit& unit)
{
    switch (strikes) {
    case teSimStrikes::eAny:
        return true;
    case teSimStrikes::eAnswers:
        return unit.isAnswer;
    case teSimStrikes::ePackets:
        return unit.isPacket;
    default:
        return false;
    }
}

// Besides a moment and a connection.
bool HasPlace(const tsSimFault& fault)
{
    return fault.message >= 0 || fault.id >= 0 || fault.byte >= 0 || fault.OnPackets();
}

// Waits for nothing but a moment, so that it need not wait for something to be sent.
bool IsMomentOnly(const tsSimFault& fault)
{
    return KindOf(fault.kind).alone && fault.time >= 0 && !HasPlace(fault);
}

} // namespace

tcSimFaults::tcSimFaults(const std::vector<tsSimFault>& faults, uint64_t seed) : mnSeed(seed)
{
    for (const tsSimFault& fault : faults) {
        Add(fault);
    }
}

uint32_t tcSimFaults::Add(const tsSimFault& fault)
{
    const uint32_t before = mnMade++;
    maFaults.push_back(std::make_shared<tsState>(
        tsState{before + 1, fault, tcSimRandom(MixBits(mnSeed, before))}));
    return before + 1;
}

uint32_t tcSimFaults::Inject(tsSimFault fault)
{
    const bool nowhere = !HasPlace(fault) && fault.time < 0 && fault.connection < 0;
    if (KindOf(fault.kind).alone && nowhere && fault.times == 1 && fault.chance >= 1) {
        fault.time = 0;
    }
    std::lock_guard<std::mutex> lock(mtMutex);
    maFaults.erase(std::remove_if(maFaults.begin(), maFaults.end(),
                                  [](const tpState& state) { return !state->InForce(); }),
                   maFaults.end());
    return Add(fault);
}

std::vector<tsSimFault> tcSimFaults::Lift(const std::function<bool(const tsSimFaultState&)>& which)
{
    std::vector<tsSimFault> lifted;
    std::lock_guard<std::mutex> lock(mtMutex);
    const auto chosen = [&](const tpState& state) {
        if (!state->InForce() || !which({state->number, state->fault, state->struck})) return false;
        lifted.push_back(state->fault);
        return true;
    };
    maFaults.erase(std::remove_if(maFaults.begin(), maFaults.end(), chosen), maFaults.end());
    return lifted;
}

std::vector<tsSimFaultState> tcSimFaults::States() const
{
    std::vector<tsSimFaultState> states;
    std::lock_guard<std::mutex> lock(mtMutex);
    for (const tpState& state : maFaults) {
        if (state->InForce()) states.push_back({state->number, state->fault, state->struck});
    }
    return states;
}

void tcSimFaults::ConnectionBegins()
{
    std::lock_guard<std::mutex> lock(mtMutex);
    ++mnConnection;
    for (const tpState& state : maFaults) {
        state->seen = 0;
    }
}

bool tcSimFaults::Fits(tsState& state, const tsSimUnit& unit) const
{
    const tsSimFault& fault = state.fault;
    if (!StrikesUnits(KindOf(fault.kind).strikes, unit) || IsMomentOnly(fault)) return false;
    if (!Is(fault.connection, mnConnection) || !Is(fault.id, unit.id)) return false;
    if (fault.OnPackets() && (!unit.isPacket || !Is(fault.readout, unit.readout) ||
                              !Is(fault.frame, unit.frame) || !Is(fault.packet, unit.packet))) {
        return false;
    }
    if (fault.message >= 0 && (unit.isPacket || ++state.seen < fault.message)) return false;
    if (fault.byte >= static_cast<int64_t>(unit.firstByte + unit.bytes)) return false;
    return unit.time >= fault.time;
}

bool tcSimFaults::Strikes(tsState& state)
{
    if (state.Spent()) return false;
    if (state.fault.chance < 1 && state.random.Uniform() >= state.fault.chance) return false;
    ++state.struck;
    return true;
}

std::vector<tsSimStroke> tcSimFaults::Strike(const tsSimUnit& unit)
{
    std::vector<tsSimStroke> strokes;
    std::lock_guard<std::mutex> lock(mtMutex);
    for (const tpState& state : maFaults) {
        if (!Fits(*state, unit) || !Strikes(*state)) continue;
        strokes.push_back({FaultOf(state), &state->random});
    }
    return strokes;
}

std::vector<tcSimFaults::tsMoment> tcSimFaults::Moments() const
{
    std::vector<tsMoment> moments;
    std::lock_guard<std::mutex> lock(mtMutex);
    for (const tpState& state : maFaults) {
        const tsSimFault& fault = state->fault;
        if (!IsMomentOnly(fault) || !Is(fault.connection, mnConnection)) continue;
        moments.push_back({state->number, fault.time});
    }
    return moments;
}

std::vector<tsSimStroke> tcSimFaults::StrikeAt(const tsMoment& moment)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    for (const tpState& state : maFaults) {
        if (state->number == moment.number && Strikes(*state)) {
            return {{FaultOf(state), &state->random}};
        }
    }
    return {};
}

template <class Condition>
tpSimFault tcSimFaults::First(teSimFault kind, Condition condition)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    for (const tpState& state : maFaults) {
        if (state->fault.kind == kind && condition(state->fault) && Strikes(*state)) {
            return FaultOf(state);
        }
    }
    return nullptr;
}

tpSimFault tcSimFaults::Refusal(bool inUse)
{
    ++mnAttempt;
    return First(teSimFault::eRefuse, [&](const tsSimFault& fault) {
        return fault.connection < 0 ? inUse : fault.connection == mnAttempt;
    });
}

tpSimFault tcSimFaults::Endless(uint32_t readout)
{
    return First(teSimFault::eEndless,
                 [&](const tsSimFault& fault) { return Is(fault.readout, readout); });
}

tpSimFault tcSimFaults::Conflict()
{
    return First(teSimFault::eDiscoveryConflict, [](const tsSimFault&) { return true; });
}

#include "tcSimFaults.h"

#include "faultkinds.h"

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

// Waits for nothing but a moment, so that it need not wait for something to be sent.
bool IsMomentOnly(const tsSimFault& fault)
{
    return KindOf(fault.kind).alone && fault.time >= 0 && fault.message < 0 && fault.id < 0 &&
           fault.byte < 0 && !fault.OnPackets();
}

} // namespace

tcSimFaults::tcSimFaults(const std::vector<tsSimFault>& faults, uint64_t seed)
{
    maFaults.reserve(faults.size());
    for (const tsSimFault& fault : faults) {
        maFaults.push_back({fault, tcSimRandom(MixBits(seed, maFaults.size()))});
    }
}

void tcSimFaults::ConnectionBegins()
{
    ++mnConnection;
    for (tsState& state : maFaults) {
        state.seen = 0;
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
    if (state.fault.times > 0 && state.struck >= state.fault.times) return false;
    if (state.fault.chance < 1 && state.random.Uniform() >= state.fault.chance) return false;
    ++state.struck;
    return true;
}

std::vector<tsSimStroke> tcSimFaults::Strike(const tsSimUnit& unit)
{
    std::vector<tsSimStroke> strokes;
    for (tsState& state : maFaults) {
        if (Fits(state, unit) && Strikes(state)) strokes.push_back({&state.fault, &state.random});
    }
    return strokes;
}

std::vector<tcSimFaults::tsMoment> tcSimFaults::Moments() const
{
    std::vector<tsMoment> moments;
    for (size_t i = 0; i < maFaults.size(); ++i) {
        const tsSimFault& fault = maFaults[i].fault;
        if (!IsMomentOnly(fault) || !Is(fault.connection, mnConnection)) continue;
        moments.push_back({i, fault.time});
    }
    return moments;
}

std::vector<tsSimStroke> tcSimFaults::StrikeAt(const tsMoment& moment)
{
    tsState& state = maFaults[moment.fault];
    if (!Strikes(state)) return {};
    return {{&state.fault, &state.random}};
}

template <class Condition>
const tsSimFault* tcSimFaults::First(teSimFault kind, Condition condition)
{
    for (tsState& state : maFaults) {
        if (state.fault.kind == kind && condition(state.fault) && Strikes(state)) {
            return &state.fault;
        }
    }
    return nullptr;
}

const tsSimFault* tcSimFaults::Refusal(bool inUse)
{
    ++mnAttempt;
    return First(teSimFault::eRefuse, [&](const tsSimFault& fault) {
        return fault.connection < 0 ? inUse : fault.connection == mnAttempt;
    });
}

const tsSimFault* tcSimFaults::Endless(uint32_t readout)
{
    return First(teSimFault::eEndless,
                 [&](const tsSimFault& fault) { return Is(fault.readout, readout); });
}

const tsSimFault* tcSimFaults::Conflict()
{
    return First(teSimFault::eDiscoveryConflict, [](const tsSimFault&) { return true; });
}

// What each kind of fault is called, can strike, and takes as arguments.
#ifndef VXSIM_FAULTKINDS_H
#define VXSIM_FAULTKINDS_H

#include "faults.h"

#include <string>
#include <vector>

enum class teSimStrikes {
    eAny,         // messages and pixel packets
    eAnswers,     // messages that answer a command
    ePackets,     // pixel packets
    eReadouts,    // a readout when it starts
    eConnections, // a connection when it is made
    eDiscovery    // a discovery request
};

struct tsSimArgument {
    const char* name;
    int64_t tsSimFault::*whole; // one of the two is null
    double tsSimFault::*real;
    double fallback; // what it is when not given
    double lowest, highest;
};

struct tsSimKind {
    teSimFault kind;
    const char* name;
    teSimStrikes strikes;
    bool alone; // may strike at a moment when nothing is being sent
    int64_t times;
    const char* effect;
    tsSimArgument arguments[3]; // those with a name
};

const tsSimKind& KindOf(teSimFault kind);
inline constexpr size_t gnSimFaultKinds = static_cast<size_t>(teSimFault::eDiscoveryConflict) + 1;

// Whether what the kind does lasts until it is taken back.
bool Lasts(teSimFault kind);

// Everything that some kind can be told: positions, then arguments, each once.
std::vector<std::string> SimFaultWords();
std::vector<std::string> SimFaultPlaces(); // the positions alone

// A fault of the kind named, with its defaults. Throws std::runtime_error.
tsSimFault MakeSimFault(const std::string& kind);
// Gives it one position or argument. Throws std::runtime_error.
void SetSimFault(tsSimFault* fault, const std::string& name, double value);
// Looks at the whole of it. Throws std::runtime_error.
void CheckSimFault(const tsSimFault& fault);

#endif

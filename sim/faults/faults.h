// What may go wrong with a simulated camera on purpose: the kinds of faults, where they strike, and
// how they are written down.
#ifndef VXSIM_FAULTS_H
#define VXSIM_FAULTS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

enum class teSimFault {
    // The connection
    eClose,
    eCloseHeader,
    eClosePayload,
    eReset,
    eHalfOpen,
    eStall,
    eDrip,
    eStopReading,
    // Frames on the wire
    eTruncate,
    eOverLong,
    eZeroLength,
    eFlipHeader,
    eFlipPayload,
    eWrongVersion,
    eUnknownId,
    eGarbage,
    // Answers
    eDuplicateAnswer,
    eLateAnswer,
    eWrongAnswer,
    eShortAnswer,
    eNoAnswer,
    // Pixel packets and readouts
    eMissingPacket,
    eDuplicatePacket,
    eReorder,
    eOutside,
    eChangedTotal,
    eNoLastFrame,
    eEndless,
    // The camera as a whole
    eRefuse,
    eReboot,
    eRebootResized,
    eCoolerFailure,
    eErrorStorm,
    eHeartbeatStop,
    eDiscoveryConflict
};

// One fault: what, where and how often. Made from text, which fills in the kind's own defaults:
//
//     KIND[:NAME=VALUE[,NAME=VALUE]...]      stall:readout=1,packet=20,seconds=0.5
//
// Kinds, names and defaults: docs/simulator.md.
struct tsSimFault {
    teSimFault kind = teSimFault::eClose;

    // Where: all that is given must hold. -1: not given.
    int64_t connection = -1; // the connection's number since the server was built, from 1
    int64_t message = -1;    // from the N-th message on that the fault can strike, from 1
    int64_t id = -1;         // of the message
    int64_t readout = -1;    // as the events number readouts, from 1
    int64_t frame = -1;      // of the readout, from 1
    int64_t packet = -1;     // of the frame, from 1
    int64_t byte = -1;       // from this byte of the connection on, from 0
    double time = -1;        // seconds since the connection began, on the clock on the wall
    double chance = 1;       // that it strikes where it could
    int64_t times = 1;       // how often at most; 0: no limit

    // How, where the kind uses it.
    double seconds = 0;
    int64_t bytes = 0, count = 0, value = 0, rate = 0, bit = -1;
    int64_t row = -1, column = -1, rows = 0, columns = 0;
    int64_t code = 0, subcode = 0, silent = 0, port = 0, serial = 0;

    bool OnPackets() const { return readout >= 0 || frame >= 0 || packet >= 0; }
};

// Throws std::runtime_error, saying what is wrong with the text.
tsSimFault ParseSimFault(const std::string& text);
std::vector<tsSimFault> ParseSimFaults(const std::vector<std::string>& texts);

const char* NameOf(teSimFault kind);

// What of a fault is not as its kind has it by itself: names and numbers.
std::vector<std::pair<std::string, double>> NumbersOf(const tsSimFault& fault);

// The fault as ParseSimFault reads it, with these.
std::string TextOf(const tsSimFault& fault);

// A fault of a camera that runs.
struct tsSimFaultState {
    uint32_t number = 0; // from 1: those of the options first, then as they were injected
    tsSimFault fault;
    int64_t struck = 0; // times, so far
};

// The kinds with their arguments, for people: one line each.
std::string ExplainSimFaults();

// What happens, and the seed of all that is left to chance.
struct tsSimScenario {
    uint64_t seed = 1;
    std::vector<tsSimFault> faults;
};

// A scenario in JSON (docs/simulator.md). Throws std::runtime_error, which names the file and the
// line, or the fault and its key, that is wrong.
tsSimScenario LoadSimScenario(const std::string& path);
tsSimScenario ParseSimScenario(const std::string& json);

#endif

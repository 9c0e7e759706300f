#include "faultkinds.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace {

using K = teSimFault;
using S = teSimStrikes;

constexpr double gnMany = 1e9;
constexpr double gnLongest = 86400; // seconds

constexpr tsSimArgument Seconds(double fallback)
{
    return {"seconds", nullptr, &tsSimFault::seconds, fallback, 0, gnLongest};
}
constexpr tsSimArgument Whole(const char* name, int64_t tsSimFault::*field, double fallback,
                              double lowest, double highest)
{
    return {name, field, nullptr, fallback, lowest, highest};
}
constexpr tsSimArgument Bytes(double fallback, double lowest, double highest)
{
    return Whole("bytes", &tsSimFault::bytes, fallback, lowest, highest);
}
constexpr tsSimArgument Count(double fallback, double highest)
{
    return Whole("count", &tsSimFault::count, fallback, 1, highest);
}
constexpr tsSimArgument Value(double fallback, double lowest, double highest)
{
    return Whole("value", &tsSimFault::value, fallback, lowest, highest);
}
constexpr tsSimArgument gtBit = Whole("bit", &tsSimFault::bit, -1, -1, 131327);

// Strikes what is being sent.
template <class... Arguments>
constexpr tsSimKind Sent(K kind, const char* name, const char* effect, Arguments... arguments)
{
    return {kind, name, S::eAny, false, 1, effect, {arguments...}};
}
// Likewise, or a moment when nothing is.
template <class... Arguments>
constexpr tsSimKind Any(K kind, const char* name, const char* effect, Arguments... arguments)
{
    return {kind, name, S::eAny, true, 1, effect, {arguments...}};
}
template <class... Arguments>
constexpr tsSimKind Answer(K kind, const char* name, const char* effect, Arguments... arguments)
{
    return {kind, name, S::eAnswers, false, 1, effect, {arguments...}};
}
template <class... Arguments>
constexpr tsSimKind Packet(K kind, const char* name, const char* effect, Arguments... arguments)
{
    return {kind, name, S::ePackets, false, 1, effect, {arguments...}};
}

constexpr tsSimKind gaKinds[] = {
    Any(K::eClose, "close", "the connection is closed in order"),
    Sent(K::eCloseHeader, "close-header", "closed behind the first BYTES of a header",
         Bytes(6, 1, 11)),
    Sent(K::eClosePayload, "close-payload",
         "closed behind the first BYTES of a payload; 0: half of it", Bytes(0, 0, 16403)),
    Any(K::eReset, "reset", "reset behind the first BYTES of a message", Bytes(0, 0, 16415)),
    Any(K::eHalfOpen, "half-open", "nothing is sent any more; it still reads"),
    Any(K::eStall, "stall", "nothing is sent for SECONDS", Seconds(1)),
    Any(K::eDrip, "drip", "RATE bytes a second for SECONDS; 0: from then on",
        Whole("rate", &tsSimFault::rate, 1000, 1, gnMany), Seconds(0)),
    Any(K::eStopReading, "stop-reading", "nothing is read for SECONDS; 0: from then on",
        Seconds(0)),
    Sent(K::eTruncate, "truncate", "the last BYTES of a message are missing", Bytes(4, 1, 16404)),
    Sent(K::eOverLong, "over-long", "the header tells VALUE payload bytes", Value(65535, 1, 65535)),
    Sent(K::eZeroLength, "zero-length", "the header tells no payload; it comes all the same"),
    Sent(K::eFlipHeader, "flip-header",
         "COUNT bits of the header are wrong: random ones; or BIT, if not -1", Count(1, 96), gtBit),
    Sent(K::eFlipPayload, "flip-payload",
         "COUNT bits of the payload are wrong: random ones; or BIT, if not -1", Count(1, 1000),
         gtBit),
    Sent(K::eWrongVersion, "wrong-version", "the interface version is VALUE", Value(2, 0, 255)),
    Sent(K::eUnknownId, "unknown-id", "the message id is VALUE", Value(0x62, 0, 0xFFFFFF)),
    Sent(K::eGarbage, "garbage", "BYTES random bytes, no magic among them, in front of a message",
         Bytes(64, 1, 1e6)),
    Answer(K::eDuplicateAnswer, "duplicate-answer", "an answer comes COUNT times more",
           Count(1, 1000)),
    Answer(K::eLateAnswer, "late-answer", "an answer comes SECONDS late; what follows overtakes it",
           Seconds(1)),
    Answer(K::eWrongAnswer, "wrong-answer", "an answer has the id VALUE, that of another request",
           Value(0x7F, 0, 0xFFFFFF)),
    Answer(K::eShortAnswer, "short-answer", "an answer has a payload of BYTES only, and tells so",
           Bytes(0, 0, 16404)),
    Answer(K::eNoAnswer, "no-answer", "an answer never comes"),
    Packet(K::eMissingPacket, "missing-packet", "a pixel packet is left out"),
    Packet(K::eDuplicatePacket, "duplicate-packet", "a pixel packet comes COUNT times more",
           Count(1, 1000)),
    Packet(K::eReorder, "reorder", "a pixel packet comes behind the next COUNT ones",
           Count(1, 65535)),
    Packet(K::eOutside, "outside", "a pixel packet tells ROW and first COLUMN; -1: as it was",
           Whole("row", &tsSimFault::row, 65535, -1, 65535),
           Whole("column", &tsSimFault::column, -1, -1, 65535)),
    Packet(K::eChangedTotal, "changed-total",
           "a pixel packet tells a total of VALUE packets; 0: one too many", Value(0, 0, 65535)),
    {K::eNoLastFrame,
     "no-last-frame",
     S::ePackets,
     false,
     0,
     "pixel packets of the last frame lack its flag",
     {}},
    {K::eEndless,
     "endless",
     S::eReadouts,
     false,
     1,
     "a readout sends frames until it is aborted",
     {}},
    {K::eRefuse,
     "refuse",
     S::eConnections,
     false,
     1,
     "a client is refused, with a camera error; without, if SILENT is 1",
     {Whole("silent", &tsSimFault::silent, 0, 0, 1)}},
    Any(K::eReboot, "reboot", "the camera is gone for SECONDS, then back as at power-up",
        Seconds(1)),
    Any(K::eRebootResized, "reboot-resized", "likewise, and then the sensor has ROWS and COLUMNS",
        Seconds(1), Whole("rows", &tsSimFault::rows, 64, 1, 16384),
        Whole("columns", &tsSimFault::columns, 64, 1, 16384)),
    Any(K::eCoolerFailure, "cooler-failure", "the cooler stops without a word"),
    Any(K::eErrorStorm, "error-storm", "COUNT camera errors of CODE and SUBCODE come in one go",
        Count(100, 1e6), Whole("code", &tsSimFault::code, 9, 0, 255),
        Whole("subcode", &tsSimFault::subcode, 9, 0, 255)),
    Any(K::eHeartbeatStop, "heartbeat-stop", "no heartbeats for SECONDS; 0: from then on",
        Seconds(0)),
    {K::eDiscoveryConflict,
     "discovery-conflict",
     S::eDiscovery,
     false,
     0,
     "a second reply tells PORT and SERIAL; -1: one more than the true ones",
     {Whole("port", &tsSimFault::port, -1, -1, 65535),
      Whole("serial", &tsSimFault::serial, -1, -1, 4294967295.0)}},
};

constexpr bool InOrder()
{
    for (size_t i = 0; i < std::size(gaKinds); ++i) {
        if (static_cast<size_t>(gaKinds[i].kind) != i) return false;
    }
    return true;
}
static_assert(InOrder(), "a kind's row is found by its number");

constexpr tsSimArgument gaPositions[] = {
    Whole("connection", &tsSimFault::connection, -1, 1, gnMany),
    Whole("message", &tsSimFault::message, -1, 1, gnMany),
    Whole("id", &tsSimFault::id, -1, 0, 0xFFFFFF),
    Whole("readout", &tsSimFault::readout, -1, 1, gnMany),
    Whole("frame", &tsSimFault::frame, -1, 1, gnMany),
    Whole("packet", &tsSimFault::packet, -1, 1, 65535),
    Whole("byte", &tsSimFault::byte, -1, 0, 1e15),
    {"time", nullptr, &tsSimFault::time, -1, 0, gnLongest},
    {"chance", nullptr, &tsSimFault::chance, 1, 0, 1},
    Whole("times", &tsSimFault::times, 1, 0, gnMany),
};

void Assign(tsSimFault* fault, const tsSimArgument& argument, double value)
{
    if (argument.whole)
        fault->*argument.whole = static_cast<int64_t>(value);
    else
        fault->*argument.real = value;
}

double ValueOf(const tsSimFault& fault, const tsSimArgument& argument)
{
    return argument.whole ? static_cast<double>(fault.*argument.whole) : fault.*argument.real;
}

std::string Text(double value)
{
    std::ostringstream text;
    text.precision(15);
    text << value;
    return text.str();
}

// What a kind can be told, by name; null for what it cannot.
const tsSimArgument* FindArgument(const tsSimKind& kind, const std::string& name)
{
    for (const tsSimArgument& argument : kind.arguments) {
        if (argument.name && name == argument.name) return &argument;
    }
    const bool onWire =
        kind.strikes == S::eAny || kind.strikes == S::eAnswers || kind.strikes == S::ePackets;
    const bool common = name == "times" || name == "chance";
    const bool fits = onWire || common || (kind.strikes == S::eReadouts && name == "readout") ||
                      (kind.strikes == S::eConnections && name == "connection");
    if (!fits) return nullptr;
    for (const tsSimArgument& position : gaPositions) {
        if (name == position.name) return &position;
    }
    return nullptr;
}

} // namespace

const tsSimKind& KindOf(teSimFault kind)
{
    return gaKinds[static_cast<size_t>(kind)];
}

bool Lasts(teSimFault kind)
{
    return kind == K::eHalfOpen || kind == K::eDrip || kind == K::eStopReading ||
           kind == K::eCoolerFailure || kind == K::eHeartbeatStop;
}

std::vector<std::string> SimFaultPlaces()
{
    std::vector<std::string> places;
    for (const tsSimArgument& position : gaPositions) {
        places.emplace_back(position.name);
    }
    return places;
}

std::vector<std::string> SimFaultWords()
{
    std::vector<std::string> words = SimFaultPlaces();
    for (const tsSimKind& kind : gaKinds) {
        for (const tsSimArgument& argument : kind.arguments) {
            if (!argument.name) continue;
            if (std::find(words.begin(), words.end(), argument.name) == words.end()) {
                words.emplace_back(argument.name);
            }
        }
    }
    return words;
}

std::vector<std::pair<std::string, double>> NumbersOf(const tsSimFault& fault)
{
    const tsSimKind& kind = KindOf(fault.kind);
    const tsSimFault usual = MakeSimFault(kind.name);
    std::vector<std::pair<std::string, double>> numbers;
    const auto add = [&](const tsSimArgument& argument) {
        const double value = argument.name ? ValueOf(fault, argument) : 0;
        if (argument.name && value != ValueOf(usual, argument)) {
            numbers.emplace_back(argument.name, value);
        }
    };
    std::for_each(std::begin(gaPositions), std::end(gaPositions), add);
    std::for_each(std::begin(kind.arguments), std::end(kind.arguments), add);
    return numbers;
}

std::string TextOf(const tsSimFault& fault)
{
    std::string text = NameOf(fault.kind);
    char separator = ':';
    for (const auto& [name, value] : NumbersOf(fault)) {
        text += separator + name + "=" + Text(value);
        separator = ',';
    }
    return text;
}

const char* NameOf(teSimFault kind)
{
    return KindOf(kind).name;
}

tsSimFault MakeSimFault(const std::string& name)
{
    const auto* kind = std::find_if(std::begin(gaKinds), std::end(gaKinds),
                                    [&](const tsSimKind& row) { return name == row.name; });
    if (kind == std::end(gaKinds)) throw std::runtime_error("there is no fault '" + name + "'");
    tsSimFault fault;
    fault.kind = kind->kind;
    fault.times = kind->times;
    for (const tsSimArgument& argument : kind->arguments) {
        if (argument.name) Assign(&fault, argument, argument.fallback);
    }
    return fault;
}

void SetSimFault(tsSimFault* fault, const std::string& name, double value)
{
    const tsSimKind& kind = KindOf(fault->kind);
    const tsSimArgument* argument = FindArgument(kind, name);
    if (!argument) {
        throw std::runtime_error("the fault '" + std::string(kind.name) + "' takes no '" + name +
                                 "'");
    }
    if (value < argument->lowest || value > argument->highest) {
        throw std::runtime_error("'" + name + "' of the fault '" + kind.name + "' must be " +
                                 Text(argument->lowest) + " to " + Text(argument->highest));
    }
    if (argument->whole && value != std::floor(value)) {
        throw std::runtime_error("'" + name + "' of the fault '" + kind.name +
                                 "' must be a whole number");
    }
    Assign(fault, *argument, value);
}

void CheckSimFault(const tsSimFault& fault)
{
    const tsSimKind& kind = KindOf(fault.kind);
    const std::string about = "the fault '" + std::string(kind.name) + "'";
    if (fault.OnPackets() && kind.strikes == S::eAnswers) {
        throw std::runtime_error(about +
                                 " strikes answers, so it takes no packet, frame or readout");
    }
    if (fault.message >= 0 && (fault.OnPackets() || kind.strikes == S::ePackets)) {
        throw std::runtime_error(about + " strikes pixel packets, which 'message' does not count");
    }
    if (fault.rows * fault.columns > int64_t{134217728}) {
        throw std::runtime_error(about + ": the sensor may have at most 134217728 pixels");
    }
}

std::string ExplainSimFaults()
{
    std::ostringstream out;
    out << "Faults, written KIND[:NAME=VALUE[,NAME=VALUE]...]:\n";
    for (const tsSimKind& kind : gaKinds) {
        std::string head = kind.name;
        const char* separator = ":";
        for (const tsSimArgument& argument : kind.arguments) {
            if (!argument.name) continue;
            head += separator + std::string(argument.name) + "=" + Text(argument.fallback);
            separator = ",";
        }
        out << "  " << head << "\n      " << kind.effect << "\n";
    }
    out << "Where they strike:";
    for (const std::string& place : SimFaultPlaces()) {
        out << " " << place;
    }
    out << "\n";
    return out.str();
}

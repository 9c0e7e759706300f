#include "wire/wire_messages.h"

#include "wire/wire_format.h"

#include "vxmessages.h"

#include <algorithm>

namespace vxcam {

namespace {

constexpr size_t kLengthAt = 2, kNumberAt = 4, kVersionAt = 8, kIdAt = 9;
constexpr size_t kHeader = gnHeaderBytes;
constexpr char kMagic[] = {'\x50', '\xFA'};

const tsCommandRow* commandOf(uint32_t id)
{
    const auto* const found = std::find_if(std::begin(gaCommands), std::end(gaCommands),
                                           [&](const auto& row) { return row.id == id; });
    return found == std::end(gaCommands) ? nullptr : found;
}

const tsAnswer* answerOf(uint32_t id)
{
    const auto* const found = std::find_if(std::begin(gaAnswers), std::end(gaAnswers),
                                           [&](const tsAnswer* row) { return row->id == id; });
    return found == std::end(gaAnswers) ? nullptr : *found;
}

// How many stretches, or blocks, are known to be missing.
uint64_t gapsOf(const WireCondition& condition)
{
    return condition.damaged + condition.missing;
}

} // namespace

uint32_t WirePiece::id() const
{
    if (bytes.size() < kHeader) return 0;
    return numberAt<uint32_t>(&bytes[kIdAt - 1]) >> 8U;
}

uint8_t WirePiece::number() const
{
    return bytes.size() < kHeader ? uint8_t{0} : numberAt<uint8_t>(&bytes[kNumberAt]);
}

uint8_t WirePiece::version() const
{
    return bytes.size() < kHeader ? uint8_t{0} : numberAt<uint8_t>(&bytes[kVersionAt]);
}

bool WirePiece::isTaken() const
{
    return isMessage && version() == gnInterfaceVersion;
}

std::string_view WirePiece::payload() const
{
    return std::string_view(bytes).substr(std::min(kHeader, bytes.size()));
}

void WireSplitter::add(std::string_view bytes, const Moment& time)
{
    held_ += bytes;
    time_ = time;
    cut();
}

void WireSplitter::end()
{
    give(held_.size() - at_, false);
    cut();
}

void WireSplitter::give(size_t count, bool isMessage)
{
    if (count == 0) return;
    WirePiece piece;
    piece.isSent = isSent_;
    piece.isMessage = isMessage;
    piece.time = time_;
    piece.bytes = held_.substr(at_, count);
    pieces_.push_back(std::move(piece));
    at_ += count;
}

void WireSplitter::cut()
{
    while (at_ < held_.size()) {
        const size_t magic = held_.find(std::string_view(kMagic, sizeof kMagic), at_);
        const bool mayBegin = held_.back() == kMagic[0];
        const size_t skipped = std::min(magic, held_.size() - (mayBegin ? 1 : 0)) - at_;
        give(skipped, false);
        if (held_.size() - at_ < kHeader) break;
        const size_t length = kHeader + numberAt<uint16_t>(&held_[at_ + kLengthAt]);
        if (!isSent_ && length > size_t{gnLargestMessage}) {
            give(kHeader, false);
            continue;
        }
        if (held_.size() - at_ < length) break;
        give(length, true);
    }
    held_.erase(0, at_);
    at_ = 0;
}

std::optional<WirePiece> WireSplitter::next()
{
    if (pieces_.empty()) return std::nullopt;
    WirePiece piece = std::move(pieces_.front());
    pieces_.pop_front();
    return piece;
}

struct WireEvents::Ways {
    WireSplitter received{false}, sent{true};
};

const char* nameOf(WireEvent::Kind kind)
{
    switch (kind) {
    case WireEvent::Kind::Opened:
        return "opened";
    case WireEvent::Kind::LinkLost:
        return "lost";
    case WireEvent::Kind::LinkRestored:
        return "restored";
    case WireEvent::Kind::Stray:
        return "stray";
    case WireEvent::Kind::Gap:
        return "gap";
    case WireEvent::Kind::Message:
        break;
    }
    return "message";
}

WireEvents::WireEvents(WireReader reader) : reader_(std::move(reader)) {}
WireEvents::~WireEvents() = default;
WireEvents::WireEvents(WireEvents&& other) noexcept = default;
WireEvents& WireEvents::operator=(WireEvents&& other) noexcept = default;

void WireEvents::collect(uint8_t camera, WireSplitter& way)
{
    while (std::optional<WirePiece> piece = way.next()) {
        WireEvent event;
        event.kind = piece->isMessage ? WireEvent::Kind::Message : WireEvent::Kind::Stray;
        event.camera = camera;
        event.time = piece->time;
        event.piece = std::move(*piece);
        events_.push_back(std::move(event));
    }
}

void WireEvents::endWays(uint8_t camera)
{
    if (camera >= ways_.size() || !ways_[camera]) return;
    for (WireSplitter* const way : {&ways_[camera]->sent, &ways_[camera]->received}) {
        way->end();
        collect(camera, *way);
    }
}

void WireEvents::endAllWays()
{
    for (size_t camera = 0; camera < ways_.size(); ++camera) {
        endWays(static_cast<uint8_t>(camera));
    }
}

void WireEvents::takeGap(const Moment& end)
{
    endAllWays();
    WireEvent event;
    event.kind = WireEvent::Kind::Gap;
    event.time = end;
    events_.push_back(std::move(event));
}

void WireEvents::take(const WireRecord& record)
{
    const uint8_t camera = record.camera;
    const bool isSent = record.kind == WireKind::Sent;
    if (isSent || record.kind == WireKind::Received) {
        if (camera >= ways_.size()) ways_.resize(size_t{camera} + 1);
        if (!ways_[camera]) ways_[camera] = std::make_unique<Ways>();
        WireSplitter& way = isSent ? ways_[camera]->sent : ways_[camera]->received;
        way.add(record.bytes, record.time);
        return collect(camera, way);
    }
    endWays(camera);
    WireEvent event;
    event.kind = record.kind == WireKind::About      ? WireEvent::Kind::Opened
                 : record.kind == WireKind::LinkLost ? WireEvent::Kind::LinkLost
                                                     : WireEvent::Kind::LinkRestored;
    event.camera = camera;
    event.time = record.time;
    event.about = record.bytes;
    events_.push_back(std::move(event));
}

std::optional<WireEvent> WireEvents::next()
{
    while (events_.empty()) {
        const uint64_t gaps = gapsOf(reader_.condition());
        if (const std::optional<WireRecord> record = reader_.next()) {
            if (gapsOf(reader_.condition()) != gaps) takeGap(record->time);
            take(*record);
            continue;
        }
        endAllWays();
        if (events_.empty()) return std::nullopt;
    }
    WireEvent event = std::move(events_.front());
    events_.pop_front();
    return event;
}

std::string wireName(const WirePiece& message)
{
    const uint32_t id = message.id();
    if (id >= gnFirstUserDefinedId) return "user-defined";
    if (message.isSent) {
        if (const tsCommandRow* const row = commandOf(id)) return row->name;
    } else if (const tsAnswer* const row = answerOf(id)) {
        return row->name;
    }
    return "unknown";
}

uint32_t wireAnswer(uint32_t command)
{
    const tsCommandRow* const row = commandOf(command);
    return row == nullptr || row->answer == nullptr ? 0 : row->answer->id;
}

std::vector<std::string> wireNames()
{
    std::vector<std::string> names{"user-defined", "unknown"};
    // The rows are packed, so that nothing in them can be referred to.
    const auto add = [&names](const char* name) { names.emplace_back(name); };
    for (const tsCommandRow& row : gaCommands) {
        add(row.name);
    }
    for (const tsAnswer* const row : gaAnswers) {
        add(row->name);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

} // namespace vxcam

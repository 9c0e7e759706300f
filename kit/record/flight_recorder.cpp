#include "record/flight_recorder.h"

#include "readout/frame_facts.h"
#include "readout/host_clock.h"

#include <vxcamkit/error.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace vxcam {

namespace {

using Json = nlohmann::ordered_json;
using Kind = FlightEntry::Kind;

constexpr size_t kHeaderBytes = 12, kIdAt = 9; // of a message
constexpr int kDecimals = 6;

std::string hexOf(const FlightEntry& entry)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < entry.size; ++i) {
        const auto byte = static_cast<uint8_t>(entry.bytes[i]);
        text += digits[byte >> 4U];
        text += digits[byte & 0xFU];
    }
    return text;
}

std::string idText(uint32_t id)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%02x", id);
    return text;
}

void putText(FlightEntry* entry, const char* text, size_t length)
{
    entry->size = std::min(length, entry->bytes.size());
    std::copy_n(text, entry->size, entry->bytes.begin());
}

// "3-5,9" of the packets that are missing, counted from 1; as many of them as there is room for.
void putMissing(FlightEntry* entry, const tsFrameRecord& record)
{
    if (record.MissingBits == nullptr) return;
    const auto isMissing = [&](uint32_t packet) {
        return packet < record.PacketsExpected &&
               (record.MissingBits[packet / 8] >> (packet % 8) & 1) != 0;
    };
    for (uint32_t begin = 0; begin < record.PacketsExpected; ++begin) {
        if (!isMissing(begin)) continue;
        uint32_t end = begin;
        while (isMissing(end + 1)) {
            ++end;
        }
        char range[32];
        const int length = end == begin
                               ? std::snprintf(range, sizeof range, "%u,", begin + 1)
                               : std::snprintf(range, sizeof range, "%u-%u,", begin + 1, end + 1);
        if (entry->size + static_cast<size_t>(length) > entry->bytes.size()) return;
        std::copy_n(range, length, entry->bytes.begin() + static_cast<std::ptrdiff_t>(entry->size));
        entry->size += static_cast<size_t>(length);
        begin = end;
    }
}

Json frameLine(const FlightEntry& entry, Json line, const std::string& text)
{
    line["readout"] = entry.readout;
    line["frame"] = entry.frame;
    line["packets"] = entry.expected;
    line["missing"] = entry.missing;
    if (entry.missing > 0) line["missing_packets"] = text.substr(0, text.find_last_of(','));
    line["damaged"] = entry.damaged;
    line["misplaced"] = entry.misplaced;
    if (entry.first.known) line["first_packet"] = utcText(entry.first.utc, kDecimals);
    return line;
}

Json lineOf(const FlightEntry& entry)
{
    Json line;
    line["utc"] = utcText(entry.time.utc, kDecimals);
    line["t"] = std::chrono::duration<double>(entry.time.steady.time_since_epoch()).count();
    line["event"] = nameOf(entry.kind);
    const std::string text(entry.bytes.data(), entry.size);
    if (entry.kind == Kind::Sent || entry.kind == Kind::Received) {
        line["id"] = idText(entry.id);
        line["length"] = entry.length;
        line["payload"] = hexOf(entry);
        return line;
    }
    if (entry.kind == Kind::Frame) return frameLine(entry, std::move(line), text);
    if (entry.kind == Kind::Error) {
        line["code"] = entry.code;
        line["sub_code"] = entry.subCode;
    }
    line["text"] = text;
    return line;
}

} // namespace

const char* nameOf(FlightEntry::Kind kind)
{
    switch (kind) {
    case Kind::Sent:
        return "sent";
    case Kind::Received:
        return "received";
    case Kind::Frame:
        return "frame";
    case Kind::Error:
        return "error";
    case Kind::Link:
        return "link";
    case Kind::Started:
        return "started";
    case Kind::Ended:
        return "ended";
    case Kind::Note:
        break;
    }
    return "note";
}

FlightRecorder::FlightRecorder()
{
    // Written to at once, so that a process that takes frames for hours does not grow by it.
    ring_.resize(kMostEntries);
    ring_.clear();
}

void FlightRecorder::add(const FlightEntry& entry)
{
    std::lock_guard<std::mutex> guard(lock_);
    if (ring_.size() < kMostEntries) {
        ring_.push_back(entry);
        return;
    }
    ring_[next_] = entry;
    next_ = (next_ + 1) % kMostEntries;
}

void FlightRecorder::tap(const tsTapRecord& record)
{
    FlightEntry entry;
    entry.time = momentOf(record.Time);
    if (record.What == eTapLink) {
        const std::string text = record.Event == eLinkLost ? "lost" : "restored";
        entry.kind = Kind::Link;
        putText(&entry, text.data(), text.size());
        return add(entry);
    }
    if (record.Length < kHeaderBytes) return;
    const uint8_t* const id = record.Bytes + kIdAt;
    entry.kind = record.What == eTapMessagesSent ? Kind::Sent : Kind::Received;
    entry.id = id[0] | uint32_t{id[1]} << 8U | uint32_t{id[2]} << 16U;
    entry.length = record.Length - kHeaderBytes;
    putText(&entry, reinterpret_cast<const char*>(record.Bytes) + kHeaderBytes, entry.length);
    add(entry);
}

void FlightRecorder::frame(const tsFrameRecord& record)
{
    FlightEntry entry;
    entry.kind = Kind::Frame;
    entry.time = momentOf(record.LastPacket);
    entry.first = momentOf(record.FirstPacket);
    entry.readout = record.Readout;
    entry.frame = record.Frame;
    entry.expected = record.PacketsExpected;
    entry.missing = record.PacketsMissing;
    entry.damaged = record.PacketsDamaged;
    entry.misplaced = record.PacketsMisplaced;
    putMissing(&entry, record);
    add(entry);
}

void FlightRecorder::error(const tsCameraErrorRecord& record)
{
    const std::string text = record.Text;
    FlightEntry entry;
    entry.kind = Kind::Error;
    entry.time = momentOf(record.Time);
    entry.code = static_cast<int>(record.Code);
    entry.subCode = static_cast<int>(record.SubCode);
    putText(&entry, text.data(), text.size());
    add(entry);
}

void FlightRecorder::note(FlightEntry::Kind kind, const std::string& text)
{
    FlightEntry entry;
    entry.kind = kind;
    entry.time = presentMoment();
    putText(&entry, text.data(), text.size());
    add(entry);
}

std::vector<FlightEntry> FlightRecorder::entries() const
{
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<FlightEntry> entries = ring_;
    std::rotate(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(next_),
                entries.end());
    return entries;
}

std::string FlightRecorder::text() const
{
    std::string lines;
    for (const FlightEntry& entry : entries()) {
        lines += lineOf(entry).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    }
    return lines;
}

void FlightRecorder::save(const std::string& path) const
{
    std::error_code unknown;
    const std::filesystem::file_status there = std::filesystem::status(path, unknown);
    if (std::filesystem::exists(there) && !std::filesystem::is_regular_file(there)) {
        throw Error(ErrorKind::File, path + ": is no regular file"); // a device would be replaced
    }
    const std::string part = path + ".part";
    errno = 0;
    std::ofstream file(part, std::ios::trunc);
    file << text();
    file.close();
    if (file && std::rename(part.c_str(), path.c_str()) == 0) return;
    const int error = errno;
    std::remove(part.c_str());
    throw Error(ErrorKind::File, path + ": " + std::generic_category().message(error), error);
}

} // namespace vxcam

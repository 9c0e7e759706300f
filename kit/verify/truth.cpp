#include "verify/truth.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <utility>

namespace vxcam {

namespace {

using Json = nlohmann::json;
using Place = std::pair<int64_t, int64_t>; // readout, frame

struct Sent {
    uint32_t crc = 0; // of what went out
    const char* wrong = nullptr;
};

// What the camera did to its picture; nothing when it sent it as it was.
const char* wrongOf(const Json& line)
{
    if (line.value("intact", false)) return nullptr;
    if (line.value("sentLost", 0) > 0) return "the camera did not send all of it";
    const auto sent = line.value("sentCrc", uint32_t{0});
    if (line.value("crc", sent) != sent) return "the camera sent other pixels than its picture has";
    return "the camera did not send each packet once, in order and unchanged";
}

std::map<Place, Sent> readTruth(const std::string& path)
{
    std::ifstream file(path);
    if (!file) throw Error(ErrorKind::File, path + ": cannot be read", errno);
    std::map<Place, Sent> frames;
    for (std::string text; std::getline(file, text);) {
        const Json line = Json::parse(text, nullptr, false);
        if (!line.is_object() || line.value("event", "") != "frame") continue;
        const Place place{line.value("readout", int64_t{0}), line.value("frame", int64_t{0})};
        frames[place] = {line.value("sentCrc", uint32_t{0}), wrongOf(line)};
    }
    if (frames.empty()) throw Error(ErrorKind::File, path + ": tells of no frame", EINVAL);
    return frames;
}

// The camera counts readouts since it started, a record since it was opened: how many were before.
int64_t readoutsBefore(const std::map<Place, Sent>& sent, const std::vector<uint32_t>& crcs,
                       const ReadRecord& record)
{
    std::map<int64_t, size_t> fitting;
    for (const auto& [place, frame] : sent) {
        const int64_t before = place.first - record.frames.front()["readout"];
        fitting.try_emplace(before, 0);
        for (size_t i = 0; i < crcs.size(); ++i) {
            const ReadRow& row = record.frames[i];
            const bool isIt = row["number"] == place.second &&
                              row["readout"] + before == place.first && crcs[i] == frame.crc;
            if (isIt) ++fitting[before];
        }
    }
    int64_t best = 0;
    size_t most = 0;
    for (const auto& [before, count] : fitting) {
        if (count <= most) continue;
        best = before;
        most = count;
    }
    return best;
}

// Frames of a readout that the camera sent, and the record does not have: before its first one, and
// behind its last one, where that was to be the readout's.
void checkEnds(const std::map<Place, Sent>& sent, const Place& first, const Place& last,
               ReadRecord* record)
{
    const ReadRow &begin = record->frames.front(), &end = record->frames.back();
    if (!begin.has("index")) return; // a file of one frame
    int64_t before = 0, behind = 0;
    for (const auto& [place, frame] : sent) {
        if (place.first == first.first && place < first) ++before;
        if (place.first == last.first && place > last) ++behind;
    }
    const auto find = [&](int64_t count, const char* where, int64_t dropped) {
        record->find("truth", "the camera sent " + std::to_string(count) + " frames " + where +
                                  ", and " + std::to_string(dropped) + " were dropped");
    };
    // Of a later part of a record, those before may be in the other parts.
    const int64_t elsewhere = begin["index"] + begin["dropped"];
    if (before > elsewhere) find(before, "before the first one", elsewhere);
    const int64_t dropped = std::max(record->dropped, end["dropped"]) - end["dropped"];
    const bool isCounted = record->header.is_object() && record->header.contains("NFRAMES") &&
                           record->header["NFRAMES"].is_number() && record->header["NFRAMES"] > 0;
    if (record->ended == "complete" && isCounted && behind > dropped) {
        find(behind, "behind the last one", dropped);
    }
}

} // namespace

void compareWithTruth(const std::string& path, const std::vector<uint32_t>& crcs,
                      ReadRecord* record)
{
    if (record->frames.empty()) return;
    std::map<Place, Sent> sent = readTruth(path);
    const int64_t before = readoutsBefore(sent, crcs, *record);
    int64_t kept = 0;
    Place last{0, 0};
    for (size_t i = 0; i < crcs.size(); ++i) {
        const ReadRow& row = record->frames[i];
        const auto frame = static_cast<int64_t>(i);
        last = {row["readout"] + before, row["number"]};
        const auto found = sent.find(last);
        if (found == sent.end()) {
            record->find("truth", "the camera sent no such frame", frame);
            continue;
        }
        ++kept;
        const bool isSame = found->second.crc == crcs[i];
        const bool isTold = row["complete"] == 0;
        if (!isSame && !isTold) record->find("truth", "the camera sent other pixels", frame);
        if (found->second.wrong != nullptr && isSame && !isTold) {
            record->find("truth",
                         std::string(found->second.wrong) + ", and it says that it is complete",
                         frame);
        }
    }
    const Place first{record->frames.front()["readout"] + before, record->frames.front()["number"]};
    int64_t between = 0;
    for (const auto& [place, frame] : sent) {
        if (place >= first && place <= last) ++between;
    }
    const int64_t dropped = record->frames.back()["dropped"] - record->frames.front()["dropped"];
    if (between - kept != dropped) {
        record->find("truth", "the camera sent " + std::to_string(between) + " frames, " +
                                  std::to_string(kept) + " are here, and " +
                                  std::to_string(dropped) + " were dropped");
    }
    checkEnds(sent, first, last, record);
}

} // namespace vxcam

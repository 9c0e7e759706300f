// What a camera did last, for the time after something went wrong.
#ifndef VXCAMKIT_FLIGHT_RECORDER_H
#define VXCAMKIT_FLIGHT_RECORDER_H

#include <vxcamkit/frame_times.h>

#include "vxcamext.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace vxcam {

struct FlightEntry {
    enum class Kind {
        Sent,     // a message to the camera: id, length, how its payload begins
        Received, // one of the camera's, pixels aside; likewise
        Frame,    // what came of it, and which packets are missing
        Error,    // of the camera: code, sub-code, text
        Link,     // "lost" or "restored"
        Started,  // a readout: its plan
        Ended,    // a readout: how
        Note      // of the kit
    };
    static constexpr size_t kMostBytes = 64;

    Kind kind = Kind::Note;
    Moment time;
    uint32_t id = 0, length = 0;          // of a message
    uint32_t readout = 0, frame = 0;      // of a frame
    uint32_t expected = 0, missing = 0;   // its packets
    uint32_t damaged = 0, misplaced = 0;  // likewise
    Moment first;                         // of them
    int code = 0, subCode = 0;            // of an error
    size_t size = 0;                      // of what follows
    std::array<char, kMostBytes> bytes{}; // of a message, or of a text
};

// "sent", "received", "frame", "error", "link", "started", "ended", "note"
const char* nameOf(FlightEntry::Kind kind);

// Keeps the last 10,000 entries. Nothing is allocated for one, and none takes longer than copying
// it.
//
// Threads: any. Locks: its own, never held while calling out.
class FlightRecorder
{
public:
    static constexpr size_t kMostEntries = 10000;

    FlightRecorder();
    FlightRecorder(const FlightRecorder&) = delete;
    FlightRecorder& operator=(const FlightRecorder&) = delete;

    // What the library tells.
    void tap(const tsTapRecord& record);
    void frame(const tsFrameRecord& record);
    void error(const tsCameraErrorRecord& record);
    // What the kit has to say.
    void note(FlightEntry::Kind kind, const std::string& text);

    // The oldest first.
    std::vector<FlightEntry> entries() const;

    // A JSON object a line, the oldest first:
    // {"utc":"2026-01-31T23:59:59.999999","t":1234.567890,"event":"sent","id":"0x30",...}
    std::string text() const;
    // The same into a file, which is there whole or as it was. Throws Error{File}.
    void save(const std::string& path) const;

private:
    void add(const FlightEntry& entry);

    mutable std::mutex lock_;
    std::vector<FlightEntry> ring_;
    size_t next_ = 0; // where an entry goes when the ring is full
};

} // namespace vxcam

#endif

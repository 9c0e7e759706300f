// Recordings of the wire: what went between host and camera, byte for byte, with its times.
#ifndef VXCAMKIT_WIRE_READER_H
#define VXCAMKIT_WIRE_READER_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame_times.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vxcam {

enum class WireKind : uint8_t {
    About = 1,       // a camera that is opened: a JSON object
    Received = 2,    // bytes from the camera
    Sent = 3,        // bytes to it
    LinkLost = 4,    // the connection ended
    LinkRestored = 5 // it was made anew
};

// Something that happened.
struct WireRecord {
    WireKind kind = WireKind::About;
    uint8_t camera = 0;     // of the recording, from 0
    Moment time;            // utc as the host's clock was when the block was begun
    std::string_view bytes; // until the next record is read
};

// How a recording is, as far as it has been read; at its end, as a whole.
struct WireCondition {
    uint16_t major = 0, minor = 0; // its version
    uint64_t blocks = 0;           // that are whole
    uint64_t records = 0;          // in them
    uint64_t damaged = 0;          // stretches of bytes that are no whole block
    uint64_t damagedBytes = 0;     // in them
    uint64_t missing = 0;          // blocks, by their numbers
    uint64_t firstDamage = 0;      // where in the file
    bool isEnded = false;          // its last block is the one that says so
    bool isHeadGood = false;       // the first bytes of the file are what they should be

    bool isWhole() const { return isEnded && isHeadGood && damaged == 0 && missing == 0; }
    // "1204 blocks are whole; ..." for people: what is wrong in the words behind it.
    VXCAMKIT_EXPORT std::string text() const;
};

// Reads a recording, also one that is cut off or damaged: whole blocks are found behind what is
// not. Nothing of a block is told that is not whole.
//
// Threads: one. Owns: the file, and one block of at most 4 MiB in memory.
class VXCAMKIT_EXPORT WireReader
{
public:
    // Throws Error{File} for a file that cannot be read, that is no recording, or is of a later
    // version than is known here.
    explicit WireReader(const std::string& path);
    // The same of bytes that are elsewhere; `name` is what errors call it.
    WireReader(std::unique_ptr<std::istream> bytes, const std::string& name);
    ~WireReader();
    WireReader(WireReader&& other) noexcept;
    WireReader& operator=(WireReader&& other) noexcept;

    // The next one; nothing at the end. Kinds that are not known here are left out. Throws
    // Error{File} when the disk cannot be read.
    std::optional<WireRecord> next();

    const WireCondition& condition() const;
    const std::string& path() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif

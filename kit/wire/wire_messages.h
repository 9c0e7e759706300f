// The messages in a recording of the wire.
#ifndef VXCAMKIT_WIRE_MESSAGES_H
#define VXCAMKIT_WIRE_MESSAGES_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame_times.h>
#include <vxcamkit/wire_reader.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxcam {

// A stretch of the bytes of one direction: a message, or bytes that belong to none.
struct VXCAMKIT_EXPORT WirePiece {
    bool isSent = false;    // to the camera
    bool isMessage = false; // whole, header first
    Moment time;            // when its last bytes came
    std::string bytes;

    // Of a message.
    uint32_t id() const;
    uint8_t number() const; // as its sender counts
    uint8_t version() const;
    bool isTaken() const; // by receivers: they drop those of another version than the interface's
    std::string_view payload() const;
};

// Cuts the bytes of one direction into pieces as a receiver does: what does not begin with the
// magic, or is longer than the library takes from a camera, belongs to no message. What it sends
// may be as long as a header can tell. All pieces together are all bytes.
class VXCAMKIT_EXPORT WireSplitter
{
public:
    explicit WireSplitter(bool isSent) : isSent_(isSent) {}

    void add(std::string_view bytes, const Moment& time);
    // The connection ended: what is left is no message.
    void end();
    // The next piece that is known whole.
    std::optional<WirePiece> next();

private:
    void give(size_t count, bool isMessage);
    void cut();

    const bool isSent_;
    std::string held_;
    size_t at_ = 0; // where in it the next piece begins
    Moment time_;
    std::deque<WirePiece> pieces_;
};

// What happened, one thing after the other.
struct WireEvent {
    // Gap: the recording lacks blocks here, of all cameras. Messages that they cut are stray bytes
    // on both sides of it.
    enum class Kind { Opened, Message, Stray, LinkLost, LinkRestored, Gap };

    Kind kind = Kind::Opened;
    uint8_t camera = 0;
    Moment time;
    WirePiece piece;   // of a message, and of stray bytes
    std::string about; // of a camera that is opened: a JSON object
};

// "opened", "message", "stray", "lost", "restored", "gap"
VXCAMKIT_EXPORT const char* nameOf(WireEvent::Kind kind);

// A recording as what happened. Threads: one. Owns: the reader, and of each direction of each
// camera the beginning of a message.
class VXCAMKIT_EXPORT WireEvents
{
public:
    explicit WireEvents(WireReader reader);
    ~WireEvents();
    WireEvents(WireEvents&& other) noexcept;
    WireEvents& operator=(WireEvents&& other) noexcept;

    // The next one; nothing at the end. Throws Error{File} as WireReader::next() does.
    std::optional<WireEvent> next();
    const WireReader& reader() const { return reader_; }

private:
    struct Ways;
    void take(const WireRecord& record);
    void takeGap(const Moment& end);
    void collect(uint8_t camera, WireSplitter& way);
    void endWays(uint8_t camera);
    void endAllWays();

    WireReader reader_;
    std::vector<std::unique_ptr<Ways>> ways_; // by the cameras' numbers
    std::deque<WireEvent> events_;
};

// What stands at a place of a payload, as words: {"exposure", "500"}.
using WireFields = std::vector<std::pair<std::string, std::string>>;

// What a message is called: "SetExposureEx", "Heartbeat"; "user-defined" for an application's own,
// "unknown" for what no table has.
VXCAMKIT_EXPORT std::string wireName(const WirePiece& message);
// Its fields, as far as the message holds them: numbers as such, texts without control characters,
// bytes by how many they are. Nothing of a kind that has none, or is not known.
VXCAMKIT_EXPORT WireFields wireFields(const WirePiece& message);
// The id of the message that answers this command; 0: none does.
VXCAMKIT_EXPORT uint32_t wireAnswer(uint32_t command);
// All names that wireName() can give.
VXCAMKIT_EXPORT std::vector<std::string> wireNames();

} // namespace vxcam

#endif

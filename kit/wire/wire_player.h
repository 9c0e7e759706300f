// A recording of the wire as a camera.
#ifndef VXCAMKIT_WIRE_PLAYER_H
#define VXCAMKIT_WIRE_PLAYER_H

#include <vxcamkit/export.h>
#include <vxcamkit/wire_reader.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vxcam {

struct PlayOptions {
    uint16_t port = 0;  // on loopback; 0 takes a free one
    double speed = 1;   // 10: ten times as fast; 0: as fast as can be
    uint8_t camera = 0; // of the recording
    // With a client that takes no bytes; a twentieth of it with one that sends a later message
    // first, after which that one counts as left out.
    std::chrono::milliseconds patience{10'000};
};

struct PlayBooks {
    uint64_t played = 0;     // messages of the camera
    uint64_t taken = 0;      // of the client, that were recorded, too
    uint64_t skipped = 0;    // recorded ones that the client did not send
    uint64_t unexpected = 0; // of the client, that were not recorded
    bool isOver = false;     // all was played
};

// Listens on a port, and sends the client what the camera sent, when it sent it: what came behind a
// message of the host is sent when the client has sent that message, too. One that was recorded
// otherwise is taken by its id alone. To a question that was not recorded there, the camera's last
// answer of its kind is sent once more.
//
// Threads: one. Owns: the port, the connection, and what lies ahead in the recording.
class VXCAMKIT_EXPORT WirePlayer
{
public:
    // Throws Error{File} as WireReader does, and for a recording in which nothing happens;
    // Error{Busy} for a port that cannot be had.
    explicit WirePlayer(const std::string& path, const PlayOptions& options = {});
    ~WirePlayer();
    WirePlayer(const WirePlayer&) = delete;
    WirePlayer& operator=(const WirePlayer&) = delete;

    uint16_t port() const;
    // Plays it once: from when a client connects until it has left or takes nothing any more, or
    // until `isStopped`, which is asked whenever some 256 KiB have been sent and at least every
    // 50 ms. Throws Error{File} when the disk cannot be read.
    PlayBooks play(const std::function<bool()>& isStopped);
    // How the recording is, as far as it has been read: wholly, when all was played.
    const WireCondition& condition() const;

private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif

// Records what goes between host and camera, byte for byte, into a file.
#ifndef VXCAMKIT_WIRE_CAPTURE_H
#define VXCAMKIT_WIRE_CAPTURE_H

#include <vxcamkit/export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace vxcam {

// What has been recorded so far.
struct WireBooks {
    uint64_t received = 0, sent = 0; // bytes of the wire
    uint64_t cameras = 0;            // that were opened
    uint64_t fileBytes = 0;
};

// A recording that is being made: hand it to Camera::open(), and all bytes of the camera are in it,
// from the first one on. The file has its name from the start; whoever reads it has all but the
// last 0.1 s, also when this process is killed. When the disk is too slow, the camera is held back;
// when it takes no more, the recording ends there, and the camera goes on.
//
// Threads: any; it has one that writes. Locks: its own, never held while it writes. Owns: the file,
//   its thread, and up to 64 MiB that wait to be written.
class VXCAMKIT_EXPORT WireCapture
{
public:
    // `software` is what the file says made it. Throws Error{File} for a file that cannot be made,
    // or that exists, without `force`.
    explicit WireCapture(const std::string& path, bool force = false,
                         const std::string& software = "");
    ~WireCapture(); // as finish(), without its errors
    WireCapture(const WireCapture&) = delete;
    WireCapture& operator=(const WireCapture&) = delete;

    // Records no more, waits until all is on the disk, and marks the recording as ended. Throws as
    // throwFailure() does.
    void finish();

    bool hasFailed() const;
    void throwFailure() const; // what went wrong with the file, if anything: Error{File}
    WireBooks books() const;

    struct Body; // of the kit
    const std::shared_ptr<Body>& body() const { return body_; }

private:
    std::shared_ptr<Body> body_;
};

} // namespace vxcam

#endif

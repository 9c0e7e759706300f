// One open camera.
#ifndef VXCAMKIT_CAMERA_H
#define VXCAMKIT_CAMERA_H

#include <vxcamkit/area.h>
#include <vxcamkit/cooler.h>
#include <vxcamkit/event.h>
#include <vxcamkit/export.h>
#include <vxcamkit/link_check.h>
#include <vxcamkit/plan.h>
#include <vxcamkit/profile.h>
#include <vxcamkit/snapshot.h>
#include <vxcamkit/stream.h>
#include <vxcamkit/target.h>
#include <vxcamkit/value.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

class CameraCore;
class WireCapture;

// What a camera has done since it was opened; figures only grow.
struct Statistics {
    uint64_t bytesReceived = 0, bytesSent = 0;
    uint64_t messagesReceived = 0, messagesBad = 0, messagesSent = 0;
    uint64_t bytesSkipped = 0; // between messages, which ought to be none
    uint64_t connectionsLost = 0, reconnects = 0;
    uint64_t heartbeats = 0, cameraErrors = 0;
    uint64_t requestsSent = 0, requestsAnswered = 0, requestsTimedOut = 0;
    uint64_t framesComplete = 0, framesIncomplete = 0, framesFailed = 0, framesAborted = 0;
    uint64_t packetsReceived = 0, packetsMissing = 0, packetsDuplicate = 0;
};

// Who a camera says it is, as far as it tells.
struct Identity {
    std::string name, serial, version; // "vxcamsim", "17", "3.7"; empty: not told
    int bits = 0;                      // a pixel; 0: not told
};

// What becomes of the settings that the application made, when the connection was lost and made
// anew; the camera may have been switched off and on meanwhile. They are sent in the order of the
// table and read back, before anything else is sent to the camera but the first question (see
// Camera).
enum class Restore {
    All, // they are sent again; the event SettingsRestored tells what could not be restored
    None,
    Ask // the event RestoreAsked is told, and Camera::restore() does it
};

struct OpenOptions {
    Restore restore = Restore::All;
    // Where Camera::flight() is written to when something fails: a readout that ends incomplete,
    // timed out, with the link lost or with an error of the camera, a question that the camera does
    // not answer, or a link that is lost. The file is replaced each time, at most once a second;
    // that it cannot be written is told in the record alone. Empty: nowhere.
    std::string flightFile;
};

// The embedded simulated camera or one on the network, opened.
//
// Once a connection is known to have been made anew, a question of the kit's own goes ahead of the
// commands that follow, for the exposure time: its answer may be lost, since a message that was cut
// takes in what comes first. It is asked again until it is answered, for 10 s, and the hardware
// information behind it: so no answer is left over, and a camera that is another one by then is
// noticed (CameraChanged). Commands that wait for it in vain throw Error{Timeout}, and nothing of
// theirs was sent. A question that waits when the connection is lost ends then, with
// Error{LinkLost}, this one, too. A command that was already under way may still go out before it.
// Nothing else is ever repeated: no setting but by Restore, no other question, no readout, no
// trigger.
//
// Errors: what fails throws Error. Threads: any; commands of several threads go one after another.
// Owns: the connection, the simulated camera if there is one, and threads for events, for watching
//   over readouts and, where there is one, for the flight file. One that was moved from takes a new
//   value or is destroyed, nothing else; so do streams and frames.
class VXCAMKIT_EXPORT Camera
{
public:
    // A target as Target::parse() takes it. Throws Error: Usage for a text that is none; NotFound
    // when nothing listens there, or no camera has that serial number; Busy when it serves somebody
    // else, with what it said; Timeout when something is there but does not answer like a camera;
    // Camera when it does not tell the size of its sensor.
    static Camera open(const std::string& target, const OpenOptions& options = {});
    static Camera open(const Target& target, const OpenOptions& options = {});
    // The same, and all that goes between host and camera from the first byte on is recorded.
    static Camera open(const Target& target, const OpenOptions& options,
                       const WireCapture& capture);

    ~Camera(); // as close()
    Camera(Camera&& other) noexcept;
    Camera& operator=(Camera&& other) noexcept;

    // Ends a readout, and calls that wait on other threads; they throw Error{Aborted}. At most 0.5
    // s, and for as long as Cooler::warmUpBeforeClose() was told.
    void close();

    // One of the properties (vxcamkit/property.h): "gain", "register:0x10". get() asks the camera;
    // set() has it take the value, waits until it has, and returns what it says, or the value
    // itself where it cannot be asked. Throws Error: Usage for a name or a value that there is not,
    // before anything is sent; Timeout, LinkLost; Camera when it reports an error.
    Value get(const std::string& name);
    Value set(const std::string& name, const Value& value);

    // As get(), for one of many: nothing, and why in `*why`, when the camera reports an error or
    // does not answer to this, but goes on answering to other things.
    std::optional<Value> tryGet(const std::string& name, std::string* why);

    // As get(), for who cannot wait: nothing where the camera does not tell it within `most`, where
    // its last answer took too long for that, where another thread makes it do something, or
    // something else has to be done first. What get() asks then is another question; an answer to
    // this one that comes later is kept apart from others by a question of the kit's own.
    std::optional<Value> getWithin(const std::string& name, std::chrono::milliseconds most);

    // The value in the form that the property has. Throws Error{Usage} as set() does; nothing is
    // sent.
    Value checked(const std::string& name, const Value& value);

    // All settings that the camera tells, asked for now, and those that it does not tell and that
    // were set here. One that it does not answer to says so, and is not asked for again.
    Snapshot snapshot();

    // The same for a file; Profile::of() says more. Putting one into force tells what became of
    // each setting, and throws Error only when the camera is gone.
    Profile profile(bool withMask = false);
    std::vector<Outcome> apply(const Profile& profile);

    // Waits until the connection is there (again); while it is lost, commands throw
    // Error{LinkLost}, and it is made anew by itself as soon as the camera answers. False when
    // `most` is over before. Throws Error{Aborted} when the camera is closed.
    bool waitForLink(std::chrono::milliseconds most);

    // Sends the settings that were made with set() again, in the order of the table, and reads them
    // back. What could not be restored, and why; empty if all was.
    std::string restore();

    // The kind that a readout by this plan would have now: never AsSet. Throws Error as get() does.
    ReadoutKind kindOf(const Plan& plan);

    // Starts a readout. Throws Error: Usage for a plan that this camera cannot take, before
    // anything is sent, and while a readout runs; what else goes wrong on the way. A readout that
    // was abandoned is ended on the camera first, so that none of its frames is taken for one of
    // this.
    Stream stream(const Plan& plan = {});

    // Takes one frame, however many the plan asks for. Throws IncompleteFrame, which has the frame,
    // and what Stream::next() throws.
    Frame grab(const Plan& plan = {});

    // Ends the readout that runs, if one does: its consumer gets Error{Aborted}.
    void abort();

    // Calls the handler with all that the camera tells from now on, on a thread of the kit's, one
    // event at a time. It may use the camera.
    Subscription onEvent(EventHandler handler);

    // The last 10,000 things that happened to the camera, the oldest first: messages, frames with
    // the packets that are missing, errors, link events, readouts. A JSON object a line; each has
    // "utc", "t" (s, steady clock) and "event" ("sent", "received", "frame", "error", "link",
    // "started", "ended" or "note").
    std::string flight() const;

    // Has the camera send messages of random bytes back. Throws Error when one is not answered.
    LinkCheck checkLink(int messages);

    // Cools the sensor slowly, and warms it up again. Lives as long as the camera.
    Cooler& cooler();

    // As it is now: see EventKind::CameraChanged. What was told of an identity stays as it was.
    Size sensor() const;
    const Identity& identity() const;
    std::string target() const;  // as it was opened
    std::string address() const; // where that is: "127.0.0.1:40123"
    Statistics statistics() const;
    // Camera time by wall-clock time: 1, except for a simulated camera of this process.
    double timeScale() const;

    // Of the C interface (vxcamiface.h), for what it offers beyond; -1 when closed. The kit has the
    // frame, link, heartbeat, error and user-defined callbacks, and the readouts.
    int handle() const;

private:
    explicit Camera(std::shared_ptr<CameraCore> core);
    std::shared_ptr<CameraCore> core_;
};

} // namespace vxcam

#endif

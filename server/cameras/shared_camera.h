// A camera that many clients share.
#ifndef VXCAMD_SHARED_CAMERA_H
#define VXCAMD_SHARED_CAMERA_H

#include "cameras/event_log.h"
#include "cameras/exposures.h"
#include "cameras/feed.h"
#include "cameras/lease.h"
#include "cameras/places.h"
#include "cameras/sequences.h"

#include <vxcamkit/camera.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace vxcam {

struct SharingOptions {
    std::chrono::milliseconds leaseTime{60000};
    size_t keptBytes = size_t{256} << 20; // of frames of the last exposures
};

// What a heartbeat told. A camera sends one every second or so; what it told longer ago than
// kTemperaturesLast is no temperature of now.
struct ToldTemperatures {
    double sensor = 0, board = 0; // degrees Celsius
};
constexpr std::chrono::seconds kTemperaturesLast{10};

// Opens the camera as soon as it answers, and keeps what it told, so that what only asks how things
// are does not wait for it.
//
// Threads: any; it has one that opens the camera, and tells the log while it is not there. Locks:
// its own, never held while calling out. Owns: the camera, its exposures and sequences, its lease.
class SharedCamera
{
public:
    SharedCamera(int number, const Target& target, const SharingOptions& options);
    ~SharedCamera(); // as end()
    SharedCamera(const SharedCamera&) = delete;
    SharedCamera& operator=(const SharedCamera&) = delete;

    int number() const { return number_; } // among the server's, from 0
    std::string target() const { return target_.text(); }

    // The open camera. Throws Error as Camera::open() did the last time, while it is not open.
    std::shared_ptr<Camera> camera() const;
    bool waitUntilOpen(std::chrono::milliseconds most) const;
    bool isLinkUp() const; // open, and the connection is there
    std::optional<ToldTemperatures> temperatures() const;
    std::optional<std::chrono::duration<double>> heartbeatAge() const; // none without a connection
    // Between its last two on this connection; none before the second one.
    std::optional<std::chrono::duration<double>> heartbeatInterval() const;

    // As Camera::get() and set(). Once told, a setting stays known until something else may have
    // changed it; `known` takes such an answer. set() throws Refusal{409} while a sequence runs.
    Value get(const std::string& name);
    Value known(const std::string& name);
    Value set(const std::string& name, const Value& value);
    std::optional<Value> told(const std::string& name) const; // without asking

    Exposures& exposures() { return exposures_; }
    const Exposures& exposures() const { return exposures_; }
    Sequences& sequences() { return sequences_; }
    EventLog& events() { return events_; }
    Lease& lease() { return lease_; }
    Places& places() { return places_; }
    Feed& feed() { return feed_; }

    void end(); // ends sequences and exposures, and closes the camera

private:
    using SteadyClock = std::chrono::steady_clock;

    void look();
    bool openOnce();
    bool awaitLink(bool isUp, SteadyClock::time_point until);
    void heard(const Event& event);
    void tell(const std::string& name, const Value& value);
    SequenceSurroundings surroundings();
    void wasSet(const std::string& name, const Value& value);
    void forgetTold();

    const int number_;
    const Target target_;
    EventLog events_;
    Feed feed_;
    Lease lease_;
    Places places_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::shared_ptr<Camera> camera_;
    Subscription subscription_;
    std::optional<Error> trouble_; // why it is not open
    bool isLinkUp_ = false, isEnding_ = false;
    std::optional<ToldTemperatures> temperatures_; // of heartAt_
    std::chrono::steady_clock::time_point heartAt_;
    std::optional<std::chrono::duration<double>> heartbeatInterval_;
    std::map<std::string, Value> told_;

    Exposures exposures_; // uses all of the above
    Sequences sequences_;
    std::thread looker_;
};

} // namespace vxcam

#endif

// One camera as a device has it: opened as soon as it is there, with a state, a last error and the
// frames of its latest acquisition.
#ifndef VXCAMERA_STATION_H
#define VXCAMERA_STATION_H

#include "acquisition.h"
#include "asker.h"
#include "frame_ring.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/settings.h>

#include <chrono>
#include <optional>
#include <string>

namespace vxcam {

enum class StationState {
    Off,     // no target, or no camera answers there
    Opening, // for the first time
    On,      // nothing runs
    Running, // an acquisition does
    Fault    // the link is lost, the camera cannot be opened, or the last acquisition failed
};

struct StationOptions {
    std::string target;                    // as Target::parse() takes it; empty: none
    std::chrono::milliseconds retry{5000}; // between attempts to open it
    size_t ringFrames = 8;                 // that are held, at most ...
    size_t ringBytes = size_t{256} << 20;  // ... and so many bytes of them
};

// What went wrong last, whatever it was.
struct LastError {
    ErrorKind kind = ErrorKind::Usage;
    std::string text; // empty: nothing
    UtcTime time;
};

// What belongs together: the end of an acquisition is known when the state is no longer Running.
struct StationReport {
    StationState state = StationState::Off;
    std::string status;            // for people
    std::optional<ReadoutEnd> end; // of the acquisition that runs, or the last one; nothing: there
                                   // was none, or it did not begin
};
inline bool operator==(const StationReport& one, const StationReport& other)
{
    return one.state == other.state && one.status == other.status && one.end == other.end;
}

// Told on threads of the station and the kit: be brief, and do not call the station.
struct StationListener {
    std::function<void(int index)> frame; // one came; 0 is the first of its acquisition
    // Something of it is new: each report that there was, in order.
    std::function<void(const StationReport&)> change;
};

// Threads: any. Owns: the camera and three threads. The destructor closes the camera; it waits for
//   an attempt to open it, which takes up to 10 s where something listens and does not answer.
class Station
{
public:
    // Begins to open the camera; sends it these settings then, before anything else.
    Station(StationOptions options, Settings settings, StationListener listener);
    ~Station();
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    StationReport report() const;
    LastError lastError() const;
    void complain(const Error& error); // it becomes the last error
    // Likewise, of what was set before; the state is Fault until the next acquisition.
    void miss(const Error& error);

    // As those of Camera, but throw Error: Timeout much earlier, LinkLost while it is, NotFound
    // while no camera was opened yet. Settings (Nature) that are made before that are sent as soon
    // as it is open; their value is returned.
    Value get(const std::string& name);
    Value set(const std::string& name, const Value& value);
    // What was set that stays as it was set.
    Settings made() const;

    void start(const Plan& plan);
    void prepare(); // throws what start() would, as far as that is known, and empties the ring
    void stop();
    void abort();
    void reset(); // as abort(); and what went wrong is forgotten
    void cool(const Cooling& cooling);
    void warmUp(const Warming& warming);

    const FrameRing& ring() const { return ring_; }
    StreamBooks books() const;
    Progress progress() const;
    CoolingState cooling() const;
    std::shared_ptr<Camera> camera() const; // null: not open

private:
    void open();
    void take(std::shared_ptr<Camera> camera);
    void putBack(Settings settings);
    void hear(const Event& event);
    void hearFrame(const Frame& frame);
    void hearEnd(std::optional<ReadoutEnd> end, const std::optional<Error>& error);
    void trouble(const Error& error); // likewise, and the state is Fault
    void changed();
    void linkLost(const Event& event);
    void linkRestored(const Event& event);
    void requireLink() const;
    bool isLinkUp() const;
    std::pair<StationState, std::string> presentState(bool isRunning) const;
    Plan withBuffers(Plan plan, const Camera& camera) const;
    std::shared_ptr<Camera> requireCamera() const;
    void requireIdle() const;
    void forgetLastAcquisition();
    void ask(std::function<void()> work, std::chrono::milliseconds patience);
    bool keepForLater(const PropertyName& name, const Value& fittedValue);

    const StationOptions options_;
    const StationListener listener_;
    FrameRing ring_;
    Asker asker_;

    mutable std::mutex lock_;
    std::condition_variable wake_;
    bool isEnding_ = false;
    std::optional<Error> obstacle_; // why it is not open; nothing: it was not tried yet
    std::shared_ptr<Camera> camera_;
    bool isAnswering_ = true; // on its present connection
    UtcTime lostAt_;
    std::string linkText_;         // what became of a connection that was lost; empty: nothing
    std::optional<Error> trouble_; // of the last acquisition, or of restored settings
    std::string missed_;           // of restored settings
    LastError lastError_;
    std::optional<ReadoutEnd> lastEnd_;
    Settings pending_, made_;
    std::unique_ptr<Acquisition> acquisition_;
    std::mutex changeLock_; // before lock_
    StationReport told_;
    Subscription subscription_;
    std::thread opener_;
};

} // namespace vxcam

#endif

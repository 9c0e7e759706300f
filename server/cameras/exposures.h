// The exposures of one camera.
#ifndef VXCAMD_EXPOSURES_H
#define VXCAMD_EXPOSURES_H

#include "cameras/event_log.h"
#include "cameras/feed.h"

#include <vxcamkit/camera.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

// How an exposure stands; the last four are ends, as the kit tells them.
enum class ExposureState {
    Starting,
    Running,
    Complete,   // all its frames came, complete
    Incomplete, // a frame came incomplete, was dropped or never came
    Failed,     // see error
    Aborted
};
const char* nameOf(ExposureState state); // "starting", ...
bool isOver(ExposureState state);

struct Exposure {
    uint64_t id = 0; // from 1
    ExposureState state = ExposureState::Starting;
    Plan plan;
    std::string begun; // UTC, when it was asked for
    Progress progress;
    uint64_t came = 0;         // frames
    std::vector<Frame> frames; // those that are kept: the last ones
    std::optional<Error> error;

    const Frame* frame(int number) const; // null: not there (any more)
};

// One exposure at a time, of one or many frames; one without an end is a live view. Frames of the
// last exposures are kept, as far as there is room.
//
// Threads: any; it has one of its own. Locks: its own, never held while calling out. Owns: the
//   readout that runs, and the frames.
class Exposures
{
public:
    using CameraSource = std::function<std::shared_ptr<Camera>()>; // throws Error

    Exposures(CameraSource source, EventLog& events, Feed& feed, size_t mostBytes);
    ~Exposures(); // as end()
    Exposures(const Exposures&) = delete;
    Exposures& operator=(const Exposures&) = delete;

    // Has it started, and returns its number; waits until the camera has taken it, for at most so
    // long. Throws Refusal{409} while another one runs or the camera is lent, and {503} behind
    // close(), and Error{Usage} as Camera::stream() does within this time: then there was no
    // exposure, and its number is the next one's.
    uint64_t start(const Plan& plan, std::chrono::milliseconds wait);

    // Nothing when it is unknown, or was forgotten.
    std::optional<Exposure> find(uint64_t id) const;
    std::vector<Exposure> all() const; // the oldest first
    std::optional<Exposure> running() const;

    // Waits until it is over, for at most so long; false: it is not.
    bool wait(uint64_t id, std::chrono::milliseconds most) const;

    // Ends it and waits until it is over; true when it ran.
    bool abort(uint64_t id);

    // Nothing is started until it is taken back, and `why` told instead. Throws Refusal{409} while
    // an exposure runs.
    void lend(const std::string& why);
    void takeBack();

    // Takes no more; waits for the one that runs, if it has an end, for at most so long.
    void close();
    bool waitUntilIdle(std::chrono::milliseconds most) const;
    void end(); // aborts what runs

    // How many have ended in which state, in the order of ExposureState.
    std::vector<uint64_t> ends() const;

private:
    static constexpr size_t kMostKept = 16;

    void work();
    void readOut(Exposure& exposure);
    void take(Exposure& exposure, const Frame& frame);
    void finish(Exposure& exposure, ExposureState state, const std::optional<Error>& error);
    void makeRoom();
    Exposure reported(const Exposure& exposure) const;
    bool isIdle() const;
    void requireIdle() const;

    const CameraSource source_;
    EventLog& events_;
    Feed& feed_;
    const size_t mostBytes_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<std::unique_ptr<Exposure>> exposures_; // the last one may run
    std::shared_ptr<Stream> stream_;                  // of the one that runs
    uint64_t lastId_ = 0;
    std::string lent_; // why nothing is started; empty: it may be
    bool isAbortAsked_ = false, isClosed_ = false, isEnding_ = false;
    bool isAwaited_ = false, isRefused_ = false; // the start of the last one
    std::vector<uint64_t> ends_;
    std::thread thread_;
};

} // namespace vxcam

#endif

// The sequences of one camera.
#ifndef VXCAMD_SEQUENCES_H
#define VXCAMD_SEQUENCES_H

#include "cameras/event_log.h"
#include "cameras/exposures.h"
#include "cameras/feed.h"
#include "cameras/lease.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/sequence.h>

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

namespace vxcam {

// How the last one stands; the last three are ends.
enum class SequenceState { None, Running, Stopping, Complete, Stopped, Failed };
const char* nameOf(SequenceState state); // "none", ...
bool isOver(SequenceState state);        // nothing runs

// What is to be done, and for whom.
struct SequenceOrder {
    SequencePlan plan;
    std::string name;     // of the plan
    std::string folder;   // as clients see it: "night"
    std::string leaseKey; // of who wants it; empty: of nobody
    std::string software; // for the files
};

struct SequenceStatus {
    SequenceState state = SequenceState::None;
    SequenceOrder order;
    std::string begun, ended; // UTC; empty: not yet
    SequenceProgress progress;
    int line = 0, before = 0;         // of the step; frames that earlier runs took
    std::string file;                 // the last one, as clients see it; empty: none yet
    uint64_t failures = 0;            // of this run
    std::deque<SequenceFailure> last; // of them
    std::optional<Error> error;       // why it ended
};

// What a camera's sequences use of it.
struct SequenceSurroundings {
    Exposures::CameraSource camera;
    Exposures& exposures;
    EventLog& events;
    Feed& feed;
    Lease& lease;
    std::function<void(const std::string&, const Value&)> onSetting;
    std::function<void()> onStep; // what was known of settings may be wrong now
};

// One sequence at a time. While it runs there are no exposures, and the lease of whoever started it
// does not run out.
//
// Threads: any; a sequence has one of its own. Locks: its own, never held while calling out.
class Sequences
{
public:
    static constexpr size_t kMostLast = 20; // failures that are remembered

    explicit Sequences(SequenceSurroundings surroundings);
    ~Sequences(); // as end()
    Sequences(const Sequences&) = delete;
    Sequences& operator=(const Sequences&) = delete;

    // Begins it, or goes on with it; waits until the camera has taken it on, for at most so long.
    // Throws Refusal: 409 while an exposure or a sequence runs, here or, of this plan and folder,
    // elsewhere, 503 behind close(); Error, when nothing could be done: then it is as if it had
    // never been started.
    void start(SequenceOrder order, std::chrono::milliseconds wait);

    SequenceStatus status() const;
    bool isRunning() const;
    void refuseIfRunning() const;                    // throws Refusal{409}
    bool wait(std::chrono::milliseconds most) const; // until it is over; false: it is not

    // Waits until it is over if that is for now.
    void stop(SequenceStop when);

    void close(); // takes no more
    void end();   // stops what runs

private:
    void begin(SequenceOrder order, const std::shared_ptr<Camera>& camera);
    std::unique_ptr<Sequence> made(const SequenceOrder& order);
    SequenceWatch watch();
    void run(const std::shared_ptr<Camera>& camera);
    void tell(const SequenceProgress& progress);
    void finish(const std::optional<Error>& error);
    void requireOpen() const;
    bool order(SequenceStop when);
    void awaitEnd() const;
    void post(const Json& more = Json::object());

    const SequenceSurroundings around_;
    std::mutex starting_; // held by who starts one

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    SequenceStatus status_, before_;     // before the last start
    std::unique_ptr<Sequence> sequence_; // that runs
    bool hasBegun_ = false, isClosed_ = false;
    bool isAwaited_ = false, isRefused_ = false; // the last start
    std::optional<int> newLine_;                 // of a step whose progress is not told yet
    std::thread thread_;                         // alone knows that
};

} // namespace vxcam

#endif

// A readout as both sides see it: the camera's receive thread, which brings frames, and the
// consumer.
#ifndef VXCAMKIT_STREAM_CORE_H
#define VXCAMKIT_STREAM_CORE_H

#include "readout/exposure_clock.h"
#include "readout/frame_pool.h"

#include <vxcamkit/error.h>
#include <vxcamkit/stream.h>

#include "vxcamext.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace vxcam {

class StreamCore;

// What is known of a readout when it starts. The library has the pool's buffers, all of them free.
struct StreamSetup {
    Plan plan;        // checked, with its number of buffers
    FrameFacts facts; // what all its frames share
    int handle = -1;  // of the camera
    ExposurePlan exposures;
    std::shared_ptr<FramePool> pool; // where frames are dropped, with a buffer more for these
    // Called once, on whatever thread ends it, with no lock held; the consumer may know already.
    std::function<void(const StreamCore&)> onEnd;
};

// What a frame's arrival found.
struct Arrival {
    std::optional<double> sensorTemperature, boardTemperature;
    std::optional<uint64_t> trueSum;
    uint64_t packets = 0; // pixel packets that the camera has sent so far, over all readouts
};

// Threads: take() on the receive thread, next() on the consumer's, watch() on the keeper's, all
//   else on any.
// Locks: its own, never held while calling out or while a frame is let go.
class StreamCore
{
public:
    explicit StreamCore(StreamSetup setup);
    ~StreamCore();
    StreamCore(const StreamCore&) = delete;
    StreamCore& operator=(const StreamCore&) = delete;

    // The camera's side. take() holds the receive thread while no buffer is free for the next
    // frame, as the plan says. `packets` are those that the camera has sent since it was opened.
    void begin(SteadyTime commandSent, uint64_t packets);
    void take(const tsFrameRecord& record, const Arrival& arrival);
    void complain(Complaint complaint, bool mayEnd);
    ExposureClock& clock() { return clock_; }
    // Commands that wait for an answer, which a held camera cannot give.
    void commandBegins();
    void commandEnds();
    // Ends it, unless it has ended; `kind` and `text` are what the consumer is told.
    void finish(ReadoutEnd end, ErrorKind kind, const std::string& text, int code = 0,
                int subCode = 0);
    // Looks whether the camera is silent for too long. When to look again; nothing when it has
    // ended.
    std::optional<SteadyTime> watch(SteadyTime now, uint64_t packets);

    // The consumer's side.
    std::optional<Frame> next(std::optional<SteadyTime> deadline);
    void stop();
    ReadoutEnd end() const;
    std::string endText() const;
    StreamBooks books() const;
    Progress progress() const;

    bool isRunning() const { return end() == ReadoutEnd::Running; }
    uint32_t readout() const
    {
        return readout_;
    } // the camera's number of it; 0 before its first frame
    // The camera said itself that this was the last frame: nothing of it can come any more.
    bool isWhole() const { return isWhole_; }
    const StreamSetup& setup() const { return setup_; }

private:
    struct Queued {
        Frame frame;
        bool isPooled;
    };
    FrameFacts factsOf(const tsFrameRecord& record, const Arrival& arrival);
    void enqueue(Frame frame); // with the lock held
    void comeBack(void* buffer);
    void holdBack();
    std::unique_ptr<Frame> makeRoom();                                  // with the lock held
    bool endFrame(const tsFrameRecord& record, const Arrival& arrival); // with the lock held
    void conclude(ReadoutEnd end, std::optional<Error> failure);        // with the lock held
    SteadyTime dueOfNext(SteadyTime now) const;
    bool waitsForTrigger() const;

    const StreamSetup setup_;
    const std::chrono::nanoseconds patience_;
    const std::shared_ptr<std::atomic<size_t>> leewayUsed_; // bytes of frames beyond the buffers
    std::atomic<uint32_t> readout_{0};
    std::atomic<bool> isWhole_{false};
    std::atomic<bool> hasSenseless_{false}; // a frame came without a size
    ExposureClock clock_;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Queued> queue_;
    int pooledInQueue_ = 0;
    int free_; // buffers that the library has
    ReadoutEnd end_ = ReadoutEnd::Running;
    std::optional<Error> failure_;
    bool isStopped_ = false; // by the consumer
    StreamBooks books_;
    uint64_t frames_ = 0; // that ended
    std::vector<Complaint> complaints_;
    int commands_ = 0;
    bool isHeld_ = false;
    bool wasHeld_ = false; // since the frame before

    // Of the frame that runs.
    SteadyTime started_, due_, lastActivity_;
    uint64_t packets_ = 0;
    bool hasPackets_ = false;
};

} // namespace vxcam

#endif

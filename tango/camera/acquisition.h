// Readouts one after another, each on its own; their frames land in a ring.
#ifndef VXCAMERA_ACQUISITION_H
#define VXCAMERA_ACQUISITION_H

#include "frame_ring.h"

#include <vxcamkit/camera.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace vxcam {

// Told on the thread of the acquisition, with no lock held.
struct AcquisitionListener {
    std::function<void()> begin;             // it runs
    std::function<void(const Frame&)> frame; // it is in the ring
    // It is over: how (nothing: it never began), and why when that is neither complete nor what was
    // asked for.
    std::function<void(std::optional<ReadoutEnd>, const std::optional<Error>&)> end;
    std::function<void()> idle; // behind that: the next one may start
};

// Threads: any. Owns: a thread. Close the camera before end() and the destructor: they wait.
class Acquisition
{
public:
    Acquisition(std::shared_ptr<Camera> camera, FrameRing& ring, AcquisitionListener listener);
    ~Acquisition();
    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    // Empties the ring and starts. Waits until the readout has begun, but no longer than a silent
    // camera may keep a client waiting; later failures are told by the end. Throws Error: Usage
    // while one runs and for an impossible plan, and what Camera::stream() throws.
    void start(const Plan& plan);

    void stop();  // frames that came are kept
    void abort(); // likewise, and the end is one with a reason
    void end();   // for good; the listener hears of nothing any more

    bool isRunning() const;
    StreamBooks books() const; // of the present readout, or the last one
    Progress progress() const;

private:
    enum class Phase { Idle, Starting, Running };
    void loop();
    void readOut(std::unique_lock<std::mutex>& guard);
    std::optional<Error> take(Stream& stream);

    const std::shared_ptr<Camera> camera_;
    FrameRing& ring_;
    const AcquisitionListener listener_;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    Phase phase_ = Phase::Idle;
    Plan plan_;
    uint64_t starts_ = 0;                                     // that were asked for
    std::optional<Error> startFailure_;                       // of the latest
    enum class Wish { None, Stop, Abort } wish_ = Wish::None; // while it starts
    std::shared_ptr<Stream> stream_; // of the present readout, or the last one
    bool isEnding_ = false;
    std::thread thread_;
};

} // namespace vxcam

#endif

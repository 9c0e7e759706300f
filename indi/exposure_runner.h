// Readouts, one at a time.
#ifndef VXINDI_EXPOSURE_RUNNER_H
#define VXINDI_EXPOSURE_RUNNER_H

#include "worker.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace vxcam {

struct ExposureJob {
    std::shared_ptr<Camera> camera;
    Plan plan;
    // Before the camera is told anything, on the runner's thread; not given: nothing is to be done.
    // What it throws is how the readout fails.
    std::function<void()> prepare;
    // Each frame that came whole, on the runner's thread. What it throws ends the readout.
    std::function<void(const Frame&)> take;
    // One that did not; not given: the readout fails with that.
    std::function<void(const Frame&)> skip;
    // On the main loop: seconds of the exposure that are left, once a second while it lasts; a
    // frame was taken; and one of both at the end, unless it was cancelled.
    std::function<void(double)> left;
    std::function<void()> taken;
    std::function<void()> done;
    std::function<void(const Error&)> failed;
};

// Waits on the kit's stream for each frame and for the end.
//
// Threads: start() and isRunning() on the main loop's, cancel() on any; a thread of its own waits.
// Locks: its own, held while a stream is told to stop.
class ExposureRunner
{
public:
    void start(ExposureJob job); // behind one that is being cancelled
    // Nothing of it is told any more; a frame that is being handed on still goes its way.
    void cancel();
    bool isRunning() const { return isRunning_; }

private:
    void run(const ExposureJob& job, uint64_t number);
    void takeFrames(const ExposureJob& job, uint64_t number);
    void later(uint64_t number, std::function<void()> work);
    bool isCurrent(uint64_t number) const { return number == number_; }

    Worker worker_;
    std::atomic<uint64_t> number_{0};
    std::atomic<bool> isRunning_{false};
    std::mutex lock_;
    Stream* stream_ = nullptr;
};

} // namespace vxcam

#endif

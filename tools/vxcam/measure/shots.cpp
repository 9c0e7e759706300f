#include "shots.h"

#include "arguments.h"
#include "failure.h"
#include "grabbed.h"
#include "interrupt.h"

#include <vxcamkit/figures.h>

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnPoll(50);

double MedianOf(const vxcam::Frame& frame)
{
    return vxcam::histogramOf(frame).percentile(0.5);
}

// The next frame, when it has come within a moment.
bool Next(vxcam::Stream& stream, std::vector<vxcam::Frame>* frames)
{
    const bool isRunning = stream.end() == vxcam::ReadoutEnd::Running;
    try {
        std::optional<vxcam::Frame> frame = stream.next(isRunning ? gnPoll : tpMilliseconds(0));
        if (!frame) return false;
        if (!frame->complete()) {
            throw tcFailure(eExitCamera, "a frame is incomplete: " + MissingText(frame->facts()));
        }
        frames->push_back(std::move(*frame));
    } catch (const vxcam::Error& error) {
        if (error.kind() != vxcam::ErrorKind::Timeout || !isRunning) throw;
    }
    return true;
}

} // namespace

std::vector<vxcam::Frame> tcShots::Take(const vxcam::Plan& plan, const std::string& what)
{
    std::vector<vxcam::Frame> frames;
    vxcam::Stream stream = mCamera.stream(plan);
    do {
        ThrowIfInterrupted();
        const vxcam::Progress now = stream.progress();
        mProgress.Show(what, now.done, PassedText(now.elapsed, now.exposure));
    } while (Next(stream, &frames));
    mProgress.Clear();
    if (const auto complaint = mComplaints.FirstOfReadout()) {
        throw tcFailure(eExitCamera, *complaint);
    }
    return frames;
}

tpMilliseconds tcShots::Expose(vxcam::Plan plan, vxcam::ExposureGoal goal,
                               const std::function<void(tpMilliseconds, double)>& told)
{
    using State = vxcam::ExposureSearch::State;
    vxcam::Plan dark = plan;
    dark.type = vxcam::FrameType::Bias;
    dark.exposure = std::chrono::microseconds(0);
    dark.frames = plan.frames = 1;
    goal.offset = MedianOf(Take(dark, "bias").at(0));
    vxcam::ExposureSearch search(goal);
    State state = State::Searching;
    while (state == State::Searching) {
        const tpMilliseconds exposure = search.exposure();
        plan.exposure = exposure;
        const double median = MedianOf(Take(plan, "level").at(0));
        state = search.add(median);
        told(exposure, median);
    }
    if (state == State::Found) return search.exposure();
    const std::string limit = DurationText(search.exposure());
    if (state == State::TooDark) throw tcFailure(eExitCamera, "too dark, even for " + limit);
    if (state == State::TooBright) throw tcFailure(eExitCamera, "too bright, even for " + limit);
    throw tcFailure(eExitCamera, "the light changes all the time");
}

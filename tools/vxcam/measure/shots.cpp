#include "shots.h"

#include "arguments.h"
#include "failure.h"
#include "grabbed.h"
#include "interrupt.h"

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnPoll(50);

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

#include "complaints.h"

#include "logrecord.h"

namespace {

constexpr std::chrono::seconds gnUnderWay(1); // an event that is known to come

} // namespace

tcComplaints::tcComplaints(vxcam::Camera& camera)
    : mCamera(camera), mnBefore(camera.statistics().cameraErrors),
      mSubscription(camera.onEvent([this](const vxcam::Event& event) { Add(event); }))
{}

void tcComplaints::Add(const vxcam::Event& event)
{
    if (event.kind != vxcam::EventKind::CameraError) return;
    const std::string text = "the camera reports error " + std::to_string(event.code) + "-" +
                             std::to_string(event.subCode) + ": " + Printable(event.text);
    std::lock_guard<std::mutex> lock(mLock);
    ++mnErrors;
    if (!mFirst) mFirst = text;
    if (!mFirstOfReadout && event.readout != 0) mFirstOfReadout = text;
    mChanged.notify_all();
}

// All that have come to this host by now.
void tcComplaints::AwaitAll(std::unique_lock<std::mutex>& lock) const
{
    const uint64_t errors = mCamera.statistics().cameraErrors - mnBefore;
    mChanged.wait_for(lock, gnUnderWay, [&] { return mnErrors >= errors; });
}

std::optional<std::string> tcComplaints::First() const
{
    std::unique_lock<std::mutex> lock(mLock);
    AwaitAll(lock);
    return mFirst;
}

std::optional<std::string> tcComplaints::FirstOfReadout() const
{
    std::unique_lock<std::mutex> lock(mLock);
    AwaitAll(lock);
    return mFirstOfReadout;
}

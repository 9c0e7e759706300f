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
    std::lock_guard<std::mutex> lock(mLock);
    if (mFirst) return;
    mFirst = "the camera reports error " + std::to_string(event.code) + "-" +
             std::to_string(event.subCode) + ": " + Printable(event.text);
    mChanged.notify_all();
}

std::optional<std::string> tcComplaints::First() const
{
    std::unique_lock<std::mutex> lock(mLock);
    if (mCamera.statistics().cameraErrors > mnBefore) {
        mChanged.wait_for(lock, gnUnderWay, [this] { return mFirst.has_value(); });
    }
    return mFirst;
}

// What a camera complains of, whoever asked it something.
#ifndef COMPLAINTS_H
#define COMPLAINTS_H

#include <vxcamkit/camera.h>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

// Listens as long as it lives.
//
// Threads: filled on the kit's, asked on any.
class tcComplaints
{
public:
    explicit tcComplaints(vxcam::Camera& camera);
    tcComplaints(const tcComplaints&) = delete;
    tcComplaints& operator=(const tcComplaints&) = delete;

    // The first error that the camera reported since then: "the camera reports error 7-3: stuck".
    std::optional<std::string> First() const;
    // The first one while a readout ran.
    std::optional<std::string> FirstOfReadout() const;

private:
    void Add(const vxcam::Event& event);
    void AwaitAll(std::unique_lock<std::mutex>& lock) const;

    const vxcam::Camera& mCamera;
    const uint64_t mnBefore; // errors
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    uint64_t mnErrors = 0;
    std::optional<std::string> mFirst, mFirstOfReadout;
    vxcam::Subscription mSubscription;
};

#endif

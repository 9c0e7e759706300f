// The interface for scripts, below /api/v1.
#ifndef VXCAMD_REST_DOOR_H
#define VXCAMD_REST_DOOR_H

#include "cameras/shared_camera.h"
#include "http/http_message.h"
#include "plans/plan_folder.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

using Cameras = std::vector<std::unique_ptr<SharedCamera>>;

// Threads: any. It owns neither the cameras nor the plans, which may be null: there are none.
class RestDoor
{
public:
    RestDoor(const Cameras& cameras, PlanFolder* plans, std::string version, bool needsToken)
        : cameras_(cameras), plans_(plans), version_(std::move(version)), needsToken_(needsToken)
    {}

    // Whether that path is one of this door's.
    static bool isMine(const std::string& path);

    // Throws Refusal and Error.
    HttpResponse answer(const HttpRequest& request) const;

    // The camera that a path names ("/api/v1/cameras/0/..."). Throws Refusal{404}.
    SharedCamera& cameraOf(const std::vector<std::string>& parts) const;

private:
    HttpResponse answerCamera(const HttpRequest& request, SharedCamera& camera,
                              const std::vector<std::string>& rest) const;
    HttpResponse answerDocument() const;

    const Cameras& cameras_;
    PlanFolder* const plans_;
    const std::string version_;
    const bool needsToken_;
    mutable std::once_flag documentMade_;
    mutable HttpResponse document_;
};

// The key of the lease that came with it; empty when none did.
std::string leaseKeyOf(const HttpRequest& request);
// Of a parameter of the query; nothing when it is not there.
std::optional<std::string> queryValue(const HttpRequest& request, const std::string& name);
// What waits as long as "?wait=SECONDS" says, or until that is over, and keeps the client's lease
// meanwhile; nothing when it is not there, or is behind us. Throws Error{Usage}.
std::optional<HttpResponse>
waitAsAsked(const HttpRequest& request, SharedCamera& camera,
            const std::function<bool(std::chrono::milliseconds)>& isOverWithin);

} // namespace vxcam

#endif

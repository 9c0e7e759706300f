// The interface for scripts, below /api/v1.
#ifndef VXCAMD_REST_DOOR_H
#define VXCAMD_REST_DOOR_H

#include "cameras/shared_camera.h"
#include "http/http_message.h"
#include "plans/plan_folder.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

using Cameras = std::vector<std::unique_ptr<SharedCamera>>;

// Threads: any. It owns neither the cameras nor the plans, which may be null: there are none.
class RestDoor
{
public:
    RestDoor(const Cameras& cameras, PlanFolder* plans, std::string version)
        : cameras_(cameras), plans_(plans), version_(std::move(version))
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

    const Cameras& cameras_;
    PlanFolder* const plans_;
    const std::string version_;
};

// Throws Refusal{405} for a method that is not among them ("GET, PUT").
void requireMethod(const HttpRequest& request, const std::string& allowed);
// The same where no query is; throws Error{Usage} for one.
void requirePlain(const HttpRequest& request, const std::string& allowed);
[[noreturn]] void refusePath(const std::string& path);
// The key of the lease that came with it; empty when none did.
std::string leaseKeyOf(const HttpRequest& request);
// Of the only parameter that the query may have. Throws Error{Usage} for any other.
std::optional<std::string> queryValue(const HttpRequest& request, const std::string& name);
// As long as "?wait=SECONDS" says; 0 when it is not there. Throws Error{Usage}.
std::chrono::milliseconds waitOf(const HttpRequest& request);

} // namespace vxcam

#endif

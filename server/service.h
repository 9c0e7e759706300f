// All doors of the server.
#ifndef VXCAMD_SERVICE_H
#define VXCAMD_SERVICE_H

#include "alpaca/alpaca_door.h"
#include "http/guard.h"
#include "http/web_server.h"
#include "metrics/meters.h"
#include "rest/rest_door.h"

#include <memory>
#include <optional>
#include <string>

namespace vxcam {

struct ServiceOptions {
    std::string version;                 // "vxcamd 3.0.7"
    std::string token;                   // empty: none is needed
    bool isSecret = false;               // TLS
    std::optional<AlpacaOptions> alpaca; // nothing: without
    bool isAlpacaOpen = false;           // its clients need no token
    PlanFolder* plans = nullptr;         // null: without
    int watchers = 64;                   // at once, of all cameras
};

// Finds the door for a request, and tells whatever it throws in the words of that door.
//
// Threads: any. It does not own the cameras.
class Service
{
public:
    Service(const Cameras& cameras, const ServiceOptions& options);

    WebHandlers handlers();

private:
    HttpResponse answer(const HttpRequest& request);
    HttpResponse refused(const HttpRequest& request, const Refusal& refusal) const;
    HttpResponse counted(const HttpRequest& request, HttpResponse response);
    bool isAlpaca(const std::string& path) const;
    HttpResponse answerThrowing(const HttpRequest& request, std::string* door);
    HttpResponse answerSession(const HttpRequest& request) const;
    HttpResponse mayOpen(const HttpRequest& request) const;
    void requireLive(const HttpRequest& request) const;

    const Cameras& cameras_;
    const ServiceOptions options_;
    const Guard guard_;
    Meters meters_;
    RestDoor rest_;
    std::unique_ptr<AlpacaDoor> alpaca_; // null: without
};

} // namespace vxcam

#endif

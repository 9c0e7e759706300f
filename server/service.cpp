#include "service.h"

#include "live/watcher.h"
#include "metrics/metrics_text.h"
#include "page/page_files.h"
#include "rest/json_answer.h"
#include "rest/routes.h"

#include <algorithm>
#include <exception>

namespace vxcam {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Of what takes anything in its query, or is no interface for scripts.
void requireGet(const HttpRequest& request)
{
    if (request.method == "GET") return;
    throw Refusal(405, "wrong-method", "this takes only GET", {{"Allow", "GET"}});
}

HttpResponse textAnswer(const std::string& text, int status = 200)
{
    HttpResponse response;
    response.status = status;
    response.body = text;
    return response;
}

bool isBelow(const std::string& path, const std::string& folder)
{
    return path.rfind(folder, 0) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

// /api/v1/cameras/0/live
bool isLive(const HttpRequest& request)
{
    constexpr size_t kPart = 4;
    const std::vector<std::string> parts = pathParts(request.path);
    return isBelow(request.path, "/api/v1/cameras") && parts.size() == kPart + 1 &&
           parts[kPart] == "live";
}

// While the camera that a path names may be asked something; null where it is not.
std::shared_ptr<void> placeOf(const HttpRequest& request, const Cameras& cameras, bool isAlpaca)
{
    constexpr size_t kCamera = 3, kWhat = 4; // in /api/v1/cameras/0/properties
    const std::vector<std::string> parts = pathParts(request.path);
    if (parts.size() <= kWhat) return nullptr;
    const bool isChange = request.method != "GET";
    const std::string& what = parts[kWhat];
    const bool isAsked = isAlpaca || what == "properties" ||
                         (isChange && (what == "exposures" || what == "sequence"));
    for (const auto& camera : cameras) {
        const bool isThat = parts[kCamera] == std::to_string(camera->number());
        if (isAsked && isThat) return camera->places().take(isChange);
    }
    return nullptr;
}

} // namespace

Service::Service(const Cameras& cameras, const ServiceOptions& options)
    : cameras_(cameras), options_(options), guard_(options.token),
      rest_(cameras, options.plans, options.version, !options.token.empty())
{
    if (options.alpaca) alpaca_ = std::make_unique<AlpacaDoor>(cameras, *options.alpaca);
}

HttpResponse Service::answerSession(const HttpRequest& request) const
{
    requireRoute(request);
    guard_.requireSite(request, true);
    Members members(bodyObject(request));
    const std::string token = members.takeText("token", "");
    members.requireEmpty();
    if (!guard_.isRight(token)) throw Refusal(401, "token", "that is not the server's token");
    HttpResponse response = jsonAnswer(Json::object());
    response.headers = {{"Set-Cookie", guard_.cookie(options_.isSecret)}};
    return response;
}

HttpResponse Service::answerThrowing(const HttpRequest& request, std::string* door)
{
    const std::string& path = request.path;
    if (path == "/healthz") {
        requireGet(request);
        return textAnswer("ok\n");
    }
    if (path == "/api/v1/session") return answerSession(request);
    if (const std::optional<HttpResponse> file = pageFile(path)) { // has no secrets
        *door = "page";
        requireGet(request);
        guard_.requireSite(request, false);
        return *file;
    }
    const bool isForAlpaca = isAlpaca(path);
    const bool changes = request.method != "GET";
    if (isForAlpaca && options_.isAlpacaOpen) {
        guard_.requireOpen(request, changes);
    } else {
        guard_.require(request, changes);
    }
    if (isForAlpaca) *door = "alpaca";
    const std::shared_ptr<void> place = placeOf(request, cameras_, isForAlpaca);
    if (isForAlpaca) return alpaca_->answer(request);
    if (path == "/metrics") {
        *door = "metrics";
        requireGet(request);
        HttpResponse response = textAnswer(metricsText(cameras_, meters_, options_.version));
        response.type = kMetricsType;
        return response;
    }
    if (isBelow(path, "/api/v1")) {
        *door = "rest";
        if (isLive(request)) requireLive(request);
        return rest_.answer(request);
    }
    refusePath(path);
}

// A slash too many makes a path nobody else's.
bool Service::isAlpaca(const std::string& path) const
{
    std::string plain = path;
    const auto areSlashes = [](char one, char other) { return one == '/' && other == '/'; };
    plain.erase(std::unique(plain.begin(), plain.end(), areSlashes), plain.end());
    return alpaca_ && !RestDoor::isMine(plain) && AlpacaDoor::isMine(path);
}

HttpResponse Service::refused(const HttpRequest& request, const Refusal& refusal) const
{
    return isAlpaca(request.path) ? AlpacaDoor::refused(refusal) : errorAnswer(refusal);
}

// By its path alone.
HttpResponse Service::counted(const HttpRequest& request, HttpResponse response)
{
    const char* const door = isAlpaca(request.path)             ? "alpaca"
                             : isBelow(request.path, "/api/v1") ? "rest"
                                                                : "other";
    meters_.answered(door, response.status);
    return response;
}

HttpResponse Service::answer(const HttpRequest& request)
{
    const auto begun = SteadyClock::now();
    std::string door = "other";
    HttpResponse response;
    try {
        response = answerThrowing(request, &door);
    } catch (const Refusal& refusal) {
        response = refused(request, refusal);
    } catch (const Error& error) {
        response = errorAnswer(error);
    } catch (const std::exception& failure) {
        response = errorAnswer(Refusal(500, "server", failure.what()));
    }
    if (!response.wait) meters_.answered(door, response.status, SteadyClock::now() - begun);
    return response;
}

HttpResponse Service::mayOpen(const HttpRequest& request) const
{
    try {
        guard_.require(request, true);
        if (!isLive(request)) refusePath(request.path);
        requireLive(request);
        return {};
    } catch (const Refusal& refusal) {
        return errorAnswer(refusal);
    } catch (const std::exception& failure) {
        return errorAnswer(Refusal(500, "server", failure.what()));
    }
}

// That the camera is there, and a place among its watchers is free. Whom a browser refuses a
// WebSocket is not told why: a page asks for the same by an ordinary request.
void Service::requireLive(const HttpRequest& request) const
{
    requireRoute(request);
    rest_.cameraOf(pathParts(request.path));
    Watcher::requirePlace(meters_, options_.watchers);
}

WebHandlers Service::handlers()
{
    WebHandlers handlers;
    handlers.request = [this](const HttpRequest& request) { return answer(request); };
    handlers.refused = [this](const HttpRequest& request, const Refusal& refusal) {
        return counted(request, refused(request, refusal));
    };
    handlers.upgrade = [this](const HttpRequest& request) {
        const HttpResponse response = mayOpen(request);
        return response.status < 400 ? response : counted(request, response);
    };
    handlers.open = [this](const HttpRequest& request, SocketWriter& writer) {
        return std::make_unique<Watcher>(rest_.cameraOf(pathParts(request.path)), writer, meters_,
                                         options_.watchers);
    };
    return handlers;
}

} // namespace vxcam

#include "rest/rest_door.h"

#include "rest/json_answer.h"
#include "rest/openapi.h"
#include "rest/property_json.h"
#include "rest/rest_exposures.h"
#include "rest/rest_sequences.h"
#include "rest/routes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace vxcam {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::seconds kBetweenSigns{15};
constexpr std::chrono::milliseconds kLook{250};

Json leaseJson(const Lease::State& lease)
{
    if (!lease.isHeld) return {{"held", false}};
    return {{"held", true},
            {"holder", lease.holder},
            {"since", lease.since},
            {"left", std::chrono::duration<double>(lease.left).count()}};
}

Json cameraJson(SharedCamera& camera)
{
    Json json;
    json["id"] = camera.number();
    json["target"] = camera.target();
    json["link"] = camera.isLinkUp();
    try {
        const std::shared_ptr<Camera> open = camera.camera();
        json["open"] = true;
        json["address"] = open->address();
        json["name"] = open->identity().name;
        json["serial"] = open->identity().serial;
        json["version"] = open->identity().version;
        json["columns"] = open->sensor().columns;
        json["rows"] = open->sensor().rows;
    } catch (const Error& error) {
        json["open"] = false;
        json["trouble"] = errorJson(error);
    }
    const auto temperatures = camera.temperatures();
    json["sensor_temperature"] = temperatures ? Json(temperatures->sensor) : Json();
    json["board_temperature"] = temperatures ? Json(temperatures->board) : Json();
    const auto age = camera.heartbeatAge();
    json["heartbeat_age"] = age ? Json(age->count()) : Json();
    const auto interval = camera.heartbeatInterval();
    json["heartbeat_interval"] = interval ? Json(interval->count()) : Json();
    json["lease"] = leaseJson(camera.lease().state());
    const auto running = camera.exposures().running();
    json["exposure"] = running ? Json(running->id) : Json();
    const SequenceStatus sequence = camera.sequences().status();
    json["sequence"] = isOver(sequence.state) ? Json() : Json(sequence.order.name);
    return json;
}

// All that is listed and can be read, asked for now.
HttpResponse answerProperties(SharedCamera& camera)
{
    const std::shared_ptr<Camera> open = camera.camera();
    Json json = Json::object();
    for (const Property& property : properties()) {
        if (!property.isReadable() || !property.isListed || property.key != nullptr) continue;
        std::string why;
        const std::optional<Value> value = open->tryGet(property.name, &why);
        if (value) {
            json[property.name] = {{"value", Json::parse(value->json())}, {"text", value->text()}};
        } else {
            json[property.name] = {{"trouble", why}};
        }
    }
    return jsonAnswer(json);
}

HttpResponse answerProperty(const HttpRequest& request, SharedCamera& camera,
                            const std::string& text)
{
    const PropertyName name = [&] {
        try {
            return findProperty(text);
        } catch (const Error& error) {
            throw Refusal(404, "unknown-property", error.what());
        }
    }();
    if (request.method == "GET") return jsonAnswer(valueJson(text, camera.get(text)));
    camera.lease().require(leaseKeyOf(request));
    Members members(bodyObject(request));
    const bool isGiven = members.has("value");
    const Json value = members.take("value");
    members.requireEmpty();
    if (!isGiven || (value.is_null() && !name.property->shape.mayBeNone)) {
        throw Error(ErrorKind::Usage, "the body needs a \"value\"");
    }
    const Shape& shape = name.property->shape;
    return jsonAnswer(valueJson(text, camera.set(text, parsedJson(text, shape, textOf(value)))));
}

HttpResponse answerLease(const HttpRequest& request, SharedCamera& camera)
{
    Lease& lease = camera.lease();
    const std::string key = leaseKeyOf(request);
    if (request.method == "DELETE") lease.giveBack(key);
    if (request.method != "POST") return jsonAnswer(leaseJson(lease.state()));
    Members members(bodyObject(request));
    const std::string holder = members.takeText("holder", request.remote);
    const bool fromOthers = members.takeBool("take", false);
    members.requireEmpty();
    constexpr size_t kMostName = 100;
    if (holder.empty() || holder.size() > kMostName) {
        throw Error(ErrorKind::Usage, "holder: 1 to 100 bytes");
    }
    if (std::any_of(holder.begin(), holder.end(), [](unsigned char c) { return c < ' '; })) {
        throw Error(ErrorKind::Usage, "holder: no control characters");
    }
    const std::string taken = lease.take(holder, key, fromOthers);
    Json json = leaseJson(lease.state());
    json["key"] = taken;
    return jsonAnswer(json);
}

// Server-sent events.
HttpResponse answerEvents(const HttpRequest& request, SharedCamera& camera)
{
    uint64_t last = camera.events().last();
    const std::string* const header = request.header("Last-Event-ID");
    std::optional<std::string> since = queryValue(request, "since");
    if (header != nullptr && !header->empty()) since = *header;
    if (since) {
        const char* const behind = since->data() + since->size();
        const auto [end, error] = std::from_chars(since->data(), behind, last);
        if (error != std::errc() || end != behind) {
            throw Error(ErrorKind::Usage, "since: the number of an event is needed");
        }
        if (last > camera.events().last()) last = 0; // it was told by a server before this one
    }
    HttpResponse response;
    response.type = "text/event-stream";
    response.stream = [&camera, last](const Outlet& outlet) {
        uint64_t seen = last;
        auto told = std::chrono::steady_clock::now();
        if (!outlet(": events of camera " + std::to_string(camera.number()) + "\n\n")) return;
        for (;;) {
            std::string text;
            camera.lease().state(); // that it has run out is an event
            for (const LoggedEvent& event : camera.events().after(seen, kLook)) {
                text += "id: " + std::to_string(event.id) + "\nevent: " + event.kind +
                        "\ndata: " + event.text + "\n\n";
                seen = event.id;
            }
            const auto now = std::chrono::steady_clock::now();
            if (text.empty() && now - told >= kBetweenSigns) text = ": still here\n\n";
            if (!text.empty()) told = now;
            if (!outlet(text)) return;
        }
    };
    return response;
}

std::chrono::milliseconds untilThen(SteadyClock::time_point then)
{
    return std::chrono::ceil<std::chrono::milliseconds>(then - SteadyClock::now());
}

// 0 when it is not there.
std::chrono::milliseconds waitOf(const HttpRequest& request)
{
    constexpr double kMost = 60; // seconds
    const std::optional<std::string> text = queryValue(request, "wait");
    if (!text) return std::chrono::milliseconds(0);
    double seconds = -1;
    const char* const last = text->data() + text->size();
    const auto [end, error] = std::from_chars(text->data(), last, seconds);
    if (error != std::errc() || end != last || !(seconds >= 0 && seconds <= kMost)) {
        throw Error(ErrorKind::Usage, "wait: 0 to 60 s");
    }
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

} // namespace

std::string leaseKeyOf(const HttpRequest& request)
{
    const std::string* const key = request.header("X-Lease");
    return key != nullptr ? *key : "";
}

std::optional<std::string> queryValue(const HttpRequest& request, const std::string& name)
{
    for (const auto& [key, value] : parsedForm(request.query)) {
        if (key == name) return value;
    }
    return {};
}

std::optional<HttpResponse>
waitAsAsked(const HttpRequest& request, SharedCamera& camera,
            const std::function<bool(std::chrono::milliseconds)>& isOverWithin)
{
    const std::chrono::milliseconds most = waitOf(request);
    if (request.hasWaited || most.count() == 0) return {};
    HttpResponse response;
    response.wait = [&camera, isOverWithin, most, key = leaseKeyOf(request)] {
        const auto end = SteadyClock::now() + most;
        for (auto left = most; left.count() > 0; left = untilThen(end)) {
            if (isOverWithin(std::min(left, kLook))) return;
            camera.lease().renew(key);
        }
    };
    return response;
}

SharedCamera& RestDoor::cameraOf(const std::vector<std::string>& parts) const
{
    constexpr size_t kPlace = 3;
    const std::string text = parts.size() > kPlace ? parts[kPlace] : "";
    for (const auto& camera : cameras_) {
        if (text == std::to_string(camera->number())) return *camera;
    }
    throw Refusal(404, "unknown-camera", "there is no camera '" + text + "'");
}

HttpResponse RestDoor::answerCamera(const HttpRequest& request, SharedCamera& camera,
                                    const std::vector<std::string>& rest) const
{
    camera.lease().renew(leaseKeyOf(request));
    if (rest.empty()) return jsonAnswer(cameraJson(camera));
    if (rest[0] == "properties" && rest.size() == 1) return answerProperties(camera);
    if (rest[0] == "properties") return answerProperty(request, camera, rest[1]);
    const std::vector<std::string> behind(rest.begin() + 1, rest.end());
    if (rest[0] == "exposures") return answerExposures(request, camera, behind, version_);
    if (rest[0] == "sequence") return answerSequence(request, plans_, camera, behind, version_);
    if (rest[0] == "lease") return answerLease(request, camera);
    if (rest[0] == "events") return answerEvents(request, camera);
    throw Refusal(426, "websocket", "frames come here by a WebSocket alone",
                  {{"Upgrade", "websocket"}});
}

bool RestDoor::isMine(const std::string& path)
{
    const std::vector<std::string> parts = pathParts(path);
    if (parts.size() < 3 || parts[0] != "api" || parts[1] != "v1") return false;
    return parts[2] == "cameras" || parts[2] == "properties" || parts[2] == "plans" ||
           parts[2] == "openapi.json";
}

// Made once: it takes longer than anything else that is asked for.
HttpResponse RestDoor::answerDocument() const
{
    std::call_once(documentMade_,
                   [this] { document_ = jsonAnswer(openApiDocument(version_, needsToken_)); });
    return document_;
}

HttpResponse RestDoor::answer(const HttpRequest& request) const
{
    requireRoute(request);
    const std::vector<std::string> parts = pathParts(request.path); // api, v1, ...
    const std::string& what = parts[2];
    constexpr size_t kCameraParts = 4;
    if (what == "cameras" && parts.size() >= kCameraParts) {
        return answerCamera(request, cameraOf(parts), {parts.begin() + kCameraParts, parts.end()});
    }
    if (what == "plans") {
        return answerPlans(request, plans_, cameras_, {parts.begin() + 3, parts.end()});
    }
    Json json = Json::array();
    if (what == "cameras") {
        for (const auto& camera : cameras_) {
            json.push_back(cameraJson(*camera));
        }
        return jsonAnswer({{"cameras", json}, {"server", version_}});
    }
    if (what == "properties") {
        for (const Property& property : properties()) {
            json.push_back(propertyJson(property));
        }
        return jsonAnswer({{"properties", json}});
    }
    return answerDocument();
}

} // namespace vxcam

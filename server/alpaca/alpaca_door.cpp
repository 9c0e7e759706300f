#include "alpaca/alpaca_door.h"

#include "alpaca/alpaca_error.h"

#include <algorithm>
#include <functional>

namespace vxcam {

namespace {

constexpr const char* kJson = "application/json; charset=utf-8";
constexpr const char* kImageBytes = "application/imagebytes";

HttpResponse textAnswer(const std::string& body, const char* type)
{
    HttpResponse response;
    response.type = type;
    response.body = body;
    return response;
}

// The part of every answer that is behind its value.
Json tailOf(const Transactions& ids, int number, const std::string& text)
{
    return {{"ClientTransactionID", ids.client},
            {"ServerTransactionID", ids.server},
            {"ErrorNumber", number},
            {"ErrorMessage", text}};
}

HttpResponse valueAnswer(const Json& value, const Transactions& ids)
{
    Json json = Json::object();
    if (!value.is_null()) json["Value"] = value;
    json.update(tailOf(ids, 0, ""));
    return textAnswer(textOf(json), kJson);
}

// What the device refuses becomes an answer, too.
HttpResponse guarded(const Transactions& ids, const std::function<HttpResponse()>& make)
{
    const auto refusal = [&](const AlpacaError& error) {
        return textAnswer(textOf(tailOf(ids, error.number(), error.what())), kJson);
    };
    try {
        return make();
    } catch (const AlpacaError& error) {
        return refusal(error);
    } catch (const Error& error) {
        return refusal(AlpacaError(error));
    }
}

[[noreturn]] void refuse(const std::string& text)
{
    throw Refusal(400, "usage", text);
}

void requireVerb(const HttpRequest& request, bool hasGet, bool hasPut)
{
    if ((request.method == "GET" && hasGet) || (request.method == "PUT" && hasPut)) return;
    const std::string allowed = hasGet && hasPut ? "GET, PUT" : hasGet ? "GET" : "PUT";
    throw Refusal(405, "wrong-method", "this takes " + allowed, {{"Allow", allowed}});
}

bool wantsBytes(const HttpRequest& request)
{
    const std::string* const accepted = request.header("Accept");
    if (accepted == nullptr) return false;
    const std::string wanted = kImageBytes;
    const auto found = std::search(accepted->begin(), accepted->end(), wanted.begin(), wanted.end(),
                                   [](char a, char b) { return equalsIgnoringCase({a}, {b}); });
    return found != accepted->end();
}

} // namespace

AlpacaDoor::AlpacaDoor(const std::vector<std::unique_ptr<SharedCamera>>& cameras,
                       const AlpacaOptions& options)
    : options_(options)
{
    for (const auto& camera : cameras) {
        const auto twins = std::count_if(
            cameras.begin(), cameras.begin() + static_cast<std::ptrdiff_t>(cameras_.size()),
            [&](const auto& other) { return other->target() == camera->target(); });
        cameras_.push_back(
            std::make_unique<AlpacaCamera>(*camera, options, static_cast<int>(twins)));
    }
}

bool AlpacaDoor::isMine(const std::string& path)
{
    constexpr size_t kMemberParts = 5; // api, v1, device type, its number, member
    const std::vector<std::string> parts = pathParts(path);
    const bool isCamera = parts.size() > 2 && parts[2] == "camera";
    return (parts[0] == "api" && (isCamera || parts.size() >= kMemberParts)) ||
           parts[0] == "management" || parts[0] == "setup";
}

Transactions AlpacaDoor::transactionsOf(const AlpacaForm& form)
{
    uint32_t server = ++transaction_;
    if (server == 0) server = ++transaction_;
    return {form.clientTransaction(), server};
}

AlpacaCamera& AlpacaDoor::cameraOf(const std::string& number) const
{
    for (size_t i = 0; i < cameras_.size(); ++i) {
        if (number == std::to_string(i)) return *cameras_[i];
    }
    refuse("there is no camera '" + number + "'");
}

HttpResponse AlpacaDoor::answerManagement(const HttpRequest& request)
{
    const std::string& path = request.path;
    Json value;
    if (path == "/management/apiversions") {
        value = Json::array({1});
    } else if (path == "/management/v1/description") {
        value = {{"ServerName", "vxcamd"},
                 {"Manufacturer", "libvxcamiface"},
                 {"ManufacturerVersion", VXCAM_VERSION},
                 {"Location", ""}};
    } else if (path == "/management/v1/configureddevices") {
        value = Json::array();
        for (size_t i = 0; i < cameras_.size(); ++i) {
            value.push_back({{"DeviceName", cameras_[i]->name()},
                             {"DeviceType", "Camera"},
                             {"DeviceNumber", i},
                             {"UniqueID", cameras_[i]->uniqueId()}});
        }
    } else {
        throw Refusal(404, "unknown-path", "there is nothing at " + path);
    }
    requireVerb(request, true, false);
    return valueAnswer(value, transactionsOf(AlpacaForm(request)));
}

HttpResponse AlpacaDoor::answerSetup(const HttpRequest& request) const
{
    const std::vector<std::string> parts = pathParts(request.path); // setup v1 camera 0 setup
    const bool isWhole = parts.size() == 1;
    const bool isCamera =
        parts.size() == 5 && parts[1] == "v1" && parts[2] == "camera" && parts[4] == "setup";
    if (!isWhole && !isCamera) refuse("there is nothing at " + request.path);
    if (isCamera) cameraOf(parts[3]);
    requireVerb(request, true, false);
    return textAnswer("<!DOCTYPE html>\n<html lang=\"en\"><title>vxcamd</title>\n"
                      "<p>Nothing is set up here. Cameras are named on the command line of vxcamd; "
                      "their properties are at <a href=\"/api/v1/cameras\">/api/v1/cameras</a>.\n",
                      "text/html; charset=utf-8");
}

HttpResponse AlpacaDoor::answerMember(const HttpRequest& request, AlpacaCamera& camera,
                                      const AlpacaMember& member)
{
    requireVerb(request, member.get != nullptr, member.put != nullptr);
    const AlpacaForm form(request);
    const AlpacaAction action =
        request.method == "PUT" ? member.put(camera, form) : [&] { return member.get(camera); };
    const Transactions ids = transactionsOf(form);
    return guarded(ids, [&] {
        if (member.needsConnection && !camera.wantsConnection()) {
            throw AlpacaError(AlpacaNumber::NotConnected, "the camera is not connected");
        }
        if (member.needsConnection && !member.outlivesLink) camera.requireLink();
        camera.stillThere(form.client());
        if (member.needsControl && request.method == "PUT") {
            camera.control(form.client(), form.name());
        }
        return valueAnswer(action(), ids);
    });
}

HttpResponse AlpacaDoor::answerImage(const HttpRequest& request, AlpacaCamera& camera)
{
    requireVerb(request, true, false);
    const AlpacaForm form(request);
    const Transactions ids = transactionsOf(form);
    return guarded(ids, [&] {
        camera.stillThere(form.client());
        if (!camera.wantsConnection()) {
            throw AlpacaError(AlpacaNumber::NotConnected, "the camera is not connected");
        }
        const AlpacaImage image = camera.image();
        if (wantsBytes(request)) return textAnswer(imageBytes(image, ids), kImageBytes);
        // Clients look for type and rank at the beginning.
        const std::string tail = textOf(tailOf(ids, 0, "")).substr(1);
        return textAnswer(R"({"Type":2,"Rank":2,"Value":)" + imageJson(image) + "," + tail, kJson);
    });
}

HttpResponse AlpacaDoor::answerThrowing(const HttpRequest& request)
{
    const std::vector<std::string> parts = pathParts(request.path); // api v1 camera 0 member
    if (parts[0] == "management") return answerManagement(request);
    if (parts[0] == "setup") return answerSetup(request);
    constexpr size_t kParts = 5;
    if (parts.size() != kParts || parts[1] != "v1" || parts[2] != "camera") {
        refuse("there is nothing at " + request.path +
               "; /api/v1/camera/NUMBER/MEMBER is what there is, in small letters");
    }
    AlpacaCamera& camera = cameraOf(parts[3]);
    if (parts[4] == "imagearray" || parts[4] == "imagearrayvariant") {
        return answerImage(request, camera);
    }
    for (const AlpacaMember& member : alpacaMembers()) {
        if (parts[4] != member.name || member.since > options_.interfaceVersion) continue;
        return answerMember(request, camera, member);
    }
    refuse("a camera has no member '" + parts[4] + "'");
}

HttpResponse AlpacaDoor::refused(const Refusal& refusal)
{
    HttpResponse response =
        textAnswer(std::string(refusal.what()) + "\n", "text/plain; charset=utf-8");
    response.status = refusal.status();
    response.headers = refusal.headers();
    return response;
}

HttpResponse AlpacaDoor::answer(const HttpRequest& request)
{
    try {
        return answerThrowing(request);
    } catch (const Refusal& refusal) {
        return refused(refusal);
    }
}

} // namespace vxcam

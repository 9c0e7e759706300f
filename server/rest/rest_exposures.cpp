#include "rest/rest_exposures.h"

#include "cameras/frame_json.h"
#include "rest/json_answer.h"
#include "rest/plan_json.h"
#include "rest/rest_door.h"
#include "rest/routes.h"

#include <vxcamkit/fits.h>
#include <vxcamkit/preview.h>

#include <charconv>
#include <cmath>
#include <optional>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostStarting{10};

template <class Number>
std::optional<Number> numberOf(const std::string& text)
{
    Number number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || end != last) return {};
    return number;
}

const char* nameOf(Progress::Phase phase)
{
    switch (phase) {
    case Progress::Phase::Waiting:
        return "waiting";
    case Progress::Phase::Exposing:
        return "exposing";
    case Progress::Phase::Exposed:
        return "exposed";
    case Progress::Phase::Reading:
        return "reading";
    case Progress::Phase::Ended:
        break;
    }
    return "ended";
}

Json exposureJson(const Exposure& exposure)
{
    Json json;
    json["id"] = exposure.id;
    json["state"] = nameOf(exposure.state);
    json["over"] = isOver(exposure.state);
    json["begun"] = exposure.begun;
    json["plan"] = planJson(exposure.plan);
    json["came"] = exposure.came;
    if (!isOver(exposure.state)) {
        const Progress& progress = exposure.progress;
        json["progress"] = {{"phase", nameOf(progress.phase)},
                            {"frame", progress.frame},
                            {"done", progress.done},
                            {"elapsed", std::chrono::duration<double>(progress.elapsed).count()}};
    }
    json["frames"] = Json::array();
    for (const Frame& frame : exposure.frames) {
        json["frames"].push_back(
            {{"number", frame.facts().number}, {"complete", frame.complete()}});
    }
    json["error"] = exposure.error ? errorJson(*exposure.error) : Json();
    return json;
}

HttpResponse fileAnswer(FileBytes bytes, const std::string& type)
{
    const auto file = std::make_shared<FileBytes>(std::move(bytes));
    HttpResponse response;
    response.type = type;
    response.data = file->data();
    response.size = file->size();
    response.held = file;
    return response;
}

HttpResponse rawAnswer(const Frame& frame)
{
    const auto held = std::make_shared<Frame>(frame);
    HttpResponse response;
    response.type = "application/octet-stream";
    response.data = static_cast<const char*>(held->data());
    response.size = held->bytes();
    response.held = held;
    return response;
}

HttpResponse answerFrame(const HttpRequest& request, const Frame& frame, const std::string& format,
                         const std::string& version)
{
    const std::string wish = queryValue(request, "incomplete").value_or("no");
    const bool isWanted = wish == "yes";
    if (!isWanted && wish != "no") throw Error(ErrorKind::Usage, "incomplete: yes or no");
    if (format == "json") return jsonAnswer(frameJson(frame));
    if (!frame.complete() && !isWanted) {
        Json error = errorJson(IncompleteFrame(frame));
        error["frame"] = frameJson(frame);
        return jsonAnswer({{"error", error}}, rowOf(ErrorKind::Incomplete).http);
    }
    HttpResponse response;
    if (format == "raw") {
        response = rawAnswer(frame);
    } else if (format == "fits") {
        HeaderOptions options;
        options.software = version;
        options.settings = true;
        response = fileAnswer(makeFits(frame, options), "application/fits");
    } else {
        response = fileAnswer(makePreview(frame), "image/png");
    }
    response.headers = {{"X-Frame-Complete", frame.complete() ? "yes" : "no"},
                        {"X-Frame-Number", std::to_string(frame.facts().number)},
                        {"X-Frame-Columns", std::to_string(frame.columns())},
                        {"X-Frame-Rows", std::to_string(frame.rows())},
                        {"X-Frame-Bits", std::to_string(frame.bits())},
                        {"X-Frame-Sum", std::to_string(frame.sum())}};
    return response;
}

// "frames/3.fits", or "frame.fits" for the last one.
HttpResponse answerFrames(const HttpRequest& request, const Exposure& exposure,
                          const std::vector<std::string>& rest, const std::string& version)
{
    const std::string& file = rest.back();
    const size_t dot = file.rfind('.');
    const std::string stem = file.substr(0, dot);
    const std::string format = dot == std::string::npos ? "" : file.substr(dot + 1);
    const bool isKnown = format == "fits" || format == "png" || format == "raw" || format == "json";
    const bool isLast = rest.size() == 1 && stem == "frame";
    const bool isOne = rest.size() == 2 && rest[0] == "frames";
    const int number = isOne ? numberOf<int>(stem).value_or(0) : 0;
    if (!isKnown || (!isLast && number < 1)) {
        refusePath(request.path);
    }
    if (isLast && !exposure.frames.empty()) {
        return answerFrame(request, exposure.frames.back(), format, version);
    }
    if (const Frame* const frame = isOne ? exposure.frame(number) : nullptr) {
        return answerFrame(request, *frame, format, version);
    }
    if (exposure.error) throw Error(*exposure.error);
    if (isLast ? exposure.came > 0 : static_cast<uint64_t>(number) <= exposure.came) {
        throw Refusal(410, "gone", "this frame is not kept any more");
    }
    if (!isOver(exposure.state)) throw Refusal(409, "not-ready", "this frame has not come yet");
    throw Refusal(404, "unknown-frame", "the exposure has no such frame");
}

// What the camera would refuse when the exposure has been taken on.
void requireBins(const Plan& plan, Size sensor)
{
    if (plan.binningX.value_or(1) <= sensor.columns && plan.binningY.value_or(1) <= sensor.rows) {
        return;
    }
    throw Error(ErrorKind::Usage, "binning: a bin is larger than the sensor, which has " +
                                      std::to_string(sensor.columns) + " x " +
                                      std::to_string(sensor.rows) + " pixels");
}

HttpResponse start(const HttpRequest& request, SharedCamera& camera)
{
    camera.lease().require(leaseKeyOf(request));
    const Plan plan = planOf(bodyObject(request));
    requireBins(plan, camera.camera()->sensor()); // throws why it is not open
    const uint64_t id = camera.exposures().start(plan, kMostStarting);
    const auto exposure = camera.exposures().find(id);
    HttpResponse response = jsonAnswer(exposure ? exposureJson(*exposure) : Json{{"id", id}}, 202);
    response.headers = {{"Location", request.path + "/" + std::to_string(id)}};
    return response;
}

} // namespace

HttpResponse answerExposures(const HttpRequest& request, SharedCamera& camera,
                             const std::vector<std::string>& rest, const std::string& version)
{
    if (rest.empty()) {
        if (request.method == "POST") return start(request, camera);
        Json list = Json::array();
        for (const Exposure& exposure : camera.exposures().all()) {
            list.push_back(exposureJson(exposure));
        }
        return jsonAnswer({{"exposures", list}});
    }
    const auto id = numberOf<uint64_t>(rest[0]);
    if (id && rest.size() == 1 && request.method == "GET") {
        const auto isOver = [&camera, id = *id](auto most) {
            return camera.exposures().wait(id, most);
        };
        if (auto wait = waitAsAsked(request, camera, isOver)) return *wait;
    }
    auto exposure = id ? camera.exposures().find(*id) : std::nullopt;
    if (!exposure) throw Refusal(404, "unknown-exposure", "there is no exposure '" + rest[0] + "'");
    if (rest.size() > 1) {
        return answerFrames(request, *exposure, {rest.begin() + 1, rest.end()}, version);
    }
    if (request.method == "DELETE") {
        camera.lease().require(leaseKeyOf(request));
        camera.exposures().abort(*id);
        exposure = camera.exposures().find(*id);
    }
    return jsonAnswer(exposure ? exposureJson(*exposure) : Json{{"id", *id}});
}

} // namespace vxcam

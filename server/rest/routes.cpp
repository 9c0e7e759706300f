#include "rest/routes.h"

#include <algorithm>
#include <set>

namespace vxcam {

namespace {

constexpr const char* kFrameTypes =
    "application/fits image/png application/octet-stream FrameFacts";
constexpr const char* kFrameMore =
    "Pixels in raw are those of the rows one after the other, low bytes first; X-Frame-Columns, "
    "-Rows, -Bits, -Number, -Sum and -Complete describe them.";
constexpr const char* kFrameHint =
    "; frames are frame.FORMAT, the last one, and frames/NUMBER.FORMAT, from 1; formats are fits, "
    "png, raw and json";
constexpr const char* kLiveMore =
    "A WebSocket. Of each frame comes a text, LiveFrame, and behind it its pixels in a binary "
    "message, row after row, low bytes first; of each event a LiveEvent. The client may send "
    "LiveWish, and has a LiveBeat as often as it asks for; whatever else it sends is answered with "
    "LiveError, and changes nothing.";
constexpr const char* kEventsMore =
    "Server-sent events: id is that of the event, event its kind, data an Event. Events that are "
    "not kept any more are told by one of the kind forgotten in their place. A comment comes when "
    "nothing else has for 15 s.";

const QueryParameter kWait{"wait", R"({"type": "number", "minimum": 0, "maximum": 60})",
                           "seconds to wait until it is over"};
const QueryParameter kIncomplete{"incomplete", R"({"enum": ["yes", "no"], "default": "no"})",
                                 "whether a frame of which rows are missing is wanted, too"};
const QueryParameter kSince{"since", R"({"type": "integer", "minimum": 0})",
                            "begins behind that event; as the header Last-Event-ID"};
const QueryParameter kCheck{"check", R"({"enum": ["yes", "no"], "default": "no"})",
                            "only look what is wrong with it; nothing is stored"};
const QueryParameter kFolder{"folder", R"({"type": "string"})",
                             "where its frames went, if not where the plan says"};
const QueryParameter kWhen{"when", R"({"enum": ["now", "frame"], "default": "now"})",
                           "at once, or behind the frame that is under way"};

// What a camera fails with.
std::vector<int> andOfCamera(std::vector<int> statuses)
{
    statuses.insert(statuses.end(), {409, 502, 503, 504});
    return statuses;
}

std::vector<Route> serverRoutes()
{
    return {
        {"/healthz", true, {{"GET", "whether the server serves", "text/plain", {200}, {}}}},
        {"/metrics", false, {{"GET", "figures for Prometheus", "text/plain", {200}, {}}}},
        {"/api/v1/session",
         true,
         {{"POST", "trades the token for a cookie", "Nothing", {200}, {}, {}, "Session"}}},
        {"/api/v1/openapi.json", false, {{"GET", "this document", "Document", {200}, {}}}},
        {"/api/v1/properties",
         false,
         {{"GET", "the table of properties", "PropertyTable", {200}, {}}}},
        {"/api/v1/plans",
         false,
         {{"GET", "plans of sequences, and what is wrong with them", "PlanList", {200}, {404}}}},
        {"/api/v1/plans/{plan}",
         false,
         {{"GET", "the plan as it is written", "application/yaml", {200}, {404}},
          {"PUT",
           "checks a plan, and stores it",
           "Plan",
           {200, 201},
           {404, 409},
           {kCheck},
           "application/yaml"},
          {"DELETE", "removes a plan; its frames stay", "Nothing", {200}, {404, 409}}}},
        {"/api/v1/plans/{plan}/report",
         false,
         {{"GET", "what has become of a plan", "SequenceReport", {200}, {404}, {kFolder}}}},
        {"/api/v1/cameras", false, {{"GET", "all cameras", "CameraList", {200}, {}}}},
    };
}

std::vector<Route> cameraRoutes()
{
    return {
        {"/api/v1/cameras/{camera}",
         false,
         {{"GET", "one camera: who it is, and how it stands", "Camera", {200}, {404}}}},
        {"/api/v1/cameras/{camera}/properties",
         false,
         {{"GET",
           "all properties that are listed, asked for now",
           "PropertyValues",
           {200},
           andOfCamera({404})}}},
        {kPropertyPath,
         false,
         {{"GET", "what a property reads", "PropertyValue", {200}, andOfCamera({404})},
          {"PUT",
           "sets a property",
           "PropertyValue",
           {200},
           andOfCamera({404, 423}),
           {},
           "PropertyWish",
           true}}},
        {"/api/v1/cameras/{camera}/lease",
         false,
         {{"GET", "who controls the camera", "Lease", {200}, {404}},
          {"POST",
           "takes the control, or renews it",
           "TakenLease",
           {200},
           {404, 423},
           {},
           "LeaseWish",
           true},
          {"DELETE", "gives the control back", "Lease", {200}, {404, 423}, {}, nullptr, true}}},
        {"/api/v1/cameras/{camera}/events",
         false,
         {{"GET",
           "what happens, as it happens",
           "text/event-stream",
           {200},
           {404},
           {kSince},
           nullptr,
           false,
           kEventsMore}}},
        {"/api/v1/cameras/{camera}/live",
         false,
         {{"GET",
           "frames and events as they come",
           "",
           {101},
           {404, 426, 503},
           {},
           nullptr,
           false,
           kLiveMore}}},
    };
}

std::vector<Route> workRoutes()
{
    return {
        {"/api/v1/cameras/{camera}/exposures",
         false,
         {{"GET", "the last exposures", "ExposureList", {200}, {404}},
          {"POST",
           "starts an exposure",
           "Exposure",
           {202},
           andOfCamera({404, 423}),
           {},
           "ExposureWish",
           true,
           "The header Location tells where it is."}}},
        {"/api/v1/cameras/{camera}/exposures/{exposure}",
         false,
         {{"GET", "how an exposure stands", "Exposure", {200}, {404}, {kWait}},
          {"DELETE", "aborts an exposure", "Exposure", {200}, {404, 423}, {}, nullptr, true}}},
        {"/api/v1/cameras/{camera}/exposures/{exposure}/frame.{format}",
         false,
         {{"GET",
           "the last frame of an exposure",
           kFrameTypes,
           {200},
           andOfCamera({404, 410}),
           {kIncomplete},
           nullptr,
           false,
           kFrameMore}}},
        {"/api/v1/cameras/{camera}/exposures/{exposure}/frames/{number}.{format}",
         false,
         {{"GET",
           "one frame of an exposure",
           kFrameTypes,
           {200},
           andOfCamera({404, 410}),
           {kIncomplete},
           nullptr,
           false,
           kFrameMore}}},
        {"/api/v1/cameras/{camera}/sequence",
         false,
         {{"GET", "how the sequence stands", "SequenceState", {200}, {404}, {kWait}},
          {"POST",
           "begins a sequence, or goes on with it",
           "SequenceState",
           {202},
           andOfCamera({404, 423}),
           {},
           "SequenceWish",
           true},
          {"DELETE",
           "stops the sequence",
           "SequenceState",
           {200},
           {404, 423},
           {kWhen},
           nullptr,
           true}}},
        {"/api/v1/cameras/{camera}/sequence/report",
         false,
         {{"GET", "what has become of the sequence", "SequenceReport", {200}, {404}}}},
    };
}

// Whether a part of a path is as that of a route: "7" as "{number}", "7.fits" as
// "{number}.{format}", which has no dots within them.
bool isLike(const std::string& part, const std::string& pattern)
{
    const size_t open = pattern.find('{');
    if (open == std::string::npos) return part == pattern;
    const size_t close = pattern.find('}', open);
    if (part.compare(0, open, pattern, 0, open) != 0) return false;
    if (close + 1 == pattern.size()) return part.size() > open;
    const size_t dot = part.find(pattern[close + 1], open);
    return dot != std::string::npos && dot > open &&
           isLike(part.substr(dot), pattern.substr(close + 1));
}

bool isAt(const Route& route, const std::vector<std::string>& parts)
{
    const std::vector<std::string> patterns = pathParts(route.path);
    return std::equal(parts.begin(), parts.end(), patterns.begin(), patterns.end(), isLike);
}

const Route* find(const std::string& path)
{
    const std::vector<std::string> parts = pathParts(path);
    const auto found = std::find_if(routes().begin(), routes().end(),
                                    [&](const Route& route) { return isAt(route, parts); });
    return found == routes().end() ? nullptr : &*found;
}

void requireKnown(const std::string& query, const std::vector<QueryParameter>& parameters)
{
    std::set<std::string> seen;
    for (const auto& field : parsedForm(query)) {
        const std::string& name = field.first;
        const bool isKnown = std::any_of(parameters.begin(), parameters.end(),
                                         [&](const auto& known) { return name == known.name; });
        if (!isKnown) throw Refusal(400, "usage", "'" + name + "' is unknown in this query");
        if (!seen.insert(name).second) throw Refusal(400, "usage", "'" + name + "' is there twice");
    }
}

} // namespace

const std::vector<Route>& routes()
{
    static const std::vector<Route>& all = *new std::vector<Route>([] {
        std::vector<Route> list = serverRoutes();
        for (const auto& more : {cameraRoutes(), workRoutes()}) {
            list.insert(list.end(), more.begin(), more.end());
        }
        return list;
    }());
    return all;
}

void refusePath(const std::string& path)
{
    constexpr size_t kPlace = 4; // of "exposures" in a path
    const std::vector<std::string> parts = pathParts(path);
    const bool isOfFrames = parts.size() > kPlace + 2 && parts[kPlace] == "exposures";
    throw Refusal(404, "unknown-path",
                  "there is nothing at " + path + (isOfFrames ? kFrameHint : ""));
}

void requireRoute(const HttpRequest& request)
{
    const Route* const route = find(request.path);
    if (route == nullptr) refusePath(request.path);
    std::string methods;
    for (const Operation& operation : route->operations) {
        if (request.method == operation.method) {
            return requireKnown(request.query, operation.query);
        }
        methods += (methods.empty() ? "" : ", ") + std::string(operation.method);
    }
    throw Refusal(405, "wrong-method", "this takes only " + methods, {{"Allow", methods}});
}

} // namespace vxcam

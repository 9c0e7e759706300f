#include "rest/openapi.h"

#include "rest/property_json.h"

#include <vxcamkit/error.h>

#include <set>
#include <vector>

namespace vxcam {

namespace {

// A path with a method, and what it answers when all is well.
struct Operation {
    const char* path;
    const char* method; // in small letters
    const char* summary;
    const char* type; // of the answer
    int status;
    bool isChange; // needs the lease, if somebody holds it
};

constexpr const char* kJson = "application/json";
constexpr const char* kYaml = "application/yaml";
constexpr const char* kPlanPattern = "^[A-Za-z0-9_-][A-Za-z0-9._-]*\\.yaml$";
constexpr const char* kCamera = "/api/v1/cameras/{camera}";

const std::vector<Operation>& operations()
{
    static const std::vector<Operation>& list = *new std::vector<Operation>{
        {"/healthz", "get", "whether the server serves", "text/plain", 200, false},
        {"/metrics", "get", "figures for Prometheus", "text/plain", 200, false},
        {"/api/v1/openapi.json", "get", "this document", kJson, 200, false},
        {"/api/v1/properties", "get", "the table of properties", kJson, 200, false},
        {"/api/v1/cameras", "get", "all cameras", kJson, 200, false},
        {"/api/v1/plans", "get", "plans of sequences, and what is wrong with them", kJson, 200,
         false},
        {"/api/v1/plans/{plan}", "get", "one as it is written", kYaml, 200, false},
        {"/api/v1/plans/{plan}", "put", "check it, and store it unless ?check=yes", kJson, 200,
         false},
        {"/api/v1/plans/{plan}", "delete", "remove it; its frames stay", kJson, 200, false},
        {"/api/v1/plans/{plan}/report", "get", "what has become of it; in ?folder=FOLDER", kJson,
         200, false},
        {"/api/v1/session", "post", "trades the token for a cookie", kJson, 200, false},
        {"{camera}", "get", "one camera: who it is, and how it stands", kJson, 200, false},
        {"{camera}/properties", "get", "all properties, asked for now", kJson, 200, false},
        {"{camera}/lease", "get", "who controls the camera", kJson, 200, false},
        {"{camera}/lease", "post", "take the control", kJson, 200, false},
        {"{camera}/lease", "delete", "give the control back", kJson, 200, true},
        {"{camera}/events", "get", "server-sent events", "text/event-stream", 200, false},
        {"{camera}/live", "get", "a WebSocket with the frames as they come", kJson, 101, false},
        {"{camera}/sequence", "get", "how it stands; waits with ?wait=SECONDS", kJson, 200, false},
        {"{camera}/sequence", "post", "begin one, or go on with it", kJson, 202, true},
        {"{camera}/sequence", "delete", "stop it; behind its frame with ?when=frame", kJson, 200,
         true},
        {"{camera}/sequence/report", "get", "what has become of it", kJson, 200, false},
        {"{camera}/exposures", "get", "the last exposures", kJson, 200, false},
        {"{camera}/exposures", "post", "start an exposure", kJson, 202, true},
        {"{camera}/exposures/{exposure}", "get", "how it stands; waits with ?wait=SECONDS", kJson,
         200, false},
        {"{camera}/exposures/{exposure}", "delete", "abort it", kJson, 200, true},
        {"{camera}/exposures/{exposure}/frame.json", "get", "facts of its last frame", kJson, 200,
         false},
        {"{camera}/exposures/{exposure}/frame.fits", "get", "its last frame", "application/fits",
         200, false},
        {"{camera}/exposures/{exposure}/frame.png", "get", "the same to look at", "image/png", 200,
         false},
        {"{camera}/exposures/{exposure}/frame.raw", "get", "pixels, low bytes first",
         "application/octet-stream", 200, false},
        {"{camera}/exposures/{exposure}/frames/{number}.fits", "get", "one of its frames",
         "application/fits", 200, false},
    };
    return list;
}

Json parameter(const std::string& name)
{
    return {{"name", name},
            {"in", "path"},
            {"required", true},
            {"schema", {{"type", "integer"}, {"minimum", 0}}}};
}

Json parametersOf(const std::string& path)
{
    Json parameters = Json::array();
    const auto has = [&](const std::string& name) {
        return path.find("{" + name + "}") != std::string::npos;
    };
    for (const char* const name : {"camera", "exposure", "number"}) {
        if (has(name)) parameters.push_back(parameter(name));
    }
    if (has("plan")) {
        parameters.push_back(parameter("plan"));
        parameters.back()["schema"] = {{"type", "string"}, {"pattern", kPlanPattern}};
    }
    return parameters;
}

Json content(const std::string& type, const Json& schema)
{
    return {{"content", {{type, {{"schema", schema}}}}}};
}

Json reference(const std::string& name)
{
    return {{"$ref", "#/components/schemas/" + name}};
}

// Every status that a failure of a camera has, from the kit's table.
void addErrors(Json* responses)
{
    std::set<int> statuses{401, 403, 404, 405, 413, 423};
    for (const ErrorRow& row : errorTable()) {
        statuses.insert(row.http);
    }
    for (const int status : statuses) {
        Json response = content(kJson, reference("Error"));
        std::string text;
        for (const ErrorRow& row : errorTable()) {
            if (row.http == status) text += (text.empty() ? "" : ", ") + std::string(row.name);
        }
        response["description"] = text.empty() ? "refused" : text;
        (*responses)[std::to_string(status)] = response;
    }
}

Json operationJson(const std::string& summary, const std::string& path, int status,
                   const Json& good, bool isChange)
{
    Json json;
    json["summary"] = summary;
    json["parameters"] = parametersOf(path);
    if (isChange) {
        json["parameters"].push_back(
            {{"name", "X-Lease"}, {"in", "header"}, {"schema", {{"type", "string"}}}});
    }
    json["responses"][std::to_string(status)] = good;
    addErrors(&json["responses"]);
    return json;
}

void addProperty(const Property& property, Json* document)
{
    const bool isKeyed = property.key != nullptr;
    const std::string name = property.name;
    const std::string schema = isKeyed ? name + ".key" : name;
    const std::string path =
        std::string(kCamera) + "/properties/" + name + (isKeyed ? ":{number}" : "");
    (*document)["components"]["schemas"][schema] = schemaOf(property);
    Json& entry = (*document)["paths"][path];
    Json good =
        content(kJson, {{"type", "object"}, {"properties", {{"value", reference(schema)}}}});
    good["description"] = property.help;
    if (property.isReadable()) {
        entry["get"] = operationJson(property.help, path, 200, good, false);
    }
    if (!property.isWritable()) return;
    entry["put"] = operationJson("set: " + std::string(property.help), path, 200, good, true);
    entry["put"]["requestBody"] = content(kJson, {{"type", "object"},
                                                  {"required", {"value"}},
                                                  {"properties", {{"value", reference(schema)}}}});
}

} // namespace

Json openApiDocument(const std::string& version)
{
    Json document;
    document["openapi"] = "3.1.0";
    document["info"] = {{"title", "vxcamd"}, {"version", version}};
    document["components"]["schemas"]["Error"] = {{"type", "object"},
                                                  {"properties",
                                                   {{"error",
                                                     {{"type", "object"},
                                                      {"required", {"kind", "text"}},
                                                      {"properties",
                                                       {{"kind", {{"type", "string"}}},
                                                        {"text", {{"type", "string"}}},
                                                        {"code", {{"type", "integer"}}},
                                                        {"sub_code", {{"type", "integer"}}}}}}}}}};
    document["components"]["securitySchemes"]["token"] = {{"type", "http"}, {"scheme", "bearer"}};
    document["security"] = Json::array({Json{{"token", Json::array()}}});
    for (const Operation& operation : operations()) {
        std::string path = operation.path;
        if (path.rfind("{camera}", 0) == 0) path.replace(0, 8, kCamera);
        Json good = content(operation.type, Json::object());
        good["description"] = operation.summary;
        document["paths"][path][operation.method] =
            operationJson(operation.summary, path, operation.status, good, operation.isChange);
    }
    document["paths"]["/api/v1/plans/{plan}"]["put"]["requestBody"] =
        content(kYaml, {{"type", "string"}});
    document["paths"][kCamera + std::string("/sequence")]["post"]["requestBody"] = content(
        kJson,
        {{"type", "object"},
         {"required", {"plan"}},
         {"properties", {{"plan", {{"type", "string"}}}, {"folder", {{"type", "string"}}}}}});
    for (const Property& property : properties()) {
        addProperty(property, &document);
    }
    return document;
}

} // namespace vxcam

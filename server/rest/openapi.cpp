#include "rest/openapi.h"

#include "rest/property_json.h"
#include "rest/routes.h"
#include "rest/schemas.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace vxcam {

namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kAbout =
    "Cameras that are shared: whoever holds a camera's lease controls it, all others watch. "
    "Whatever is unknown, in queries and bodies, is refused, and so are methods that a path does "
    "not have (Error405). Times are UTC. Alpaca clients and the page have interfaces of their own.";

struct PathParameter {
    const char* name;
    const char* schema; // as JSON
    const char* help;
};

const std::vector<PathParameter>& pathParameters()
{
    static const std::vector<PathParameter>& list = *new std::vector<PathParameter>{
        {"camera", R"({"type": "integer", "minimum": 0})", "among the server's"},
        {"exposure", R"({"type": "integer", "minimum": 1})", "its id"},
        {"number", R"({"type": "integer", "minimum": 1})", "of the frame"},
        {"format", R"({"enum": ["fits", "png", "raw", "json"]})", "raw: the pixels alone"},
        {"plan", R"({"type": "string", "pattern": "^[A-Za-z0-9_-][A-Za-z0-9._-]*\\.yaml$"})",
         "its name"},
        {"key", R"({"type": "integer", "minimum": 0})", "which of them"},
    };
    return list;
}

// What the server itself refuses; cameras' failures are in the kit's table.
struct Refused {
    int status;
    const char* kinds;
};
constexpr std::array<Refused, 15> kRefused{{{400, "usage"},
                                            {401, "token"},
                                            {403, "wrong-origin, wrong-host, plan-hooks"},
                                            {404, "unknown-..., no-plans"},
                                            {405, "wrong-method"},
                                            {408, "late"},
                                            {409, "exposing, sequence, not-ready, too-many"},
                                            {410, "gone"},
                                            {411, "length"},
                                            {413, "too-long"},
                                            {415, "media-type"},
                                            {423, "lease-held, lease-over"},
                                            {426, "websocket"},
                                            {500, "server"},
                                            {503, "ending, watchers, crowded"}}};

std::string responseName(int status)
{
    return "Error" + std::to_string(status);
}

Json reference(const std::string& place, const std::string& name)
{
    return {{"$ref", "#/components/" + place + "/" + name}};
}

// "FrameFacts image/png": JSON of that schema, or a picture.
Json contentOf(const std::string& words)
{
    Json content = Json::object();
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        const bool isType = word.find('/') != std::string::npos;
        const Json text{{"type", "string"}};
        content[isType ? word : kJson]["schema"] = !isType ? reference("schemas", word)
                                                   : word.rfind("text/", 0) == 0 ? text
                                                                                 : Json::object();
    }
    return content;
}

// Whether a body must be there.
bool isNeeded(const std::string& body)
{
    return body.find('/') != std::string::npos || schemas()[body].contains("required");
}

Json errorResponses()
{
    std::map<int, std::string> kinds;
    const auto add = [&](int status, const std::string& names) {
        std::string& text = kinds[status];
        text += (text.empty() ? "" : ", ") + names;
    };
    for (const Refused& refused : kRefused) {
        add(refused.status, refused.kinds);
    }
    for (const ErrorRow& row : errorTable()) {
        if (row.http != 400) add(row.http, row.name);
    }
    Json responses;
    for (const auto& [status, names] : kinds) {
        responses[responseName(status)] = {{"description", names}, {"content", contentOf("Error")}};
    }
    return responses;
}

Json parametersOf(const std::string& path, const Operation& operation)
{
    Json parameters = Json::array();
    for (const PathParameter& one : pathParameters()) {
        if (path.find("{" + std::string(one.name) + "}") == std::string::npos) continue;
        parameters.push_back({{"name", one.name},
                              {"in", "path"},
                              {"required", true},
                              {"description", one.help},
                              {"schema", Json::parse(one.schema)}});
    }
    for (const QueryParameter& one : operation.query) {
        parameters.push_back({{"name", one.name},
                              {"in", "query"},
                              {"description", one.help},
                              {"schema", Json::parse(one.schema)}});
    }
    if (operation.isChange) {
        parameters.push_back({{"name", "X-Lease"},
                              {"in", "header"},
                              {"description", "the key of the lease, while it is held"},
                              {"schema", {{"type", "string"}}}});
    }
    return parameters;
}

std::set<int> refusalsOf(const Route& route, const Operation& operation)
{
    std::set<int> statuses(operation.refusals.begin(), operation.refusals.end());
    statuses.insert({400, 401, 403, 500});
    if (operation.body != nullptr) statuses.insert({408, 411, 413});
    const bool isJson =
        operation.body != nullptr && std::string(operation.body).find('/') == std::string::npos;
    if (isJson) statuses.insert(415);
    const bool isForScripts = std::string(route.path).rfind("/api/", 0) == 0;
    if (!isForScripts && route.isOpen) statuses = {400};
    return statuses;
}

Json operationJson(const Route& route, const std::string& path, const Operation& operation)
{
    Json json;
    json["summary"] = operation.summary;
    if (*operation.more != '\0') json["description"] = operation.more;
    json["parameters"] = parametersOf(path, operation);
    if (operation.body != nullptr) {
        json["requestBody"] = {{"content", contentOf(operation.body)},
                               {"required", isNeeded(operation.body)}};
    }
    for (const int status : operation.statuses) {
        Json& response = json["responses"][std::to_string(status)];
        response["description"] = operation.summary;
        const Json content = contentOf(operation.answer);
        if (!content.empty()) response["content"] = content;
    }
    for (const int status : refusalsOf(route, operation)) {
        json["responses"][std::to_string(status)] = reference("responses", responseName(status));
    }
    if (route.isOpen) json["security"] = Json::array();
    return json;
}

std::string smallLetters(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    return text;
}

// In place of the one path for all properties.
void addProperty(const Route& route, const Property& property, Json* document)
{
    const bool isKeyed = property.key != nullptr;
    const std::string name = property.name, schema = isKeyed ? name + ".key" : name;
    std::string path = route.path;
    path.replace(path.find("{property}"), std::string::npos, name + (isKeyed ? ":{key}" : ""));
    (*document)["components"]["schemas"][schema] = schemaOf(property);
    const Json value{{"properties", {{"value", reference("schemas", schema)}}}};
    for (const Operation& operation : route.operations) {
        const bool isGet = std::string(operation.method) == "GET";
        if (isGet ? !property.isReadable() : !property.isWritable()) continue;
        Json json = operationJson(route, path, operation);
        json["summary"] = (isGet ? "" : "sets: ") + std::string(property.help);
        const auto narrow = [&](Json& place) {
            Json& whole = place["content"][kJson]["schema"];
            whole = {{"allOf", {whole, value}}};
        };
        narrow(json["responses"]["200"]);
        if (!isGet) narrow(json["requestBody"]);
        (*document)["paths"][path][smallLetters(operation.method)] = json;
    }
}

} // namespace

Json openApiDocument(const std::string& version, bool needsToken)
{
    Json document;
    document["openapi"] = "3.1.0";
    document["info"] = {{"title", "vxcamd"}, {"version", version}, {"description", kAbout}};
    document["components"]["schemas"] = schemas();
    document["components"]["responses"] = errorResponses();
    document["components"]["securitySchemes"] = {
        {"token", {{"type", "http"}, {"scheme", "bearer"}}},
        {"password", {{"type", "http"}, {"scheme", "basic"}}},
        {"cookie", {{"type", "apiKey"}, {"in", "cookie"}, {"name", "vxcamd"}}}};
    document["security"] = Json::array();
    for (const char* const scheme : {"token", "password", "cookie"}) {
        if (needsToken) document["security"].push_back({{scheme, Json::array()}});
    }
    for (const Route& route : routes()) {
        if (std::string(route.path) == kPropertyPath) {
            for (const Property& property : properties()) {
                addProperty(route, property, &document);
            }
            continue;
        }
        for (const Operation& operation : route.operations) {
            document["paths"][route.path][smallLetters(operation.method)] =
                operationJson(route, route.path, operation);
        }
    }
    return document;
}

} // namespace vxcam

// Requests to the server: paths, forms, JSON, tokens, and what watchers send.
//
// Input: a kind, then parts of a request, one a line: method, path, query, headers, and behind an
// empty line its body. The camera that they are about is not there.
#include "alpaca/discovery_answer.h"
#include "live/watcher.h"
#include "service.h"
#include "tcFuzzInput.h"

#include <algorithm>
#include <sstream>

namespace {

using vxcam::HttpRequest;
using vxcam::HttpResponse;

constexpr const char* kToken = "a-token-of-the-fuzzer";

// Takes what is sent, and forgets it.
class Nowhere : public vxcam::SocketWriter
{
public:
    bool text(const std::string&) override { return true; }
    bool binary(const void*, size_t) override { return true; }
    void end(int) override {}
    void cut() override {}
};

// What stays from one input to the next, and is never destroyed.
struct World {
    explicit World(const std::string& token)
    {
        const vxcam::Target nobody = vxcam::Target::parse("127.0.0.1:1");
        cameras.push_back(
            std::make_unique<vxcam::SharedCamera>(0, nobody, vxcam::SharingOptions{}));
        vxcam::ServiceOptions options;
        options.version = "vxcamd";
        options.token = token;
        options.alpaca.emplace();
        service = std::make_unique<vxcam::Service>(cameras, options);
        handlers = service->handlers();
        watcher = std::make_unique<vxcam::Watcher>(*cameras[0], nowhere, meters, 1);
    }

    vxcam::Cameras cameras;
    std::unique_ptr<vxcam::Service> service;
    vxcam::WebHandlers handlers;
    vxcam::Meters meters;
    Nowhere nowhere;
    std::unique_ptr<vxcam::Watcher> watcher;
};

World& openWorld()
{
    static World& world = *new World("");
    return world;
}

World& guardedWorld()
{
    static World& world = *new World(kToken);
    return world;
}

HttpRequest requestOf(std::istringstream* lines)
{
    HttpRequest request;
    request.remote = "127.0.0.1";
    std::getline(*lines, request.method);
    std::getline(*lines, request.path);
    std::getline(*lines, request.query);
    for (std::string line; std::getline(*lines, line) && !line.empty();) {
        const size_t colon = std::min(line.find(": "), line.size());
        request.headers.emplace_back(line.substr(0, colon),
                                     line.substr(std::min(colon + 2, line.size())));
    }
    std::getline(*lines, request.body, '\0');
    return request;
}

bool isOneLine(const std::string& text)
{
    return text.find_first_of("\r\n") == std::string::npos;
}

void checkAnswer(const HttpResponse& response)
{
    Require(response.status >= 200 && response.status < 600, "a status is one");
    Require(response.status != 500, "nothing that comes breaks the server");
    Require(isOneLine(response.type), "a type is on a line");
    for (const auto& [name, value] : response.headers) {
        Require(isOneLine(name) && isOneLine(value), "a header is a line");
    }
    if (response.type == "application/json") {
        Require(vxcam::Json::accept(response.body), "JSON is JSON");
    }
}

// Waits for the camera, seconds long.
bool isSlow(const HttpRequest& request)
{
    return request.method == "PUT" && request.path.find("/connect") != std::string::npos;
}

void ask(const std::string& text, World* world)
{
    std::istringstream lines(text);
    const HttpRequest request = requestOf(&lines);
    if (isSlow(request)) return;
    const HttpResponse response = world->handlers.request(request);
    checkAnswer(response);
    checkAnswer(world->handlers.upgrade(request));
    if (world != &guardedWorld() || text.find("a-token") != std::string::npos) return;
    for (const auto& header : request.headers) { // a token in base 64 is one, too
        if (vxcam::equalsIgnoringCase(header.first, "Authorization")) return;
    }
    const bool isSecret = request.path.rfind("/api", 0) == 0 || request.path == "/metrics";
    Require(!isSecret || response.status >= 400, "nothing without the token");
    Require(response.body.find(kToken) == std::string::npos, "the token is not told");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const unsigned kind = input.U8() % 4;
    const std::string text = input.Text(input.Left());
    if (kind == 0) {
        openWorld().watcher->message(text);
    } else if (kind == 1) {
        vxcam::isDiscoveryQuery(text);
    } else {
        ask(text, kind == 2 ? &openWorld() : &guardedWorld());
    }
    return 0;
}

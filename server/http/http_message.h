// A request and its answer, whatever carries them.
#ifndef VXCAMD_HTTP_MESSAGE_H
#define VXCAMD_HTTP_MESSAGE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vxcam {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method; // "GET", ...; HEAD comes as GET
    std::string path;   // decoded, without "//" and ".."
    std::string query;  // as it came, without the question mark
    std::string body;
    HttpHeaders headers;
    std::string remote;     // the client's address
    bool hasWaited = false; // as its answer's `wait` said

    // One of the headers, by its name in any case; null when there is none.
    const std::string* header(const std::string& name) const;
};

// Where an answer goes that has no length. False: the client has gone, or the server ends.
using Outlet = std::function<bool(const std::string&)>;

struct HttpResponse {
    int status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    HttpHeaders headers;
    // Instead of the body: bytes that somebody else has, as long as `held` lives.
    std::shared_ptr<const void> held;
    const char* data = nullptr;
    size_t size = 0;
    // Instead of both: called until it returns, on a thread with a small stack.
    std::function<void(const Outlet&)> stream;
    // Instead of all: called on a thread with a small stack, and then the request is answered anew.
    std::function<void()> wait;
    bool endsConnection = false;
};

// What the server itself refuses, as opposed to what a camera does.
class Refusal : public std::runtime_error
{
public:
    Refusal(int status, std::string kind, const std::string& text, HttpHeaders headers = {})
        : std::runtime_error(text), status_(status), kind_(std::move(kind)),
          headers_(std::move(headers))
    {}

    int status() const { return status_; }
    const std::string& kind() const { return kind_; } // one word for programs: "lease-held"
    const HttpHeaders& headers() const { return headers_; }

private:
    int status_;
    std::string kind_;
    HttpHeaders headers_;
};

// Of a path as it came, what its percent signs stand for. Throws Refusal{400} where two hexadecimal
// digits do not follow one, and for what could name something else than it seems to: control
// characters, encoded slashes, "//", "." and ".." between slashes.
std::string decodedPath(const std::string& path);

// The parts between the slashes: {"api", "v1", "cameras"} of "/api/v1/cameras"; a slash at the end
// adds an empty one.
std::vector<std::string> pathParts(const std::string& path);

// Names and values of a query or of a form, decoded, in their order. Throws Refusal{400} where a
// percent sign is not followed by two hexadecimal digits.
std::vector<std::pair<std::string, std::string>> parsedForm(const std::string& text);

bool equalsIgnoringCase(const std::string& one, const std::string& other);

} // namespace vxcam

#endif

#include "http/web_server.h"

#include "http/caller.h"
#include "http/crew.h"
#include "http/open_socket.h"
#include "http/tls_front.h"

#include <vxcamkit/error.h>

#include <civetweb.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostBodyTime{10};
constexpr size_t kPiece = 4; // a read waits until it is full, however slowly bytes drip
constexpr const char* kRequestMilliseconds =
    "10000"; // to send a request, or to take some of an answer
constexpr const char* kIdleMilliseconds = "30000";
constexpr const char* kMostHead = "16384"; // bytes of request line and headers
constexpr const char* kQueue = "4096";     // connections that wait for a thread
constexpr size_t kErrorText = 256;
constexpr int kGoingAway = 1001; // of RFC 6455

bool writeAll(mg_connection* connection, const char* data, size_t size)
{
    constexpr size_t kMostPiece = size_t{1} << 30; // its own counts are ints
    while (size > 0) {
        const size_t piece = std::min(size, kMostPiece);
        const int sent = mg_write(connection, data, piece);
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool writeAll(mg_connection* connection, const std::string& text)
{
    return writeAll(connection, text.data(), text.size());
}

HttpRequest requestOf(const mg_connection* connection)
{
    const mg_request_info* const info = mg_get_request_info(connection);
    const auto text = [](const char* part) { return std::string(part != nullptr ? part : ""); };
    HttpRequest request;
    request.method = text(info->request_method);
    request.path = text(info->local_uri_raw); // not decoded
    request.query = text(info->query_string);
    request.remote = info->remote_addr;
    for (int i = 0; i < info->num_headers; ++i) {
        request.headers.emplace_back(text(info->http_headers[i].name),
                                     text(info->http_headers[i].value));
    }
    return request;
}

// Why nobody can listen there: the web library does not tell. Its own words where somebody can.
std::string troubleAt(const WebOptions& options, const char* otherwise)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(options.port));
    if (::inet_pton(AF_INET, options.address.c_str(), &address.sin_addr) != 1) {
        return options.address.rfind('[', 0) == 0
                   ? "the web library here knows no IPv6"
                   : "that is no IPv4 address, nor \"[...]\" with one of IPv6";
    }
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) return std::strerror(errno);
    const int on = 1;
    ::setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool isBound =
        ::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::listen(probe, 1) == 0;
    std::string why = isBound ? otherwise : std::strerror(errno);
    ::close(probe);
    return why;
}

} // namespace

struct WebServer::Body {
    Body(WebHandlers served, size_t most) : handlers(std::move(served)), crew(most) {}

    int serve(mg_connection* connection);
    bool findCaller(const mg_connection* connection, HttpRequest* request) const;
    HttpResponse answer(mg_connection* connection, HttpRequest* request);
    HttpResponse refused(const HttpRequest& request, const Refusal& refusal) const;
    bool readBody(mg_connection* connection, std::string* body) const;
    void refuseUnread(mg_connection* connection, int status, const char* text);
    void send(mg_connection* connection, const HttpRequest& request, const HttpResponse& response,
              bool withBody);
    void open(mg_connection* connection);

    const WebHandlers handlers;
    Crew crew;
    std::atomic<bool> isEnding{false};
    mg_context* context = nullptr;
    std::unique_ptr<TlsFront> front; // null: without TLS
    std::string address;             // where the web library listens
    int port = 0;
};

// False when it is too long. What did not come in time is missing.
bool WebServer::Body::readBody(mg_connection* connection, std::string* body) const
{
    const auto end = std::chrono::steady_clock::now() + kMostBodyTime;
    std::string piece(kPiece, '\0');
    while (std::chrono::steady_clock::now() < end) {
        const int count = mg_read(connection, piece.data(), piece.size());
        if (count <= 0) return true;
        if (body->size() + static_cast<size_t>(count) > kMostBody) return false;
        body->append(piece, 0, static_cast<size_t>(count));
    }
    return true;
}

HttpResponse WebServer::Body::refused(const HttpRequest& request, const Refusal& refusal) const
{
    HttpResponse response = handlers.refused(request, refusal);
    response.endsConnection = true;
    return response;
}

// What the web library gives up itself, of which it may know nothing.
void WebServer::Body::refuseUnread(mg_connection* connection, int status, const char* text)
{
    constexpr int kBad = 400, kNoLength = 411, kFault = 500;
    Refusal refusal(status, status < kFault ? "usage" : "server", text);
    if (status == kBad) {
        refusal = {status, "usage",
                   "that is no request of HTTP, its method is unknown, or its headers have more "
                   "than 16384 bytes"};
    }
    if (status == kNoLength)
        refusal = {status, "length", "a body needs a Content-Length here, and that is none"};
    const HttpRequest unread;
    send(connection, unread, refused(unread, refusal), true);
}

HttpResponse WebServer::Body::answer(mg_connection* connection, HttpRequest* request)
{
    const long long length = mg_get_request_info(connection)->content_length;
    const std::string* const coding = request->header("Transfer-Encoding");
    const Refusal tooLong(413, "too-long", "a body has at most 65536 bytes here");
    const std::string* const told = request->header("Content-Length");
    const bool isOdd =
        told != nullptr && told->find_first_not_of("0123456789 ") != std::string::npos; // "1x"
    if (coding != nullptr || isOdd) {
        return refused(*request, {411, "length", "a body needs a Content-Length here"});
    }
    if (length > static_cast<long long>(kMostBody)) return refused(*request, tooLong);
    if (length > 0) {
        const std::string* const expected = request->header("Expect");
        if (expected != nullptr && equalsIgnoringCase(*expected, "100-continue")) {
            writeAll(connection, "HTTP/1.1 100 Continue\r\n\r\n");
        }
        if (!readBody(connection, &request->body)) return refused(*request, tooLong);
        if (request->body.size() != static_cast<size_t>(length)) {
            return refused(*request, {408, "late", "the body did not come in time"});
        }
    }
    HttpResponse response;
    const auto ask = [&] { response = handlers.request(*request); };
    crew.run(ask);
    if (!response.wait) return response;
    response.wait(); // here, where it holds up none of the crew
    request->hasWaited = true;
    crew.run(ask);
    return response;
}

void WebServer::Body::send(mg_connection* connection, const HttpRequest& request,
                           const HttpResponse& response, bool withBody)
{
    const char* const body = response.held ? response.data : response.body.data();
    const size_t size = response.held ? response.size : response.body.size();
    const bool isEndless = static_cast<bool>(response.stream);
    const std::string* const wish = request.header("Connection");
    const bool isLast = response.endsConnection || isEndless || isEnding ||
                        (wish != nullptr && equalsIgnoringCase(*wish, "close"));
    if (isLast) mg_disable_connection_keep_alive(connection);
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " +
                       mg_get_response_code_text(connection, response.status) + "\r\n";
    const auto add = [&head](const std::string& name, const std::string& value) {
        head.append(name).append(": ").append(value).append("\r\n");
    };
    add("Content-Type", response.type);
    if (!isEndless) add("Content-Length", std::to_string(size));
    add("Connection", isLast ? "close" : "keep-alive");
    add("Cache-Control", "no-store");
    add("X-Content-Type-Options", "nosniff");
    for (const auto& [name, value] : response.headers) {
        add(name, value);
    }
    head += "\r\n";
    if (size < 4096 && withBody && !isEndless) { // together, so that no client waits twice
        writeAll(connection, head.append(body, size));
        return;
    }
    if (!writeAll(connection, head) || !withBody) return;
    if (isEndless) {
        response.stream([&](const std::string& text) {
            return !isEnding && (text.empty() || writeAll(connection, text));
        });
    } else {
        writeAll(connection, body, size);
    }
}

// Behind TLS, false for whoever did not come that way.
bool WebServer::Body::findCaller(const mg_connection* connection, HttpRequest* request) const
{
    if (!front) return true;
    const auto caller = front->callerAt(mg_get_request_info(connection)->remote_port);
    if (caller) request->remote = *caller;
    return caller.has_value();
}

// The status, or 0 where a WebSocket shall be opened.
int WebServer::Body::serve(mg_connection* connection)
{
    HttpRequest request = requestOf(connection);
    try {
        if (!findCaller(connection, &request)) {
            throw Refusal(403, "wrong-host", "this port is the server's own; https is spoken");
        }
        request.path = decodedPath(request.path);
    } catch (const Refusal& refusal) {
        const HttpResponse response = refused(request, refusal);
        send(connection, request, response, true);
        return response.status;
    }
    const std::string* const upgrade = request.header("Upgrade");
    if (upgrade != nullptr && equalsIgnoringCase(*upgrade, "websocket")) {
        HttpResponse response;
        crew.run([&] { response = handlers.upgrade(request); });
        if (response.status < 400 && !isEnding) return 0;
        response.endsConnection = true;
        send(connection, request, response, true);
        return response.status;
    }
    const bool isHead = request.method == "HEAD";
    if (isHead) request.method = "GET";
    const HttpResponse response = answer(connection, &request);
    send(connection, request, response, !isHead);
    return response.status;
}

void WebServer::Body::open(mg_connection* connection)
{
    auto opened = std::make_unique<OpenSocket>(connection);
    HttpRequest request = requestOf(connection);
    crew.run([&] {
        try {
            request.path = decodedPath(request.path);
            opened->socket = handlers.open(request, opened->writer);
        } catch (const std::exception&) {
            opened->writer.end(kGoingAway); // no thread, or no memory, for one more
        }
    });
    mg_set_user_connection_data(connection, opened.release());
}

WebServer::WebServer(const WebOptions& options, WebHandlers handlers)
    : body_(std::make_unique<Body>(std::move(handlers), static_cast<size_t>(options.crew)))
{
    try {
        start(options);
    } catch (...) {
        stop();
        throw;
    }
}

// With TLS, the web library listens where the front alone is to come in.
void WebServer::start(const WebOptions& options)
{
    mg_init_library(MG_FEATURES_DEFAULT);
    body_->address = options.address;
    int port = options.port;
    if (options.keys != nullptr) {
        body_->front = std::make_unique<TlsFront>(*options.keys, options.address, options.port,
                                                  options.connections);
        body_->address = "127.0.0.1";
        port = 0;
    }
    const std::string listen = body_->address + ":" + std::to_string(port);
    const std::string threads = std::to_string(options.connections);
    std::vector<const char*> settings{"listening_ports",
                                      listen.c_str(),
                                      "num_threads",
                                      threads.c_str(),
                                      "enable_keep_alive",
                                      "yes",
                                      "keep_alive_timeout_ms",
                                      kIdleMilliseconds,
                                      "request_timeout_ms",
                                      kRequestMilliseconds,
                                      "tcp_nodelay",
                                      "1",
                                      "max_request_size",
                                      kMostHead,
                                      "connection_queue",
                                      kQueue,
                                      "listen_backlog",
                                      kQueue,
                                      "websocket_timeout_ms",
                                      kIdleMilliseconds,
                                      "enable_websocket_ping_pong",
                                      "yes",
                                      "decode_url", // it would cut them at a %00
                                      "no"};
    settings.push_back(nullptr);
    mg_callbacks callbacks{};
    callbacks.begin_request = [](mg_connection* connection) {
        return static_cast<Body*>(mg_get_user_data(mg_get_context(connection)))->serve(connection);
    };
    callbacks.http_error = [](mg_connection* connection, int status, const char* text) {
        static_cast<Body*>(mg_get_user_data(mg_get_context(connection)))
            ->refuseUnread(connection, status, text);
        return 0;
    };
    callbacks.log_message = [](const mg_connection*, const char*) { return 1; }; // may tell secrets
    mg_init_data start{&callbacks, body_.get(), settings.data()};
    std::array<char, kErrorText> text{};
    mg_error_data error{};
    error.text = text.data();
    error.text_buffer_size = text.size();
    body_->context = mg_start2(&start, &error);
    if (body_->context == nullptr) {
        throw Error(ErrorKind::Usage, "cannot listen on " + options.address + ":" +
                                          std::to_string(options.port) + ": " +
                                          troubleAt(options, text.data()));
    }
    mg_set_websocket_handler(
        body_->context, "/**", [](const mg_connection*, void*) { return 0; },
        [](mg_connection* connection, void* body) { static_cast<Body*>(body)->open(connection); },
        [](mg_connection* connection, int bits, char* data, size_t size, void*) {
            auto* const opened = static_cast<OpenSocket*>(mg_get_user_connection_data(connection));
            return opened != nullptr && opened->take(bits, data, size) ? 1 : 0;
        },
        [](const mg_connection* connection, void*) {
            delete static_cast<OpenSocket*>(mg_get_user_connection_data(connection));
        },
        body_.get());
    std::array<mg_server_port, 2> ports{};
    mg_get_server_ports(body_->context, static_cast<int>(ports.size()), ports.data());
    body_->port = ports[0].port;
    if (body_->front) body_->front->start(body_->port);
}

WebServer::~WebServer()
{
    stop();
}

int WebServer::port() const
{
    return body_->front ? body_->front->port() : body_->port;
}

void WebServer::stop()
{
    body_->isEnding = true;
    if (body_->front) body_->front->close();
    if (body_->context != nullptr) {
        // The web library looks whether it shall end when somebody connects, else every two
        // seconds.
        const Caller caller(body_->address, body_->port);
        mg_stop(body_->context);
        body_->context = nullptr;
        mg_exit_library();
    }
    if (body_->front) body_->front->stop();
}

} // namespace vxcam

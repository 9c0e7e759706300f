// HTTP and WebSocket connections.
#ifndef VXCAMD_WEB_SERVER_H
#define VXCAMD_WEB_SERVER_H

#include "http/http_message.h"

#include <functional>
#include <memory>
#include <string>

namespace vxcam {

class TlsKeys;

struct WebOptions {
    std::string address = "127.0.0.1";
    int port = 8080;               // 0: any that is free
    int connections = 1100;        // that are served at once; a thread with a small stack each
    int crew = 64;                 // threads that answer, at most; made as they are needed
    const TlsKeys* keys = nullptr; // that outlive the server; null: no TLS
};

// Sends messages to a browser. Threads: one; end() and cut() on any. It is there as long as its
// connection.
class SocketWriter
{
public:
    virtual ~SocketWriter() = default;
    // False: the connection is at its end.
    virtual bool text(const std::string& message) = 0;
    virtual bool binary(const void* data, size_t size) = 0;
    // Closes it in order, with a code of RFC 6455; 0: none.
    virtual void end(int code) = 0;
    virtual void cut() = 0; // closes it without another word; that may take some seconds
};

// One open WebSocket. Its destructor ends what it does with the writer.
class Socket
{
public:
    virtual ~Socket() = default;
    virtual void message(const std::string& text) = 0; // of the client
};

// What a server does with what comes in. Threads: each of them is called on many at a time.
struct WebHandlers {
    std::function<HttpResponse(const HttpRequest&)> request; // must not throw
    // The answer to a request that got no further; called on a thread with a small stack.
    std::function<HttpResponse(const HttpRequest&, const Refusal&)> refused;
    // Whether a WebSocket may be opened there: an answer with a status of 400 and above refuses it.
    std::function<HttpResponse(const HttpRequest&)> upgrade;
    std::function<std::unique_ptr<Socket>(const HttpRequest&, SocketWriter&)> open;
};

// Serves from its construction on.
//
// Errors: Error{Usage} when it cannot listen there, std::system_error without a thread. Threads:
//   stop() on the one that made it. Owns: its connections and their threads.
class WebServer
{
public:
    static constexpr size_t kMostBody = 64 * 1024;

    WebServer(const WebOptions& options, WebHandlers handlers);
    ~WebServer(); // as stop()
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    int port() const;
    void stop(); // takes no more, and ends what is under way

private:
    struct Body;
    void start(const WebOptions& options);
    std::unique_ptr<Body> body_;
};

} // namespace vxcam

#endif

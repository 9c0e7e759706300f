// Where clients that speak TLS come in.
#ifndef VXCAMD_TLS_FRONT_H
#define VXCAMD_TLS_FRONT_H

#include "http/tls_keys.h"

#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace vxcam {

// Listens for them, and hands what they say on to a port of this host where none is spoken, each
// connection on a thread of its own. Whoever says nothing, or no TLS, is in nobody's way: of those
// the longest there has to go when there are many.
//
// Threads: callerAt() on any, the rest on the one that made it. Locks: its own. Owns: its sockets
//   and threads.
class TlsFront
{
public:
    static constexpr size_t kMostGreeting = 128; // that have not spoken TLS yet

    // Listens; nobody is let in yet. Throws Error{Usage} when it cannot.
    TlsFront(const TlsKeys& keys, const std::string& address, int port, int connections);
    ~TlsFront(); // as stop()
    TlsFront(const TlsFront&) = delete;
    TlsFront& operator=(const TlsFront&) = delete;

    int port() const { return port_; }

    // Lets clients in, to that port of 127.0.0.1. Throws std::system_error without a thread.
    void start(int inside);

    // The address of the client whose connection comes from that port of this host; nothing when it
    // is none of these.
    std::optional<std::string> callerAt(int port) const;

    void close(); // lets nobody in any more
    void stop();  // and ends those that are there

private:
    struct Guest {
        int client = -1; // closed: -1
        bool isGreeting = true, isOver = false;
        std::string address;
        std::thread thread;
    };

    void listen(const std::string& address, int port);
    void letIn();
    bool awaitGuest();
    void take(int client, const std::string& address);
    void makeRoom();
    void serve(Guest& guest);
    void relay(Guest& guest);
    int connected(const Guest& guest, int* port);
    void reap(bool all);

    const TlsKeys& keys_;
    const size_t most_;
    int listener_ = -1, ending_ = -1, port_ = 0, inside_ = 0;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::list<Guest> guests_;            // in the order in which they came
    size_t served_ = 0;                  // of them, that have spoken TLS
    std::map<int, std::string> callers_; // by the ports of their connections inside
    bool isClosed_ = false;
    std::thread thread_;
};

} // namespace vxcam

#endif

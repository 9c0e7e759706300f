// Datagrams that come in.
#ifndef TCDATAGRAMS_H
#define TCDATAGRAMS_H

#include <netinet/in.h>

#include <chrono>
#include <optional>
#include <string>

struct tsDatagram {
    std::string bytes;
    std::string address; // of the sender, dotted
    uint16_t port = 0;
};

// Where to listen. A group is a multicast address that is joined, on the interface with the local
// address given, or else on all; any other address there is one to listen on.
struct tsListening {
    std::string address = "0.0.0.0";
    uint16_t port = 0; // 0: a free one
    std::string group;
    std::string interface;
};

// A UDP socket.
// Threads: one. Owns: the socket.
class tcDatagrams
{
public:
    // Throws tcFailure with eExitNoCamera when the port cannot be had.
    explicit tcDatagrams(const tsListening& where);
    ~tcDatagrams();
    tcDatagrams(const tcDatagrams&) = delete;
    tcDatagrams& operator=(const tcDatagrams&) = delete;

    const std::string& Address() const { return msAddress; }
    uint16_t Port() const { return mnPort; }

    // The next one, waited for until then. Throws tcFailure when a signal came.
    std::optional<tsDatagram> Receive(std::chrono::steady_clock::time_point deadline);

private:
    void Bind(const std::string& address, uint16_t port);
    void Join(const std::string& group, const std::string& interface);

    int mhSocket = -1;
    std::string msAddress;
    uint16_t mnPort = 0;
};

#endif

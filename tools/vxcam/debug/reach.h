// Whether a TCP port can be reached, and why not.
#ifndef REACH_H
#define REACH_H

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <string>

enum class teReach {
    eReached,
    eRefused,     // nothing listens there
    eUnreachable, // no way there
    eTimeout,     // nobody says anything
    eInUse,       // a camera answers, and serves somebody else
    eOther
};

struct tsReach {
    teReach outcome = teReach::eReached;
    std::string detail;     // what the system or the camera says
    std::string ownAddress; // of this host on the way there
};

// Connects, says nothing, and disconnects when the other side has seen that. A signal ends the
// process meanwhile.
tsReach TryPort(in_addr address, uint16_t port, std::chrono::milliseconds patience);

// The receive buffer that the system granted to this process's connection to that port, in bytes,
// as it was asked for; 0 when there is none.
int GrantedReceiveBuffer(uint16_t port);

// The most that the system grants; 0 when it does not tell.
int MostReceiveBuffer();

#endif

// Who may use a debug service, private to the library.
#ifndef VX_ACCESS_H
#define VX_ACCESS_H

#include "HSocket.h"

#include <string>

namespace vx {

// The local address a service listens on and the peers it admits.
class tcAccess
{
public:
    // Everything from everywhere.
    tcAccess() = default;

    // Reads the two environment variables. What cannot be read is logged and restricts: a bad local
    // address keeps the service from listening, a bad entry of the list admits nobody. In programs
    // with raised privileges they are not looked at.
    tcAccess(const char* bindVariable, const char* allowVariable);

    // False when there is no address to listen on.
    bool CanListen() const { return mbCanListen; }

    // Binds a stream socket, which HSocket::Bind cannot do without printing. Non-zero on success;
    // errno says why not.
    int Bind(HSocket& socket, unsigned short port) const;

    // What it binds to, in network order; 0 for all addresses.
    unsigned int Address() const { return mnAddress; }

    bool Admits(HSocket& client) const;

    // Whether there is a list, and the address (network order) is on it.
    bool Names(unsigned int address) const;

private:
    void ReadList(const std::string& text, const char* variable);

    unsigned int mnAddress = 0; // network order
    bool mbCanListen = true;
    bool mbRestricted = false;
    HInetAddrList mAdmitted;
};

// Whether the address (network order) is one of this host: loopback, or an interface's.
bool IsOfThisHost(unsigned int address);

// Whether this is no connection of the network, but a pair of sockets or a pipe within this host.
bool IsWithinHost(HSocket& client);

} // namespace vx

#endif

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
    // address keeps the service from listening, a bad entry of the list admits nobody.
    tcAccess(const char* bindVariable, const char* allowVariable);

    // False when there is no address to listen on.
    bool CanListen() const { return mbCanListen; }

    // Binds a stream socket, which HSocket::Bind cannot do without printing. Non-zero on success;
    // errno says why not.
    int Bind(HSocket& socket, unsigned short port) const;

    bool Admits(HSocket& client) const;

private:
    void ReadList(const std::string& text, const char* variable);

    unsigned int mnAddress = 0; // network order
    bool mbCanListen = true;
    bool mbRestricted = false;
    HInetAddrList mAdmitted;
};

} // namespace vx

#endif

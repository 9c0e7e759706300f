// One of the two text services that a process with the library offers: its debug daemon, or the
// server of its debug items. One request for each connection.
#ifndef TCSERVICE_H
#define TCSERVICE_H

#include "arguments.h"

#include <netinet/in.h>

#include <chrono>
#include <string>

inline constexpr uint16_t gnDaemonPort = 17020;
inline constexpr uint16_t gnItemPort = 7010;

// Threads: one. Errors are tcFailure: eExitNoCamera when nobody answers, eExitTimeout when an
// answer stops in its middle, eExitSignal + the signal's number after Ctrl-C and its kin.
class tcService
{
public:
    // `kind` is what error texts call it: "debug daemon". Looks the host up.
    tcService(const tsEndpoint& place, const std::string& kind, std::chrono::milliseconds patience);

    // Sends the request and returns all that comes until the other side closes. A connection that
    // is closed without an answer gives an empty text.
    std::string Ask(const std::string& request);

    // Our address on the way to the service, dotted. Known after the first Ask.
    const std::string& OwnAddress() const { return msOwnAddress; }
    const std::string& Name() const { return msName; }

    // Whether a signal ends Ask; yes at first.
    void SetInterruptible(bool isInterruptible) { mbInterruptible = isInterruptible; }

private:
    class tcConnection;

    [[noreturn]] void Fail(int code, const std::string& why) const;

    const std::string msKind, msName;
    const std::chrono::milliseconds mtPatience;
    sockaddr_in mtAddress{};
    std::string msOwnAddress;
    bool mbInterruptible = true;
};

// Host to IPv4 address, in network order. Throws tcFailure with eExitNoCamera.
in_addr ResolveHost(const std::string& host);

std::string AddressText(in_addr address);

#endif

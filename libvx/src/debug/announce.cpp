// Telling tools where the daemon is.
#include "HSocket.h"
#include "dbgdserver.h"
#include "tcLog.h"
#include "vxdescriptors.h"

#include <unistd.h>

#include <cstdio>

// A daemon that listens on one address sends from there, through the interface that has it; on
// loopback nobody outside hears of it. -1 when that cannot be.
int tcDbgd::tcServer::OpenAnnouncer() const
{
    const int descriptor = vx::OpenSocket(AF_INET, SOCK_DGRAM);
    const in_addr own{mSettings.mAccess.Address()};
    if (descriptor < 0 || own.s_addr == INADDR_ANY) return descriptor;
    HInetAddr local;
    local.Set(own.s_addr, 0);
    const auto* address = reinterpret_cast<const sockaddr*>(&local.GetSockAddr());
    if (bind(descriptor, address, sizeof local.GetSockAddr()) == 0 &&
        setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) == 0)
        return descriptor;
    GetLog().logSystemError("tcDbgd::Server cannot send announcements from %s", local.GetIPAddr());
    close(descriptor);
    return -1;
}

void tcDbgd::tcServer::Announce()
{
    char message[64];
    // Kept: a port above 32767 appears as a negative number.
    const int length = std::snprintf(message, sizeof message, "DBGD %s %hd", msName.c_str(),
                                     static_cast<short>(mnOpenPort));
    const int descriptor = OpenAnnouncer();
    if (descriptor < 0) return;
    const HInetAddr group(mSettings.msGroup.c_str(), mSettings.mnGroupPort);
    const auto* address = reinterpret_cast<const sockaddr*>(&group.GetSockAddr());
    while (Sleep(snAnnounceInterval))
        (void)sendto(descriptor, message, length + 1, MSG_NOSIGNAL, address, sizeof(sockaddr_in));
    close(descriptor);
}

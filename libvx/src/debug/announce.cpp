// Telling tools where the daemon is.
#include "HSocket.h"
#include "dbgdserver.h"
#include "tcLog.h"
#include "vxdescriptors.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

// An announcement and where it goes.
struct tsAnnouncement {
    int descriptor;
    const char* text;
    size_t size;
    sockaddr_in group;

    bool Send() const
    {
        return sendto(descriptor, text, size, MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&group), sizeof group) >= 0;
    }
    // Through the interface with that address; 0.0.0.0 leaves it to the system again.
    bool SendThrough(in_addr own) const
    {
        return setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) == 0 && Send();
    }
};

// A host without a route to the group tells each of its networks; loopback only when it has none.
void SendEverywhere(const tsAnnouncement& announcement)
{
    ifaddrs* list = nullptr;
    {
        const vx::tcAboveStandard above; // the list comes through a socket
        if (getifaddrs(&list) != 0) return;
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    bool isSent = false;
    for (const unsigned loopback : {0u, unsigned{IFF_LOOPBACK}}) {
        for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next) {
            if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
            if ((one->ifa_flags & IFF_UP) == 0 || (one->ifa_flags & IFF_LOOPBACK) != loopback)
                continue;
            const auto* own = reinterpret_cast<const sockaddr_in*>(one->ifa_addr);
            isSent = announcement.SendThrough(own->sin_addr) || isSent;
        }
        if (isSent) break;
    }
    const in_addr any{INADDR_ANY};
    setsockopt(announcement.descriptor, IPPROTO_IP, IP_MULTICAST_IF, &any, sizeof any);
}

} // namespace

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
    const tsAnnouncement announcement{descriptor, message, static_cast<size_t>(length) + 1,
                                      group.GetSockAddr()};
    const bool isEverywhere = mSettings.mAccess.Address() == INADDR_ANY;
    const bool isMulticast = IN_MULTICAST(ntohl(announcement.group.sin_addr.s_addr));
    while (Sleep(snAnnounceInterval)) {
        const bool isSent = announcement.Send();
        if (!isSent && errno == ENETUNREACH && isEverywhere && isMulticast)
            SendEverywhere(announcement);
    }
    close(descriptor);
}

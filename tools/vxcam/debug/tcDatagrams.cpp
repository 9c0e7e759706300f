#include "tcDatagrams.h"

#include "failure.h"
#include "interrupt.h"
#include "tcService.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace {

constexpr std::chrono::milliseconds gtSignalStep{100};
constexpr int gnQueueBytes = 4 << 20; // what the kernel keeps while the disk is busy

[[noreturn]] void Fail(const std::string& what, int error)
{
    throw tcFailure(eExitNoCamera, what + ": " + std::strerror(error));
}

bool IsGroup(in_addr address)
{
    return IN_MULTICAST(ntohl(address.s_addr));
}

bool JoinOn(int socket, in_addr group, in_addr interface)
{
    const ip_mreq membership{group, interface};
    return ::setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) ==
               0 ||
           errno == EADDRINUSE;
}

} // namespace

tcDatagrams::tcDatagrams(const tsListening& where)
{
    mhSocket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (mhSocket < 0) Fail("socket", errno);
    try {
        const bool isGroup = !where.group.empty() && IsGroup(ResolveHost(where.group));
        // Several may listen for what is sent to a group.
        const int isShared = isGroup;
        ::setsockopt(mhSocket, SOL_SOCKET, SO_REUSEADDR, &isShared, sizeof isShared);
        Bind(where.group.empty() || isGroup ? where.address : where.group, where.port);
        if (isGroup) Join(where.group, where.interface);
    } catch (const tcFailure&) {
        ::close(mhSocket);
        throw;
    }
}

tcDatagrams::~tcDatagrams()
{
    ::close(mhSocket);
}

void tcDatagrams::Bind(const std::string& address, uint16_t port)
{
    ::setsockopt(mhSocket, SOL_SOCKET, SO_RCVBUF, &gnQueueBytes, sizeof gnQueueBytes);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr = ResolveHost(address);
    own.sin_port = htons(port);
    socklen_t size = sizeof own;
    if (::bind(mhSocket, reinterpret_cast<const sockaddr*>(&own), size) != 0 ||
        ::getsockname(mhSocket, reinterpret_cast<sockaddr*>(&own), &size) != 0) {
        Fail("cannot listen on " + address + ":" + std::to_string(port), errno);
    }
    msAddress = AddressText(own.sin_addr);
    mnPort = ntohs(own.sin_port);
}

// One interface that takes part is enough: others may be down.
void tcDatagrams::Join(const std::string& group, const std::string& interface)
{
    const in_addr wanted = ResolveHost(group);
    bool isIn = false;
    errno = ENODEV;
    if (!interface.empty()) {
        isIn = JoinOn(mhSocket, wanted, ResolveHost(interface));
    } else {
        ifaddrs* list = nullptr;
        if (::getifaddrs(&list) != 0) list = nullptr;
        const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
        for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next) {
            if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
            sockaddr_in own{};
            std::memcpy(&own, one->ifa_addr, sizeof own);
            isIn = JoinOn(mhSocket, wanted, own.sin_addr) || isIn;
        }
    }
    if (!isIn) Fail("cannot join group " + group, errno);
}

std::optional<tsDatagram> tcDatagrams::Receive(std::chrono::steady_clock::time_point deadline)
{
    char bytes[65536];
    for (;;) {
        ThrowIfInterrupted();
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t count =
            ::recvfrom(mhSocket, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&from), &size);
        if (count >= 0) {
            return tsDatagram{std::string(bytes, static_cast<size_t>(count)),
                              AddressText(from.sin_addr), ntohs(from.sin_port)};
        }
        if (errno != EAGAIN && errno != EINTR && errno != ECONNREFUSED) Fail("receiving", errno);
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return {};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
        pollfd state{mhSocket, POLLIN, 0};
        ::poll(&state, 1, static_cast<int>(std::min(left, gtSignalStep).count()));
    }
}

// Discovery: who answers a broadcast on each of the host's IPv4 networks.
#include "discovery.h"

#include "tcVXCamera_Ethernet.h"
#include "vxdescriptors.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using std::chrono::microseconds;
using std::chrono::steady_clock;

namespace {

constexpr uint16_t gnDiscoveryPort = 52112;
constexpr int gnPortTries = 5;
constexpr int gnRounds = 3;
constexpr microseconds gWaitBudget{500000}; // for all waits together
constexpr microseconds gLongest{2000000};   // however many datagrams come
constexpr uint32_t gnRequestWord = 0x0CCD0CCD;
constexpr uint32_t gnReplyWord = 0xBEEDACCD;

struct tsDiscoveryRequest {
    uint32_t First, Second;
};

struct tsDiscoveryReply {
    uint32_t Marker, Echo;
    uint16_t Port;
    uint8_t Unused[6];
    uint32_t SerialNumber, CameraValue;
};
static_assert(sizeof(tsDiscoveryRequest) == 8 && sizeof(tsDiscoveryReply) == 24, "wire records");

// The discovery sockets, closed together.
class tcSocketSet
{
public:
    tcSocketSet() = default;
    tcSocketSet(const tcSocketSet&) = delete;
    tcSocketSet& operator=(const tcSocketSet&) = delete;
    ~tcSocketSet()
    {
        for (const pollfd& socket : mvSockets) {
            if (socket.fd >= 0) close(socket.fd);
        }
    }

    // A broadcasting socket bound to an interface's address.
    bool Add(in_addr_t address)
    {
        mvSockets.push_back({-1, POLLIN, 0});
        const int fd = vx::OpenSocket(AF_INET, SOCK_DGRAM);
        if (fd < 0) return false;
        mvSockets.back().fd = fd;
        const int on = 1;
        if (setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) return false;
        return Bind(fd, address);
    }

    void Broadcast() const
    {
        const tsDiscoveryRequest request{gnRequestWord, gnReplyWord};
        const sockaddr_in everybody = AddressOf(INADDR_BROADCAST, gnDiscoveryPort);
        for (const pollfd& socket : mvSockets) {
            sendto(socket.fd, &request, sizeof request, 0,
                   reinterpret_cast<const sockaddr*>(&everybody), sizeof everybody);
        }
    }

    // Waits for a datagram within the budget and takes from it what the wait took.
    bool Wait(microseconds& budget)
    {
        const auto start = steady_clock::now();
        const timespec limit{budget.count() / 1000000, budget.count() % 1000000 * 1000};
        const int ready = ppoll(mvSockets.data(), mvSockets.size(), &limit, nullptr);
        const auto taken = std::chrono::duration_cast<microseconds>(steady_clock::now() - start);
        budget = std::max(microseconds(0), budget - taken);
        return ready > 0;
    }

    const std::vector<pollfd>& Sockets() const { return mvSockets; }

private:
    static sockaddr_in AddressOf(in_addr_t address, uint16_t port)
    {
        sockaddr_in result{};
        result.sin_family = AF_INET;
        result.sin_port = htons(port);
        result.sin_addr.s_addr = address;
        return result;
    }

    static bool Bind(int fd, in_addr_t address)
    {
        for (int port = gnDiscoveryPort; port < gnDiscoveryPort + gnPortTries;) {
            const sockaddr_in local = AddressOf(address, static_cast<uint16_t>(port));
            if (bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0) return true;
            // Kept: only a taken port counts as a try; any other error is tried again for ever.
            if (errno == EADDRINUSE) ++port;
        }
        return false;
    }

    std::vector<pollfd> mvSockets;
};

// Reads one datagram into list[found]; true when it is a reply from a camera not yet listed.
bool TakeReply(int fd, tsEnetData* list, int found)
{
    uint8_t datagram[sizeof(tsDiscoveryReply)];
    socklen_t length = sizeof list[found].SourceAddr;
    const ssize_t n = recvfrom(fd, datagram, sizeof datagram, MSG_DONTWAIT,
                               reinterpret_cast<sockaddr*>(&list[found].SourceAddr), &length);
    return n > 0 && vx::TakeDiscoveryReply(datagram, static_cast<size_t>(n), list, found);
}

} // namespace

bool vx::TakeDiscoveryReply(const void* datagram, size_t length, tsEnetData* list, int found)
{
    tsEnetData& record = list[found];
    tsDiscoveryReply reply{};
    std::memcpy(&reply, datagram, std::min(length, sizeof reply));
    if (reply.Marker != gnReplyWord || reply.Echo != gnRequestWord) return false;
    record.Port = reply.Port;
    record.SerialNumber = reply.SerialNumber;
    record.CameraValue = reply.CameraValue;
    for (int i = 0; i < found; ++i) {
        if (list[i].SourceAddr.sin_addr.s_addr == record.SourceAddr.sin_addr.s_addr) return false;
    }
    return true;
}

std::vector<tsNicInfo> enumNics(bool)
{
    std::vector<tsNicInfo> nics;
    ifaddrs* first = nullptr;
    const vx::tcAboveStandard above; // the list comes through a socket
    if (getifaddrs(&first) != 0) return nics;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        char host[NI_MAXHOST];
        if (getnameinfo(entry->ifa_addr, sizeof(sockaddr_in), host, sizeof host, nullptr, 0,
                        NI_NUMERICHOST) == 0) {
            nics.push_back({entry->ifa_name, "", host});
        }
    }
    return nics;
}

// Throws for want of memory.
static int Locate(tsEnetData* list, int max)
{
    tcSocketSet sockets;
    for (const tsNicInfo& nic : enumNics(false)) {
        const in_addr_t address = inet_addr(nic.address.c_str());
        if (address == INADDR_ANY || address == INADDR_NONE) continue;
        if (!sockets.Add(address)) return -1;
    }
    if (sockets.Sockets().empty()) return 0;

    const auto end = steady_clock::now() + gLongest;
    microseconds budget = gWaitBudget;
    int found = 0;
    for (int round = 0; round < gnRounds; ++round) {
        sockets.Broadcast();
        while (found < max && steady_clock::now() < end && sockets.Wait(budget)) {
            for (const pollfd& socket : sockets.Sockets()) {
                if (found == max) break;
                if ((socket.revents & (POLLIN | POLLERR)) == 0) continue;
                if (TakeReply(socket.fd, list, found)) ++found;
            }
        }
    }
    return found;
}

int tcVXCamera_Ethernet::LocateEnetCameras(tsEnetData* list, int max)
try {
    return Locate(list, max);
} catch (const std::exception&) {
    return eVXFailed;
}

#include "found.h"

#include "failure.h"
#include "interrupt.h"
#include "tcService.h"
#include "vxcamiface.h"

#include <ifaddrs.h>
#include <net/if.h>

#include <memory>

namespace {

constexpr int gnMostCameras = 256;

in_addr AddressOf(const sockaddr* address)
{
    return reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
}

// The most specific of the networks that hold the address.
std::string Leading(const std::vector<tsInterface>& interfaces, uint32_t address)
{
    const tsInterface* best = nullptr;
    for (const tsInterface& interface : interfaces) {
        if ((address & interface.mask) != interface.network) continue;
        if (best == nullptr || interface.mask > best->mask) best = &interface;
    }
    return best != nullptr ? best->address : "";
}

} // namespace

std::vector<tsInterface> Interfaces()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned(list, ::freeifaddrs);
    std::vector<tsInterface> interfaces;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        if ((entry->ifa_flags & IFF_UP) == 0 || entry->ifa_netmask == nullptr) continue;
        tsInterface interface;
        interface.name = entry->ifa_name;
        interface.address = AddressText(AddressOf(entry->ifa_addr));
        interface.mask = ntohl(AddressOf(entry->ifa_netmask).s_addr);
        interface.network = ntohl(AddressOf(entry->ifa_addr).s_addr) & interface.mask;
        interfaces.push_back(interface);
    }
    return interfaces;
}

std::string InterfaceText(const std::vector<tsInterface>& interfaces)
{
    std::string text;
    for (const tsInterface& interface : interfaces) {
        text += (text.empty() ? "" : ", ") + interface.name + " " + interface.address;
    }
    return text.empty() ? "no interface with an IPv4 address" : text;
}

std::vector<tsFound> Discover(const std::vector<tsInterface>& interfaces)
{
    std::vector<tsEnetData> records(gnMostCameras);
    int count = 0;
    {
        tcQuickExit quickExit;
        count = VXLocateEnetCameras(records.data(), gnMostCameras);
    }
    if (count < 0) {
        throw tcFailure(eExitNoCamera,
                        "cameras cannot be looked for: no socket for broadcasts on " +
                            InterfaceText(interfaces));
    }
    std::vector<tsFound> cameras;
    for (int i = 0; i < count; ++i) {
        const tsEnetData& record = records[static_cast<size_t>(i)];
        const in_addr& address = record.SourceAddr.sin_addr;
        cameras.push_back({AddressText(address), record.Port, record.SerialNumber,
                           record.CameraValue, Leading(interfaces, ntohl(address.s_addr))});
    }
    return cameras;
}

std::string WhyNotFound(uint32_t serial)
{
    const std::vector<tsInterface> interfaces = Interfaces();
    std::string others;
    for (const tsFound& camera : Discover(interfaces)) {
        if (camera.serial == serial) {
            return "the camera with serial number " + std::to_string(serial) + " is at " +
                   camera.address + ":" + std::to_string(camera.port) +
                   ", but does not answer there, or serves somebody else";
        }
        others += (others.empty() ? "" : ", ") + std::to_string(camera.serial);
    }
    return "no camera with serial number " + std::to_string(serial) + " answers on " +
           InterfaceText(interfaces) +
           (others.empty() ? "; none answers at all" : "; found: " + others);
}

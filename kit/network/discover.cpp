#include <vxcamkit/discover.h>

#include <vxcamkit/error.h>

#include "network/answers.h"
#include "vxcamiface.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <memory>

namespace vxcam {

namespace {

constexpr int kMostCameras = 256;

std::string textOf(in_addr address)
{
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

in_addr addressIn(const sockaddr* address)
{
    return reinterpret_cast<const sockaddr_in*>(address)->sin_addr;
}

// The most specific of the networks that hold the address.
std::string leadingTo(const std::string& address, const std::vector<HostInterface>& interfaces)
{
    in_addr parsed{};
    if (::inet_pton(AF_INET, address.c_str(), &parsed) != 1) return "";
    const uint32_t wanted = ntohl(parsed.s_addr);
    const HostInterface* best = nullptr;
    for (const HostInterface& interface : interfaces) {
        if ((wanted & interface.mask) != interface.network) continue;
        if (best == nullptr || interface.mask > best->mask) best = &interface;
    }
    return best != nullptr ? best->address : "";
}

} // namespace

std::vector<HostInterface> hostInterfaces()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned(list, ::freeifaddrs);
    std::vector<HostInterface> interfaces;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        if ((entry->ifa_flags & IFF_UP) == 0 || entry->ifa_netmask == nullptr) continue;
        HostInterface interface;
        interface.name = entry->ifa_name;
        interface.address = textOf(addressIn(entry->ifa_addr));
        interface.mask = ntohl(addressIn(entry->ifa_netmask).s_addr);
        interface.network = ntohl(addressIn(entry->ifa_addr).s_addr) & interface.mask;
        interfaces.push_back(interface);
    }
    return interfaces;
}

std::string textOf(const std::vector<HostInterface>& interfaces)
{
    std::string text;
    for (const HostInterface& interface : interfaces) {
        text += (text.empty() ? "" : ", ") + interface.name + " " + interface.address;
    }
    return text.empty() ? "no interface with an IPv4 address" : text;
}

std::string FoundCamera::target() const
{
    return (paths.empty() ? "" : paths.front().address) + ":" + std::to_string(port);
}

std::vector<FoundCamera> camerasOf(const std::vector<FoundAnswer>& answers,
                                   const std::vector<HostInterface>& interfaces)
{
    std::vector<FoundCamera> cameras;
    for (const FoundAnswer& answer : answers) {
        auto camera = std::find_if(cameras.begin(), cameras.end(), [&](const FoundCamera& known) {
            return known.serial == answer.serial && known.port == answer.port &&
                   known.value == answer.value;
        });
        if (camera == cameras.end()) {
            camera = cameras.insert(camera, {answer.serial, answer.port, answer.value, {}});
        }
        camera->paths.push_back({answer.address, leadingTo(answer.address, interfaces)});
    }
    return cameras;
}

std::vector<FoundCamera> discover()
{
    const std::vector<HostInterface> interfaces = hostInterfaces();
    std::vector<tsEnetData> records(kMostCameras);
    const int count = VXLocateEnetCameras(records.data(), kMostCameras);
    if (count < 0) {
        throw Error(ErrorKind::NotFound,
                    "cameras cannot be looked for: no socket for broadcasts on " +
                        textOf(interfaces));
    }
    records.resize(static_cast<size_t>(count));
    std::vector<FoundAnswer> answers;
    answers.reserve(records.size());
    for (const tsEnetData& record : records) {
        answers.push_back({textOf(record.SourceAddr.sin_addr), record.Port, record.SerialNumber,
                           record.CameraValue});
    }
    return camerasOf(answers, interfaces);
}

} // namespace vxcam

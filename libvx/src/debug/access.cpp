#include "access.h"

#include "StringTokenizer.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "vxdescriptors.h"
#include "vxenvironment.h"

#include <arpa/inet.h>
#include <ifaddrs.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

bool IsAddress(const std::string& text)
{
    in_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool IsMask(const std::string& text)
{
    if (text.find('.') != std::string::npos) return IsAddress(text);
    return !text.empty() && text.size() <= 2 &&
           text.find_first_not_of("0123456789") == std::string::npos && std::stoi(text) <= 32;
}

// An address list takes masks that it cannot read as "everybody", which nobody meant.
bool IsEntry(const std::string& text)
{
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return IsAddress(text);
    return IsAddress(text.substr(0, slash)) && IsMask(text.substr(slash + 1));
}

} // namespace

vx::tcAccess::tcAccess(const char* bindVariable, const char* allowVariable)
{
    const char* local = vx::PlaceVariable(bindVariable);
    if (local && inet_pton(AF_INET, local, &mnAddress) != 1) {
        mbCanListen = false;
        tcDbgd::GetLog().logError("%s: bad address %s, not listening", bindVariable, local);
    }
    if (const char* admitted = vx::PlaceVariable(allowVariable)) ReadList(admitted, allowVariable);
}

void vx::tcAccess::ReadList(const std::string& text, const char* variable)
{
    mbRestricted = true;
    for (const std::string& entry : StringTokenizer::BuildTokenList(text, ", \t")) {
        if (!IsEntry(entry) || !mAdmitted.Add(entry.c_str()))
            tcDbgd::GetLog().logError("%s: entry %s ignored", variable, entry.c_str());
    }
}

int vx::tcAccess::Bind(HSocket& socket, unsigned short port) const
{
    HInetAddr local;
    local.Set(mnAddress, port);
    const auto* address = reinterpret_cast<const sockaddr*>(&local.GetSockAddr());
    return bind(socket.GetFD(), address, sizeof local.GetSockAddr()) == 0;
}

bool vx::tcAccess::Admits(HSocket& client) const
{
    return !mbRestricted || mAdmitted.CheckRemote(&client) != 0;
}

bool vx::tcAccess::Names(unsigned int address) const
{
    return mbRestricted && mAdmitted.Check(address) != 0;
}

bool vx::IsOfThisHost(unsigned int address)
{
    if (ntohl(address) >> 24 == IN_LOOPBACKNET) return true;
    const tcAboveStandard above; // a socket is opened for the list
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    for (const ifaddrs* one = list; one; one = one->ifa_next) {
        if (!one->ifa_addr || one->ifa_addr->sa_family != AF_INET) continue;
        sockaddr_in own;
        std::memcpy(&own, one->ifa_addr, sizeof own);
        if (own.sin_addr.s_addr == address) return true;
    }
    return false;
}

bool vx::IsWithinHost(HSocket& client)
{
    int family = AF_UNSPEC;
    socklen_t size = sizeof family;
    if (getsockopt(client.GetFD(), SOL_SOCKET, SO_DOMAIN, &family, &size) == 0)
        return family == AF_UNIX;
    return errno == ENOTSOCK;
}

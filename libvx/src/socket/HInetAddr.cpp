#include "HSocket.h"

#include "resolve.h"
#include "vxdescriptors.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cstdlib>
#include <cstring>
#include <string>

bool vx::ResolveName(const char* name, in_addr_t* address)
{
    if (!name) return false;
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const vx::tcAboveStandard above; // the resolver opens sockets and files, too
    if (getaddrinfo(name, nullptr, &wanted, &found) != 0) return false;
    sockaddr_in first;
    std::memcpy(&first, found->ai_addr, sizeof first);
    freeaddrinfo(found);
    *address = first.sin_addr.s_addr;
    return true;
}

in_addr_t vx::AddressOf(const char* host)
{
    const bool dotted = *host >= '0' && *host <= '9' && host[std::strspn(host, "0123456789.")] == 0;
    if (dotted) return inet_addr(host);
    in_addr_t address;
    return ResolveName(host, &address) ? address : inet_addr(host);
}

HInetAddr::HInetAddr() : mAddress{}
{
    mAddress.sin_family = AF_INET;
}

HInetAddr::HInetAddr(const char* host, unsigned short port) : HInetAddr()
{
    Set(host, port);
}

HInetAddr::HInetAddr(const sockaddr_in& address) : mAddress(address) {}

void HInetAddr::Set(const char* host, unsigned short port)
{
    Set(host ? vx::AddressOf(host) : INADDR_ANY, port);
}

void HInetAddr::Set(unsigned int address, unsigned short port)
{
    mAddress.sin_addr.s_addr = address;
    mAddress.sin_port = htons(port);
}

const char* HInetAddr::GetIPAddr() const
{
    static thread_local char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &mAddress.sin_addr, text, sizeof text);
    return text;
}

unsigned int HInetAddr::GetAddr() const
{
    return mAddress.sin_addr.s_addr;
}

unsigned short HInetAddr::GetPort() const
{
    return ntohs(mAddress.sin_port);
}

int HInetAddr::GetSockName(HSocket& socket)
{
    sockaddr_in name{};
    socklen_t size = sizeof name;
    if (getsockname(socket.GetFD(), reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
    if (name.sin_family != AF_INET) return 0;
    mAddress = name;
    return 1;
}

int HInetAddr::GetPeerName(HSocket& socket)
{
    sockaddr_in name{};
    socklen_t size = sizeof name;
    if (getpeername(socket.GetFD(), reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
    if (name.sin_family != AF_INET) return 0;
    mAddress = name;
    return 1;
}

HUnixAddr::HUnixAddr() : mAddress{}
{
    mAddress.sun_family = AF_UNIX;
}

HUnixAddr::HUnixAddr(const char* path) : HUnixAddr()
{
    Set(path);
}

void HUnixAddr::Set(const char* path)
{
    std::memset(mAddress.sun_path, 0, sizeof mAddress.sun_path);
    if (path) std::strncpy(mAddress.sun_path, path, sizeof mAddress.sun_path - 1);
}

HInetAddrList::HInetAddrList() : maEntries{}, mnCount(0) {}

static uint32_t MaskOf(const std::string& text)
{
    if (text.find('.') != std::string::npos) return inet_addr(text.c_str());
    const auto length = static_cast<unsigned short>(std::strtol(text.c_str(), nullptr, 10));
    // Kept: a prefix length of 0, or one that is no number, accepts every address; 33 counts as 1.
    if (length == 0) return 0;
    return htonl(0xFFFFFFFFu << (31 - (length - 1) % 32));
}

int HInetAddrList::Add(const char* address, const char* mask)
{
    if (!address || mnCount >= nCapacity) return 0;
    std::string host = address;
    std::string width = mask ? mask : "255.255.255.255";
    const size_t slash = host.find('/');
    if (slash != std::string::npos) {
        width = host.substr(slash + 1);
        host.erase(slash);
    }
    if (host.size() >= 128) return 0;

    const uint32_t number = inet_addr(host.c_str());
    if (number == INADDR_NONE && host != "255.255.255.255") return 0;
    maEntries[mnCount++] = {number, MaskOf(width)};
    return 1;
}

int HInetAddrList::Check(unsigned int address) const
{
    for (int i = 0; i < mnCount; ++i) {
        if (((maEntries[i].mnAddress ^ address) & maEntries[i].mnMask) == 0) return 1;
    }
    return 0;
}

int HInetAddrList::Check(const HInetAddr& address) const
{
    return Check(address.GetAddr());
}

int HInetAddrList::CheckRemote(HSocket* socket) const
{
    HInetAddr peer;
    return socket && peer.GetPeerName(*socket) ? Check(peer) : 0;
}

HSocketLibrary::HSocketLibrary() = default;
HSocketLibrary::~HSocketLibrary() = default;

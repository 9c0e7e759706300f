#include "HSocket.h"

#include "resolve.h"
#include "vxdescriptors.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>

#include <cstdio>

int HSocket::SetOption(int level, int name, int value)
{
    return setsockopt(mhDescriptor, level, name, &value, sizeof value) == 0;
}

int HSocket::GetOption(int level, int name)
{
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(mhDescriptor, level, name, &value, &size) == 0 ? value : 0;
}

int HSocket::SetAsBroadcasting()
{
    return SetOption(SOL_SOCKET, SO_BROADCAST, 1);
}

int HSocket::SetAsNoLinger()
{
    const linger option{1, 0};
    return setsockopt(mhDescriptor, SOL_SOCKET, SO_LINGER, &option, sizeof option) == 0;
}

int HSocket::SetAsKeepAlive()
{
    return SetOption(SOL_SOCKET, SO_KEEPALIVE, 1);
}

int HSocket::DisableNagle(int on)
{
    return SetOption(IPPROTO_TCP, TCP_NODELAY, on);
}

int HSocket::SetRecvBufferSize(int size)
{
    return SetOption(SOL_SOCKET, SO_RCVBUF, size);
}

int HSocket::SetWholeRecvBufferSize(int size)
{
    // A size that was set once stays fixed, so another socket is tried.
    HSocket trial;
    trial.mhDescriptor = vx::OpenSocket(AF_INET, SOCK_STREAM);
    constexpr int perByte = 2; // the system counts its own needs, too
    if (!trial.SetRecvBufferSize(size) || trial.GetRecvBufferSize() / perByte < size) return 0;
    return SetRecvBufferSize(size);
}

int HSocket::SetSendBufferSize(int size)
{
    return SetOption(SOL_SOCKET, SO_SNDBUF, size);
}

int HSocket::SetTos(int tos)
{
    return SetOption(IPPROTO_IP, IP_TOS, tos);
}

int HSocket::GetRecvBufferSize()
{
    return GetOption(SOL_SOCKET, SO_RCVBUF);
}

int HSocket::GetSendBufferSize()
{
    return GetOption(SOL_SOCKET, SO_SNDBUF);
}

int HSocket::GetTos()
{
    return GetOption(IPPROTO_IP, IP_TOS);
}

unsigned int HSocket::GetRemoteIP()
{
    HInetAddr peer;
    return peer.GetPeerName(*this) ? peer.GetAddr() : 0;
}

unsigned short HSocket::GetRemotePort()
{
    HInetAddr peer;
    return peer.GetPeerName(*this) ? peer.GetPort() : 0;
}

unsigned int HSocket::GetLocalIP()
{
    HInetAddr own;
    return own.GetSockName(*this) ? own.GetAddr() : 0;
}

unsigned short HSocket::GetLocalPort()
{
    HInetAddr own;
    return own.GetSockName(*this) ? own.GetPort() : 0;
}

const char* HSocket::GetIPAddrByName(const char* name)
{
    static char text[INET_ADDRSTRLEN];
    in_addr_t address;
    if (!vx::ResolveName(name, &address)) return nullptr;
    const unsigned number = ntohl(address);
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", number >> 24, number >> 16 & 255,
                  number >> 8 & 255, number & 255);
    return text;
}

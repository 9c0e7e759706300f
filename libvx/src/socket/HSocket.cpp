#include "HSocket.h"

#include "vxdescriptors.h"
#include "vxhoststreams.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr int nUnixReceiveBuffer = 65535;

// Printing may change errno, which belongs to the caller.
class tcKeepErrno
{
public:
    tcKeepErrno() : mnError(errno) {}
    ~tcKeepErrno() { errno = mnError; }
    tcKeepErrno(const tcKeepErrno&) = delete;
    tcKeepErrno& operator=(const tcKeepErrno&) = delete;

private:
    int mnError;
};

} // namespace

HFDObject::~HFDObject() = default;

HSocket::HSocket() : mhDescriptor(-1), mnPort(0), mAddress{} {}

HSocket::~HSocket()
{
    Close();
}

int HSocket::GetFD()
{
    return mhDescriptor;
}

int HSocket::Create(unsigned short port, int type, const char* addr)
{
    mnPort = port;
    Close();
    mhDescriptor = vx::OpenSocket(AF_INET, type);
    if (mhDescriptor < 0) return 0;
    const int kind = type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (port != 0 || kind == SOCK_STREAM) SetOption(SOL_SOCKET, SO_REUSEADDR, 1);

    mAddress = sockaddr_in{};
    mAddress.sin_family = AF_INET;
    mAddress.sin_port = htons(port);
    mAddress.sin_addr.s_addr = addr && *addr ? inet_addr(addr) : INADDR_ANY;

    if (!addr && port == 0 && kind != SOCK_DGRAM) return 1;
    // Kept: without an address the line shows "(null)".
    vx::PrintFormatted(stdout, "Binding to %s : %d\n", addr ? addr : "(null)", port);
    return Bind();
}

int HSocket::CreateUnix(const char* path, int type, bool unlinkFirst)
{
    Close();
    mpUnixAddress = std::make_unique<HUnixAddr>(path);
    if (unlinkFirst) unlink(mpUnixAddress->GetPath());
    mhDescriptor = vx::OpenSocket(AF_UNIX, type);
    if (mhDescriptor < 0) return 0;
    SetRecvBufferSize(nUnixReceiveBuffer);
    const sockaddr_un& address = mpUnixAddress->GetSockAddr();
    return bind(mhDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int HSocket::Bind()
{
    vx::PrintFormatted(stdout, "Bind: %d\n", mnPort);
    if (bind(mhDescriptor, reinterpret_cast<const sockaddr*>(&mAddress), sizeof mAddress) != 0) {
        const tcKeepErrno keep;
        vx::PrintSystemError("Bind:");
        return 0;
    }
    vx::Print(stdout, "Bind successful\n");
    return 1;
}

int HSocket::Listen(int backlog)
{
    return listen(mhDescriptor, backlog) != -1;
}

int HSocket::Accept(HSocket* client, int timeoutMs)
{
    if (!client || Select(1, this, timeoutMs) != 0) return 0;
    const vx::tcAboveStandard above;
    int accepted;
    do {
        accepted = accept4(mhDescriptor, nullptr, nullptr, SOCK_CLOEXEC);
    } while (accepted < 0 && errno == EINTR);
    if (accepted < 0) return 0;

    // Kept: keep-alive goes to the listening socket, not to the accepted one.
    SetAsKeepAlive();
    client->Close();
    client->mhDescriptor = accepted;
    return 1;
}

int HSocket::Shutdown(int how)
{
    return shutdown(mhDescriptor, how) == 0;
}

int HSocket::Close()
{
    if (mhDescriptor < 0) return 1;
    const int result = close(mhDescriptor);
    mhDescriptor = -1;
    return result == 0;
}

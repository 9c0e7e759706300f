#include "HSocket.h"

#include "resolve.h"
#include "vxdescriptors.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace {

constexpr int nConnectBuffer = 0x200000;
constexpr int nCancelSliceMs = 50;

const sockaddr* Generic(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

// The outcome of a connection attempt that goes on in the background: 0 or an error number.
int Outcome(int descriptor)
{
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// Ends an attempt so that the descriptor can connect anew.
void Dissolve(int descriptor)
{
    sockaddr none{};
    none.sa_family = AF_UNSPEC;
    (void)connect(descriptor, &none, sizeof none);
}

// Waits for the outcome: 0 or an error number.
int AwaitCancellable(int descriptor, const std::atomic<bool>& cancel, int timeoutMs)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    while (!cancel) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) return ETIMEDOUT;
        pollfd entry{descriptor, POLLOUT, 0};
        const int slice = static_cast<int>(std::min<long long>(left, nCancelSliceMs));
        if (poll(&entry, 1, slice) > 0) return Outcome(descriptor);
    }
    return ECANCELED;
}

// connect() by TCP that is not cut short by a signal: 0 or an error number.
int ConnectBlocking(int descriptor, const sockaddr_in& address)
{
    if (connect(descriptor, Generic(address), sizeof address) == 0) return 0;
    if (errno != EINTR) return errno;
    pollfd entry{descriptor, POLLOUT, 0};
    while (poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
    const int error = Outcome(descriptor);
    if (error != 0) Dissolve(descriptor);
    return error;
}

int Result(int error)
{
    if (error == 0) return 1;
    errno = error;
    return 0;
}

} // namespace

int HSocket::PrepareConnect(const char* host, unsigned short port, sockaddr_in& address)
{
    if (!host) return Result(EINVAL);
    if (mhDescriptor < 0) mhDescriptor = vx::OpenSocket(AF_INET, SOCK_STREAM);
    if (mhDescriptor < 0) return 0;
    address = sockaddr_in{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = vx::AddressOf(host);
    return 1;
}

int HSocket::RefuseSelfConnection()
{
    // A port in the range of outgoing ones, that nobody listens on, can be picked as the own port;
    // both ends are then this socket.
    if (GetLocalPort() != GetRemotePort() || GetLocalIP() != GetRemoteIP()) return 1;
    SetAsNoLinger(); // an orderly close would keep the port from a listener for a minute
    Close();
    return Result(ECONNREFUSED);
}

int HSocket::Connect(const char* host, unsigned short port)
{
    sockaddr_in address;
    if (!PrepareConnect(host, port, address)) return 0;
    SetRecvBufferSize(nConnectBuffer);
    const int error = ConnectBlocking(mhDescriptor, address);
    return error == 0 ? RefuseSelfConnection() : Result(error);
}

int HSocket::Connect(const char* host, unsigned short port, const std::atomic<bool>& cancel,
                     int timeoutMs)
{
    if (cancel) return Result(ECANCELED);
    sockaddr_in address;
    if (!PrepareConnect(host, port, address)) return 0;
    SetWholeRecvBufferSize(nConnectBuffer);
    const int flags = fcntl(mhDescriptor, F_GETFL);
    if (flags < 0 || fcntl(mhDescriptor, F_SETFL, flags | O_NONBLOCK) != 0) return 0;
    const int connected = ConnectCancellable(address, cancel, timeoutMs);
    const int error = errno;
    fcntl(mhDescriptor, F_SETFL, flags & ~O_NONBLOCK);
    return connected ? RefuseSelfConnection() : Result(error);
}

int HSocket::ConnectCancellable(const sockaddr_in& address, const std::atomic<bool>& cancel,
                                int timeoutMs)
{
    if (connect(mhDescriptor, Generic(address), sizeof address) == 0) return 1;
    if (errno != EINPROGRESS && errno != EINTR) return 0;
    const int error = AwaitCancellable(mhDescriptor, cancel, timeoutMs);
    if (error != 0) Dissolve(mhDescriptor);
    return Result(error);
}

int HSocket::Connect(const char* path)
{
    Close();
    mhDescriptor = vx::OpenSocket(AF_UNIX, SOCK_STREAM);
    if (mhDescriptor < 0) return 0;
    mpUnixAddress = std::make_unique<HUnixAddr>(path);
    const sockaddr_un& address = mpUnixAddress->GetSockAddr();
    int result;
    do { // unlike by TCP, an attempt that a signal cuts short does not go on in the background
        result = connect(mhDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result < 0 && errno == EINTR);
    return result == 0;
}

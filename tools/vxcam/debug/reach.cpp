#include "reach.h"

#include "interrupt.h"
#include "tcService.h"

#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnGoodBye(500); // for the other side to see the end
constexpr size_t gnMostBytes = 4096;

// A camera error in front of all else: a header of 12 bytes, code, sub-code and text.
constexpr size_t gnTextAt = 14;
constexpr const char* gsMagic = "\x50\xFA";
constexpr char gcCameraError = '\x75';

// Owns: the descriptor.
struct tsSocket {
    int handle;
    ~tsSocket()
    {
        if (handle >= 0) ::close(handle);
    }
};

bool WaitFor(int descriptor, short events, tpMilliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<tpMilliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd entry{descriptor, events, 0};
        const int ready =
            ::poll(&entry, 1, static_cast<int>(std::max(tpMilliseconds(0), left).count()));
        if (ready >= 0 || errno != EINTR) return ready > 0;
    }
}

tsReach Failure(int error)
{
    tsReach reach;
    reach.detail = std::strerror(error);
    switch (error) {
    case ECONNREFUSED:
        reach.outcome = teReach::eRefused;
        break;
    case ETIMEDOUT:
        reach.outcome = teReach::eTimeout;
        break;
    case EHOSTUNREACH:
    case ENETUNREACH:
    case EHOSTDOWN:
    case ENETDOWN:
        reach.outcome = teReach::eUnreachable;
        break;
    default:
        reach.outcome = teReach::eOther;
        break;
    }
    return reach;
}

int ConnectError(int descriptor, const sockaddr_in& address, tpMilliseconds patience)
{
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS) return errno;
    if (!WaitFor(descriptor, POLLOUT, patience)) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

// What comes until the other side closes, too.
std::string LastWords(int descriptor)
{
    std::string words;
    char bytes[256];
    ::shutdown(descriptor, SHUT_WR);
    while (words.size() < gnMostBytes && WaitFor(descriptor, POLLIN, gnGoodBye)) {
        const ssize_t count = ::recv(descriptor, bytes, sizeof bytes, 0);
        if (count <= 0) break;
        words.append(bytes, static_cast<size_t>(count));
    }
    return words;
}

bool IsCameraError(const std::string& words)
{
    return words.size() > gnTextAt && words.compare(0, 2, gsMagic) == 0 &&
           words[9] == gcCameraError && words[10] == 0 && words[11] == 0;
}

sockaddr_in NameOf(int descriptor, int (*get)(int, sockaddr*, socklen_t*))
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (get(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
    return address;
}

} // namespace

tsReach TryPort(in_addr address, uint16_t port, tpMilliseconds patience)
{
    tcQuickExit quickExit;
    const tsSocket socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (socket.handle < 0) return Failure(errno);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(port);
    target.sin_addr = address;
    const int error = ConnectError(socket.handle, target, patience);
    if (error != 0) return Failure(error);
    tsReach reach;
    reach.ownAddress = AddressText(NameOf(socket.handle, ::getsockname).sin_addr);
    const std::string words = LastWords(socket.handle);
    if (IsCameraError(words)) {
        reach.outcome = teReach::eInUse;
        reach.detail = words.substr(gnTextAt, words.find('\0', gnTextAt) - gnTextAt);
    }
    return reach;
}

int GrantedReceiveBuffer(uint16_t port)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc/self/fd"), ::closedir);
    if (!folder) return 0;
    while (const dirent* entry = ::readdir(folder.get())) {
        const int descriptor = std::atoi(entry->d_name);
        const sockaddr_in peer = NameOf(descriptor, ::getpeername);
        if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != port) continue;
        int bytes = 0;
        socklen_t size = sizeof bytes;
        ::getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
        return bytes / 2; // the system keeps as much again for its own books
    }
    return 0;
}

int MostReceiveBuffer()
{
    int bytes = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> bytes;
    return bytes;
}

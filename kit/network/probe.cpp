#include "network/probe.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstWords(50); // for a camera that turns clients away to say so
constexpr milliseconds kGoodBye(500);   // for the other side to see the end
constexpr size_t kMostBytes = 4096;

// A camera error in front of all else: a header of 12 bytes, code, sub-code and text.
constexpr size_t kTextAt = 14;
constexpr const char* kMagic = "\x50\xFA";
constexpr char kCameraError = '\x75';

// Owns: the descriptor.
class Socket
{
public:
    Socket() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~Socket()
    {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int descriptor() const { return descriptor_; }

    bool waitFor(short events, milliseconds patience) const
    {
        const auto deadline = steady_clock::now() + patience;
        for (;;) {
            const auto left =
                std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
            pollfd entry{descriptor_, events, 0};
            const int ready =
                ::poll(&entry, 1, static_cast<int>(std::max(milliseconds(0), left).count()));
            if (ready >= 0 || errno != EINTR) return ready > 0;
        }
    }

    int connect(const sockaddr_in& address, milliseconds patience) const
    {
        if (descriptor_ < 0) return errno;
        const auto* const target = reinterpret_cast<const sockaddr*>(&address);
        if (::connect(descriptor_, target, sizeof address) == 0) return 0;
        if (errno != EINPROGRESS) return errno;
        if (!waitFor(POLLOUT, patience)) return ETIMEDOUT;
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &error, &size);
        return error;
    }

    // Adds what comes within the time; false at the end of it all.
    bool read(std::string* words, milliseconds patience) const
    {
        char bytes[256];
        while (words->size() < kMostBytes) {
            if (!waitFor(POLLIN, patience)) return true;
            const ssize_t count = ::recv(descriptor_, bytes, sizeof bytes, 0);
            if (count <= 0) return false;
            words->append(bytes, static_cast<size_t>(count));
        }
        return true;
    }

private:
    int descriptor_;
};

bool isCameraError(const std::string& words)
{
    return words.size() > kTextAt && words.compare(0, 2, kMagic) == 0 && words[9] == kCameraError &&
           words[10] == 0 && words[11] == 0;
}

} // namespace

Probe probe(const std::string& host, uint16_t port, milliseconds patience)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int unknown = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
    if (unknown != 0) return {Probe::Outcome::NoName, ::gai_strerror(unknown)};
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(list, ::freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, list->ai_addr, sizeof address);
    address.sin_port = htons(port);

    const Socket socket;
    const int error = socket.connect(address, patience);
    if (error != 0) return {Probe::Outcome::Unreachable, std::system_category().message(error)};
    std::string words;
    const bool isTurned = !socket.read(&words, kFirstWords);
    if (!isTurned) {
        ::shutdown(socket.descriptor(), SHUT_WR);
        socket.read(&words, kGoodBye);
    }
    if (isCameraError(words)) {
        return {Probe::Outcome::InUse, words.substr(kTextAt, words.find('\0', kTextAt) - kTextAt)};
    }
    return {isTurned ? Probe::Outcome::Turned : Probe::Outcome::Reached, ""};
}

} // namespace vxcam

#include "tcService.h"

#include "failure.h"
#include "interrupt.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace {

using tpClock = std::chrono::steady_clock;

constexpr size_t gnLongestAnswer = size_t{1} << 30;
constexpr std::chrono::milliseconds gtSignalStep{100};

// Cameras send binary messages, without end and without being asked.
bool IsOfCamera(const std::string& answer)
{
    return answer.rfind("\x50\xFA", 0) == 0;
}

} // namespace

// Owns: the socket.
class tcService::tcConnection
{
public:
    explicit tcConnection(const tcService& service)
        : mtService(service), mtSocket{
                                  ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)}
    {
        if (mtSocket.handle < 0) Refused(errno);
        const auto* address = reinterpret_cast<const sockaddr*>(&service.mtAddress);
        if (::connect(mtSocket.handle, address, sizeof service.mtAddress) == 0) return;
        if (errno != EINPROGRESS) Refused(errno);
        if (!WaitFor(POLLOUT)) Refused(ETIMEDOUT);
        int error = 0;
        socklen_t size = sizeof error;
        ::getsockopt(mtSocket.handle, SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) Refused(error);
    }
    std::string OwnAddress() const
    {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(mtSocket.handle, reinterpret_cast<sockaddr*>(&own), &size);
        return AddressText(own.sin_addr);
    }
    void Send(const std::string& request)
    {
        if (::send(mtSocket.handle, request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size())) {
            mtService.Fail(eExitNoCamera, "does not take the request");
        }
    }
    std::string ReadAll()
    {
        std::string text;
        char bytes[65536];
        for (;;) {
            if (!WaitFor(POLLIN)) Silent(!text.empty());
            const ssize_t count = ::recv(mtSocket.handle, bytes, sizeof bytes, 0);
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            if (count < 0) mtService.Fail(eExitNoCamera, std::strerror(errno));
            if (count == 0) return text;
            text.append(bytes, static_cast<size_t>(count));
            if (IsOfCamera(text)) {
                mtService.Fail(eExitNoCamera, "that is the port of a camera itself");
            }
            if (text.size() > gnLongestAnswer) {
                mtService.Fail(eExitNoCamera, "the answer does not end");
            }
        }
    }

private:
    struct tsSocket {
        explicit tsSocket(int descriptor) : handle(descriptor) {}
        ~tsSocket()
        {
            if (handle >= 0) ::close(handle);
        }
        tsSocket(const tsSocket&) = delete;
        tsSocket& operator=(const tsSocket&) = delete;

        const int handle;
    };

    [[noreturn]] void Refused(int error) const
    {
        mtService.Fail(eExitNoCamera, std::strerror(error));
    }
    [[noreturn]] void Silent(bool hasBegun) const
    {
        const std::string patience = DurationText(mtService.mtPatience);
        if (hasBegun) mtService.Fail(eExitTimeout, "the answer stopped for " + patience);
        mtService.Fail(eExitNoCamera, "no answer within " + patience);
    }
    // False when nothing happened for as long as the service may be silent.
    bool WaitFor(short event) const
    {
        const auto deadline = tpClock::now() + mtService.mtPatience;
        for (;;) {
            if (mtService.mbInterruptible) ThrowIfInterrupted();
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - tpClock::now());
            pollfd state{mtSocket.handle, event, 0};
            const auto step = std::clamp(left, std::chrono::milliseconds(0), gtSignalStep);
            if (::poll(&state, 1, static_cast<int>(step.count())) > 0) return true;
            if (left.count() <= 0) return false;
        }
    }

    const tcService& mtService;
    const tsSocket mtSocket;
};

tcService::tcService(const tsEndpoint& place, const std::string& kind,
                     std::chrono::milliseconds patience)
    : msKind(kind), msName(place.host + ":" + std::to_string(place.port)), mtPatience(patience)
{
    mtAddress.sin_family = AF_INET;
    mtAddress.sin_addr = ResolveHost(place.host);
    mtAddress.sin_port = htons(place.port);
}

std::string tcService::Ask(const std::string& request)
{
    tcConnection connection(*this);
    msOwnAddress = connection.OwnAddress();
    connection.Send(request);
    return connection.ReadAll();
}

void tcService::Fail(int code, const std::string& why) const
{
    throw tcFailure(code, msKind + " " + msName + ": " + why);
}

in_addr ResolveHost(const std::string& host)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int result = 0;
    {
        const tcQuickExit quick;
        result = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    }
    if (result != 0) {
        throw tcFailure(eExitNoCamera, "host " + host + ": " + ::gai_strerror(result));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, ::freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    return address.sin_addr;
}

std::string AddressText(in_addr address)
{
    char text[INET_ADDRSTRLEN] = "";
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

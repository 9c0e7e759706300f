#include "alpaca/discovery_answer.h"

#include <vxcamkit/error.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vxcam {

namespace {

constexpr const char* kQuery = "alpacadiscovery1";
constexpr int kLookMilliseconds = 200;

} // namespace

bool isDiscoveryQuery(const std::string& bytes)
{
    return bytes.rfind(kQuery, 0) == 0;
}

DiscoveryAnswer::DiscoveryAnswer(int port, int serverPort, bool isLocal)
    : answer_("{\"AlpacaPort\":" + std::to_string(serverPort) + "}"), isLocal_(isLocal)
{
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0 || ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::setsockopt(socket_, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) != 0 ||
        ::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const std::string why = std::strerror(errno);
        if (socket_ >= 0) ::close(socket_);
        throw Error(ErrorKind::Usage, "discovery on UDP port " + std::to_string(port) + ": " + why);
    }
    thread_ = std::thread([this] { serve(); });
}

DiscoveryAnswer::~DiscoveryAnswer()
{
    isEnding_ = true;
    thread_.join();
    ::close(socket_);
}

void DiscoveryAnswer::answerOne()
{
    constexpr uint32_t kLoopback = 127;
    std::array<char, 128> bytes{};
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    const ssize_t count = ::recvfrom(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&sender), &size);
    if (count <= 0 || !isDiscoveryQuery({bytes.data(), static_cast<size_t>(count)})) return;
    if (isLocal_ && ntohl(sender.sin_addr.s_addr) >> 24 != kLoopback) return;
    ::sendto(socket_, answer_.data(), answer_.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&sender), size);
}

void DiscoveryAnswer::serve()
{
    while (!isEnding_) {
        pollfd wait{socket_, POLLIN, 0};
        if (::poll(&wait, 1, kLookMilliseconds) > 0) answerOne();
    }
}

} // namespace vxcam

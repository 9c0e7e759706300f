#include "wire/player_socket.h"

#include <vxcamkit/error.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace vxcam {

uint16_t PlayerSocket::listen(uint16_t port)
{
    reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    ::setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    if (::bind(descriptor_, place, size) != 0 || ::listen(descriptor_, 4) != 0 ||
        ::getsockname(descriptor_, place, &size) != 0) {
        const int error = errno;
        throw Error(ErrorKind::Busy, "port " + std::to_string(port) + ": " + std::strerror(error),
                    error);
    }
    return ntohs(address.sin_port);
}

bool PlayerSocket::send(std::vector<iovec>* pieces, size_t* first)
{
    msghdr left{};
    left.msg_iov = pieces->data() + *first;
    left.msg_iovlen = pieces->size() - *first;
    errno = 0;
    const ssize_t count = ::sendmsg(descriptor_, &left, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count <= 0) return false;
    auto sent = static_cast<size_t>(count);
    while (*first < pieces->size() && sent >= (*pieces)[*first].iov_len) {
        sent -= (*pieces)[(*first)++].iov_len;
    }
    if (sent == 0) return true;
    iovec& cut = (*pieces)[*first];
    cut.iov_base = static_cast<char*>(cut.iov_base) + sent;
    cut.iov_len -= sent;
    return true;
}

} // namespace vxcam

#include "http/tls_relay.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostGreeting{10}, kMostStuck{10}, kMostLeaving{1};
constexpr std::chrono::milliseconds kMostEnding{500};
constexpr size_t kInRoom = 16384, kOutRoom = 65536;

bool isForLater(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

TlsRelay::TlsRelay(TlsConnection outside, int client, int ending)
    : outside_(std::move(outside)), client_(client), ending_(ending), in_(kInRoom), out_(kOutRoom)
{}

// Waits for either socket; false when the time is over. Told to end, it goes on for a moment.
bool TlsRelay::look(short client, int inside, short events, Clock::time_point until)
{
    if (end_) until = std::min(until, *end_);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    if (left <= 0) return false;
    std::array<pollfd, 3> places{pollfd{client != 0 ? client_ : -1, client, 0},
                                 pollfd{events != 0 ? inside : -1, events, 0},
                                 pollfd{end_ ? -1 : ending_, POLLIN, 0}};
    const auto most =
        static_cast<int>(std::min<decltype(left)>(left, std::numeric_limits<int>::max()));
    ::poll(places.data(), places.size(), most);
    if (places[2].revents != 0) end_ = Clock::now() + kMostEnding;
    return true;
}

// False: the connection is broken.
bool TlsRelay::mayTryAgain(int result)
{
    switch (SSL_get_error(outside_.get(), result)) {
    case SSL_ERROR_WANT_READ:
        wants_ |= POLLIN;
        return true;
    case SSL_ERROR_WANT_WRITE:
        wants_ |= POLLOUT;
        return true;
    default:
        return false;
    }
}

bool TlsRelay::greet()
{
    if (!outside_) return false;
    const auto until = Clock::now() + kMostGreeting;
    for (;;) {
        wants_ = 0;
        ERR_clear_error();
        const int result = SSL_accept(outside_.get());
        if (result == 1) return true;
        if (!mayTryAgain(result)) {
            if (ERR_GET_REASON(ERR_peek_error()) == SSL_R_HTTP_REQUEST) refusePlain();
            return false;
        }
        if (end_ || !look(wants_, -1, 0, until)) return false;
    }
}

void TlsRelay::refusePlain()
{
    static constexpr char kAnswer[] = "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n"
                                      "Content-Type: text/plain\r\n\r\nhttps is spoken here\n";
    ::send(client_, kAnswer, sizeof kAnswer - 1, MSG_NOSIGNAL);
    takeLeave();
}

bool TlsRelay::takeFromClient()
{
    if (in_.isOver || !in_.isEmpty()) return true;
    ERR_clear_error();
    const int count =
        SSL_read(outside_.get(), in_.bytes.data(), static_cast<int>(in_.bytes.size()));
    if (count > 0) {
        in_.fill(static_cast<size_t>(count));
    } else if (SSL_get_error(outside_.get(), count) == SSL_ERROR_ZERO_RETURN) {
        in_.isOver = true;
    } else {
        return mayTryAgain(count);
    }
    hasMoved_ = true;
    return true;
}

bool TlsRelay::giveToClient()
{
    if (out_.isEmpty()) return true;
    ERR_clear_error();
    const int count = SSL_write(outside_.get(), out_.data(), static_cast<int>(out_.size()));
    if (count <= 0) return mayTryAgain(count);
    out_.begin += static_cast<size_t>(count);
    hasMoved_ = true;
    return true;
}

void TlsRelay::takeFromInside(int inside)
{
    if (out_.isOver || !out_.isEmpty()) return;
    const ssize_t count = ::recv(inside, out_.bytes.data(), out_.bytes.size(), 0);
    if (count < 0 && isForLater(errno)) return;
    if (count > 0) out_.fill(static_cast<size_t>(count));
    out_.isOver = count <= 0;
    hasMoved_ = true;
}

// What it takes no more is of no use to anybody.
void TlsRelay::giveToInside(int inside)
{
    while (!in_.isEmpty()) {
        const ssize_t count = ::send(inside, in_.data(), in_.size(), MSG_NOSIGNAL);
        if (count < 0 && isForLater(errno)) return;
        hasMoved_ = true;
        in_.begin = count > 0 ? in_.begin + static_cast<size_t>(count) : in_.end;
        in_.isOver = in_.isOver || count <= 0;
    }
    if (!in_.isOver || isShut_) return;
    isShut_ = true;
    ::shutdown(inside, SHUT_WR);
}

// Until there is something to do; false when it has taken too long.
bool TlsRelay::await(int inside)
{
    const bool isStuck = !in_.isEmpty() || !out_.isEmpty();
    short events = 0;
    if (!in_.isEmpty()) events |= POLLOUT;
    if (out_.isEmpty()) events |= POLLIN;
    constexpr std::chrono::hours kLong{1};
    const auto until = isStuck ? moved_ + kMostStuck : Clock::now() + kLong;
    return look(wants_, inside, events, until) || !(isStuck || end_);
}

void TlsRelay::pass(int inside)
{
    moved_ = Clock::now();
    for (;;) {
        wants_ = 0;
        hasMoved_ = false;
        if (!takeFromClient()) return;
        giveToInside(inside);
        takeFromInside(inside);
        if (!giveToClient()) return;
        if (out_.isOver && out_.isEmpty()) break;
        if (hasMoved_) moved_ = Clock::now();
        if (!hasMoved_ && !await(inside)) break;
    }
    ERR_clear_error();
    if (out_.isEmpty()) SSL_shutdown(outside_.get());
    takeLeave();
}

// Closed while something of the client's is not read, its system would throw away what it has not
// read itself.
void TlsRelay::takeLeave()
{
    ::shutdown(client_, SHUT_WR);
    const auto until = Clock::now() + kMostLeaving;
    while (!end_ && look(POLLIN, -1, 0, until)) {
        const ssize_t count = ::recv(client_, in_.bytes.data(), in_.bytes.size(), 0);
        if (count == 0 || (count < 0 && !isForLater(errno))) return;
    }
}

} // namespace vxcam

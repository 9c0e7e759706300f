#include "http/tls_front.h"

#include "http/tls_relay.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace vxcam {

namespace {

constexpr int kBacklog = 4096;
constexpr int kInsideBuffer = 262144; // bytes: what waits there for a slow watcher grows old
constexpr std::chrono::milliseconds kBetweenTries{100}; // where the system has no more sockets

// An address of either family, with its port.
union Place {
    sockaddr any;
    sockaddr_in four;
    sockaddr_in6 six;

    socklen_t size() const { return any.sa_family == AF_INET6 ? sizeof six : sizeof four; }
    int port() const { return ntohs(any.sa_family == AF_INET6 ? six.sin6_port : four.sin_port); }
    std::string text() const
    {
        std::array<char, INET6_ADDRSTRLEN> text{};
        if (any.sa_family == AF_INET6) {
            ::inet_ntop(AF_INET6, &six.sin6_addr, text.data(), text.size());
        } else {
            ::inet_ntop(AF_INET, &four.sin_addr, text.data(), text.size());
        }
        return text.data();
    }
};

// "127.0.0.1" or "[::1]"
std::optional<Place> placeOf(const std::string& address, int port)
{
    Place place{};
    const bool isSix = address.size() > 2 && address.front() == '[' && address.back() == ']';
    const std::string inner = isSix ? address.substr(1, address.size() - 2) : address;
    if (isSix) {
        place.six.sin6_family = AF_INET6;
        place.six.sin6_port = htons(static_cast<uint16_t>(port));
        if (::inet_pton(AF_INET6, inner.c_str(), &place.six.sin6_addr) == 1) return place;
        return {};
    }
    place.four.sin_family = AF_INET;
    place.four.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, inner.c_str(), &place.four.sin_addr) == 1) return place;
    return {};
}

Place ownPlace(int descriptor)
{
    Place place{};
    socklen_t size = sizeof place;
    ::getsockname(descriptor, &place.any, &size);
    return place;
}

void turnOn(int descriptor, int level, int option)
{
    const int on = 1;
    ::setsockopt(descriptor, level, option, &on, sizeof on);
}

} // namespace

TlsFront::TlsFront(const TlsKeys& keys, const std::string& address, int port, int connections)
    : keys_(keys), most_(static_cast<size_t>(connections))
{
    try {
        listen(address, port);
    } catch (...) {
        stop();
        throw;
    }
}

TlsFront::~TlsFront()
{
    stop();
}

void TlsFront::listen(const std::string& address, int port)
{
    const auto refuse = [&](const std::string& why) {
        throw Error(ErrorKind::Usage,
                    "cannot listen on " + address + ":" + std::to_string(port) + ": " + why);
    };
    const std::optional<Place> place = placeOf(address, port);
    if (!place) refuse("that is no IPv4 address, nor \"[...]\" with one of IPv6");
    ending_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    listener_ = ::socket(place->any.sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (ending_ < 0 || listener_ < 0) refuse(std::strerror(errno));
    turnOn(listener_, SOL_SOCKET, SO_REUSEADDR);
    if (::bind(listener_, &place->any, place->size()) != 0 || ::listen(listener_, kBacklog) != 0) {
        refuse(std::strerror(errno));
    }
    port_ = ownPlace(listener_).port();
}

void TlsFront::start(int inside)
{
    inside_ = inside;
    thread_ = std::thread([this] { letIn(); });
}

std::optional<std::string> TlsFront::callerAt(int port) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    const auto found = callers_.find(port);
    if (found == callers_.end()) return {};
    return found->second;
}

// Those beyond what is served at once wait outside. False at the end.
bool TlsFront::awaitGuest()
{
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait(guard, [this] { return isClosed_ || served_ < most_; });
    guard.unlock();
    std::array<pollfd, 2> places{pollfd{listener_, POLLIN, 0}, pollfd{ending_, POLLIN, 0}};
    ::poll(places.data(), places.size(), -1);
    guard.lock();
    return !isClosed_;
}

void TlsFront::letIn()
{
    while (awaitGuest()) {
        Place place{};
        socklen_t size = sizeof place;
        const int client = ::accept4(listener_, &place.any, &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
        reap(false);
        if (client >= 0) {
            turnOn(client, IPPROTO_TCP, TCP_NODELAY);
            take(client, place.text());
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            std::this_thread::sleep_for(kBetweenTries);
        }
    }
}

void TlsFront::take(int client, const std::string& address)
{
    std::lock_guard<std::mutex> guard(mutex_);
    makeRoom();
    guests_.emplace_back();
    Guest& guest = guests_.back();
    guest.client = client;
    guest.address = address;
    try {
        guest.thread = std::thread([this, &guest] { serve(guest); });
    } catch (const std::system_error&) {
        guests_.pop_back();
        ::close(client);
    }
}

// The lock is held.
void TlsFront::makeRoom()
{
    const auto isGreeting = [](const Guest& guest) { return guest.isGreeting && !guest.isOver; };
    const auto count = std::count_if(guests_.begin(), guests_.end(), isGreeting);
    if (static_cast<size_t>(count) < kMostGreeting) return;
    Guest& first = *std::find_if(guests_.begin(), guests_.end(), isGreeting);
    ::shutdown(first.client, SHUT_RDWR);
    first.isGreeting = false;
}

void TlsFront::serve(Guest& guest)
{
    try {
        relay(guest);
    } catch (const std::bad_alloc&) {
        // One connection less.
    }
    std::lock_guard<std::mutex> guard(mutex_);
    ::close(guest.client);
    guest.isOver = true;
    changed_.notify_all();
}

void TlsFront::relay(Guest& guest)
{
    int client = -1;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        client = guest.client;
    }
    TlsRelay relay(keys_.connection(client), client, ending_);
    if (!relay.greet()) return;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        guest.isGreeting = false;
    }
    int port = 0;
    const int inside = connected(guest, &port);
    if (inside < 0) return;
    relay.pass(inside);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        callers_.erase(port);
        --served_;
    }
    changed_.notify_all();
    ::close(inside);
}

// Its port is known before anybody inside can see it.
int TlsFront::connected(const Guest& guest, int* port)
{
    const int inside = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (inside < 0) return -1;
    turnOn(inside, IPPROTO_TCP, TCP_NODELAY);
    ::setsockopt(inside, SOL_SOCKET, SO_RCVBUF, &kInsideBuffer, sizeof kInsideBuffer);
    const Place any = *placeOf("127.0.0.1", 0), there = *placeOf("127.0.0.1", inside_);
    if (::bind(inside, &any.any, any.size()) != 0) {
        ::close(inside);
        return -1;
    }
    *port = ownPlace(inside).port();
    {
        std::lock_guard<std::mutex> guard(mutex_);
        callers_[*port] = guest.address;
        ++served_;
    }
    (void)::connect(inside, &there.any, there.size()); // what becomes of it, the relay sees
    return inside;
}

void TlsFront::reap(bool all)
{
    std::list<Guest> gone;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        for (auto guest = guests_.begin(); guest != guests_.end();) {
            const auto next = std::next(guest);
            if (all || guest->isOver) gone.splice(gone.end(), guests_, guest);
            guest = next;
        }
    }
    for (Guest& guest : gone) {
        guest.thread.join();
    }
}

void TlsFront::close()
{
    if (listener_ < 0) return;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isClosed_ = true;
    }
    changed_.notify_all();
    ::shutdown(listener_, SHUT_RDWR); // wakes who waits for somebody
    if (thread_.joinable()) thread_.join();
    ::close(listener_);
    listener_ = -1;
}

void TlsFront::stop()
{
    close();
    if (ending_ < 0) return;
    ::eventfd_write(ending_, 1);
    reap(true);
    ::close(ending_);
    ending_ = -1;
}

} // namespace vxcam

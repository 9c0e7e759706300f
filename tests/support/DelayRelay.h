// Passes the bytes of TCP connections on, later.
#ifndef DELAYRELAY_H
#define DELAYRELAY_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

// Listens on loopback and serves one connection at a time; each direction takes `delay` longer, in
// order. Threads: built and destroyed on one; it runs five of its own.
class DelayRelay
{
public:
    DelayRelay(uint16_t target, std::chrono::milliseconds delay) : target_(target), delay_(delay)
    {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 4);
        socklen_t size = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        server_ = std::thread([this] { serve(); });
    }
    ~DelayRelay()
    {
        isStopping_ = true;
        server_.join();
        ::close(listener_);
    }
    DelayRelay(const DelayRelay&) = delete;
    DelayRelay& operator=(const DelayRelay&) = delete;

    uint16_t port() const { return port_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Piece {
        Clock::time_point due;
        std::vector<char> bytes; // none: the end
    };

    // One direction.
    struct Pipe {
        int from, to;
        std::chrono::milliseconds delay;
        std::mutex lock = {};
        std::condition_variable changed = {};
        std::deque<Piece> pieces = {};

        void read(const std::atomic<bool>& isStopping)
        {
            for (;;) {
                std::vector<char> bytes(65536);
                pollfd entry{from, POLLIN, 0};
                while (::poll(&entry, 1, 20) == 0 && !isStopping) {
                }
                const ssize_t count = isStopping ? 0 : ::recv(from, bytes.data(), bytes.size(), 0);
                bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
                const bool isEnd = bytes.empty();
                std::lock_guard<std::mutex> guard(lock);
                pieces.push_back({Clock::now() + delay, std::move(bytes)});
                changed.notify_all();
                if (isEnd) return;
            }
        }
        void write()
        {
            for (;;) {
                Piece piece;
                {
                    std::unique_lock<std::mutex> guard(lock);
                    changed.wait(guard, [this] { return !pieces.empty(); });
                    piece = std::move(pieces.front());
                    pieces.pop_front();
                }
                std::this_thread::sleep_until(piece.due);
                if (piece.bytes.empty()) break;
                size_t sent = 0;
                while (sent < piece.bytes.size()) {
                    const ssize_t count = ::send(to, piece.bytes.data() + sent,
                                                 piece.bytes.size() - sent, MSG_NOSIGNAL);
                    if (count <= 0) break;
                    sent += static_cast<size_t>(count);
                }
            }
            ::shutdown(to, SHUT_WR);
        }
    };

    static sockaddr_in loopback(uint16_t port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    void serve()
    {
        while (!isStopping_) {
            pollfd entry{listener_, POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0) continue;
            const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            const int camera = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_in address = loopback(target_);
            const int on = 1;
            ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            ::setsockopt(camera, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            if (::connect(camera, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                0) {
                pass(client, camera);
            }
            ::close(client);
            ::close(camera);
        }
    }

    void pass(int client, int camera)
    {
        Pipe there{client, camera, delay_}, back{camera, client, delay_};
        std::thread threads[] = {
            std::thread([&] { there.read(isStopping_); }), std::thread([&] { there.write(); }),
            std::thread([&] { back.read(isStopping_); }), std::thread([&] { back.write(); })};
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    const uint16_t target_;
    const std::chrono::milliseconds delay_;
    int listener_ = -1;
    uint16_t port_ = 0;
    std::atomic<bool> isStopping_{false};
    std::thread server_;
};

#endif

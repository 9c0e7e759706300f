// One connection that speaks TLS outside and none inside.
#ifndef VXCAMD_TLS_RELAY_H
#define VXCAMD_TLS_RELAY_H

#include "http/tls_keys.h"

#include <chrono>
#include <optional>
#include <vector>

namespace vxcam {

// Passes on what comes, until the inner side has ended, or one of them takes nothing for a while.
// How long a connection may be idle is up to who serves it.
//
// Threads: one. It owns none of the sockets, which do not wait.
class TlsRelay
{
public:
    // `ending`: can be read from when all is to end.
    TlsRelay(TlsConnection outside, int client, int ending);

    bool greet(); // false: the client speaks no TLS, or not in time
    void pass(int inside);

private:
    using Clock = std::chrono::steady_clock;

    // Bytes on their way.
    struct Way {
        explicit Way(size_t room) : bytes(room) {}

        bool isEmpty() const { return begin == end; }
        size_t size() const { return end - begin; }
        const char* data() const { return bytes.data() + begin; }
        void fill(size_t count)
        {
            begin = 0;
            end = count;
        }

        std::vector<char> bytes;
        size_t begin = 0, end = 0;
        bool isOver = false; // no more come
    };

    bool takeFromClient();
    bool giveToClient();
    bool mayTryAgain(int result); // of OpenSSL
    void takeFromInside(int inside);
    void giveToInside(int inside);
    bool await(int inside);
    bool look(short client, int inside, short events, Clock::time_point until);
    void refusePlain();
    void takeLeave();

    const TlsConnection outside_;
    const int client_, ending_;
    Way in_, out_;
    short wants_ = 0; // of the client's socket, before OpenSSL can go on
    bool hasMoved_ = false, isShut_ = false;
    Clock::time_point moved_;
    std::optional<Clock::time_point> end_; // told to end: until then
};

} // namespace vxcam

#endif

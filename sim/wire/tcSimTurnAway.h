// Tells a client that the camera is in use, and closes its connection so that the text arrives.
#ifndef TCSIMTURNAWAY_H
#define TCSIMTURNAWAY_H

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

// Threads: the server's.
// Owns: the connection, until the client has closed its side or 0.5 s have passed.
class tcSimTurnAway : public std::enable_shared_from_this<tcSimTurnAway>
{
public:
    explicit tcSimTurnAway(asio::ip::tcp::socket socket);

    void Begin();
    void End();
    bool Ended() const { return !mtSocket.is_open(); }

private:
    void Drain();

    asio::ip::tcp::socket mtSocket;
    asio::steady_timer mtTimer;
    std::vector<uint8_t> maMessage;
    std::array<uint8_t, 4096> maInput;
    size_t mnDrained = 0;
};

#endif

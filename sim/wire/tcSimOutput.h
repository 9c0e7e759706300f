// Everything that leaves the camera for its client passes here, in order.
#ifndef TCSIMOUTPUT_H
#define TCSIMOUTPUT_H

#include "tcSimBadLine.h"
#include "tcSimLedger.h"
#include "tcSimPicture.h"
#include "tcSimSentFrame.h"

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

// A picture on its way.
struct tsSimDelivery {
    std::shared_ptr<tcSimPicture> picture;
    bool lastFrame = false;
    uint32_t readout = 0, frame = 0;
    // Before packets leave: how many have left with these.
    std::function<void(uint32_t packets)> leaving;
    // When all have left; not after StopPicture.
    std::function<void()> done;
    std::shared_ptr<tcSimSentFrame> sent; // what of it has left a bad line
};

// Messages go out before the picture's next packets, at packet boundaries. Sequence numbers are
// stamped in the order of sending.
//
// Threads: one, the one that runs the socket.
class tcSimOutput
{
public:
    struct tsHooks {
        std::function<void()> drained; // Waiting has come down after something was written
        std::function<void()> failed;  // the connection is broken
        // Where there is a bad line, everything goes out through it from now on, piece by piece.
        std::function<tcSimBadLine*()> line;
    };

    // A packet rate of 0 stands for as fast as the socket takes them.
    tcSimOutput(asio::ip::tcp::socket& socket, tcSimLedger& ledger, double packetRate);

    // The owner is kept alive while something is being written.
    void Open(std::weak_ptr<void> owner, tsHooks hooks);
    void Close();

    // Given to the socket, without those that went through a bad line.
    uint64_t BytesSent() const { return mnBytesSent; }

    // The payload is copied. The message is sent `times` times.
    void Send(uint32_t id, const void* payload, size_t bytes, uint32_t times = 1);
    // Bytes of the messages, each counted once, that wait to be sent.
    size_t Waiting() const { return mnWaiting; }

    // For the pictures to come.
    void SetPacketRate(double packetRate) { mnPacketRate = packetRate; }
    void StartPicture(tsSimDelivery delivery);
    void StopPicture(); // at the next packet boundary

private:
    struct tsQueued {
        std::vector<uint8_t> bytes;
        uint32_t times;
    };
    using tpClock = std::chrono::steady_clock;

    void Pump();
    void TakeMessages();
    uint32_t PacketsDue();
    void TakePackets();
    tsSimUnit UnitOf(bool isPacket) const;
    void Write(std::shared_ptr<void> keep);
    void Written(const std::error_code& error, size_t bytes);
    tcSimBadLine::tpLeaving PacketLeaving();
    void TellWhatLeft();
    void Stamp(uint8_t* message);

    asio::ip::tcp::socket& mtSocket;
    tcSimLedger& mtLedger;
    tcSimBadLine* mpLine = nullptr;
    uint64_t mnBytesSent = 0;
    asio::steady_timer mtPacer;
    double mnPacketRate;
    std::weak_ptr<void> mpOwner;
    tsHooks mtHooks;
    std::deque<tsQueued> maQueue;
    size_t mnWaiting = 0;
    uint8_t mnSequence = 0;

    tsSimDelivery mtDelivery;
    uint32_t mnNextPacket = 0;
    tpClock::time_point mtPacketDue;

    // What is being written.
    bool mbOpen = false, mbWriting = false;
    std::vector<uint8_t> maMessages;
    std::shared_ptr<tcSimPicture> mpWritten;
    std::vector<asio::const_buffer> maBuffers;
};

#endif

// Answers those who look for cameras on the network.
#ifndef TCSIMDISCOVERY_H
#define TCSIMDISCOVERY_H

#include "tcSimFaults.h"
#include "tcSimLedger.h"

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <array>
#include <cstdint>

// Request and reply, little-endian words as on the wire.
struct tsSimDiscoveryRequest {
    uint32_t First, Second;
};
struct tsSimDiscoveryReply {
    uint32_t Marker, Echo;
    uint16_t Port;
    uint16_t Reserved[3];
    uint32_t SerialNumber;
    uint32_t CameraValue;
};
static_assert(sizeof(tsSimDiscoveryRequest) == 8 && sizeof(tsSimDiscoveryReply) == 24, "wire");

inline constexpr uint32_t gnSimDiscoveryFirst = 0x0CCD0CCD;
inline constexpr uint32_t gnSimDiscoverySecond = 0xBEEDACCD;

// Threads: the server's.
// Owns: the sockets. Several cameras on one host may share the port.
class tcSimDiscovery
{
public:
    // Replies come from the camera's own address, if it listens on one only. Throws
    // std::system_error when the port cannot be had.
    tcSimDiscovery(asio::io_context& io, tcSimLedger& ledger, uint16_t port,
                   const asio::ip::address_v4& address, const tsSimDiscoveryReply& reply,
                   tcSimFaults& faults);

    uint16_t Port() const { return mnPort; }
    void Close();

private:
    void Wait();
    void Reply();
    void Send(const tsSimDiscoveryReply& reply);

    asio::ip::udp::socket mtSocket, mtReplySocket;
    tcSimLedger& mtLedger;
    tcSimFaults& mtFaults;
    uint16_t mnPort = 0;
    const tsSimDiscoveryReply mtReply;
    asio::ip::udp::endpoint mtSender;
    std::array<uint8_t, 64> maInput;
};

#endif

#include "tcSimDiscovery.h"

#include <asio/buffer.hpp>

#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>

tcSimDiscovery::tcSimDiscovery(asio::io_context& io, tcSimLedger& ledger, uint16_t port,
                               const asio::ip::address_v4& address,
                               const tsSimDiscoveryReply& reply, tcSimFaults& faults)
    : mtSocket(io), mtReplySocket(io, {address, 0}), mtLedger(ledger), mtFaults(faults),
      mtReply(reply)
{
    fcntl(mtReplySocket.native_handle(), F_SETFD, FD_CLOEXEC);
    mtSocket.open(asio::ip::udp::v4());
    mtSocket.set_option(asio::socket_base::reuse_address(true));
    fcntl(mtSocket.native_handle(), F_SETFD, FD_CLOEXEC);
    const int on = 1;
    setsockopt(mtSocket.native_handle(), SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
    // Only a socket without an address of its own hears broadcasts.
    mtSocket.bind({asio::ip::address_v4::any(), port});
    mnPort = mtSocket.local_endpoint().port();
    Wait();
}

void tcSimDiscovery::Close()
{
    std::error_code ignored;
    mtSocket.close(ignored);
    mtReplySocket.close(ignored);
}

void tcSimDiscovery::Wait()
{
    mtSocket.async_receive_from(
        asio::buffer(maInput), mtSender, [this](const std::error_code& error, size_t bytes) {
            if (!mtSocket.is_open() || error == asio::error::operation_aborted) return;
            tsSimDiscoveryRequest request{};
            if (!error && bytes == sizeof request) {
                std::memcpy(&request, maInput.data(), sizeof request);
            }
            if (request.First == gnSimDiscoveryFirst && request.Second == gnSimDiscoverySecond) {
                Reply();
            }
            Wait();
        });
}

void tcSimDiscovery::Reply()
{
    Send(mtReply);
    mtLedger.Raise(teSimEvent::eTrace, "discovered by " + mtSender.address().to_string());
    const tpSimFault conflict = mtFaults.Conflict();
    if (!conflict) return;
    mtLedger.Strikes(*conflict);
    tsSimDiscoveryReply other = mtReply;
    other.Port = static_cast<uint16_t>(conflict->port >= 0 ? conflict->port : other.Port + 1);
    other.SerialNumber = static_cast<uint32_t>(
        conflict->serial >= 0 ? conflict->serial : int64_t{other.SerialNumber} + 1);
    Send(other);
}

void tcSimDiscovery::Send(const tsSimDiscoveryReply& reply)
{
    std::error_code ignored;
    mtLedger.Count(&tsSimStatistics::discoveryReplies);
    mtReplySocket.send_to(asio::buffer(&reply, sizeof reply), mtSender, 0, ignored);
}

#include "tcSimTurnAway.h"

#include "tcSimClient.h"

#include <asio/write.hpp>

#include <chrono>
#include <cstring>
#include <utility>

namespace {

constexpr char gsInUse[] = "the camera is in use by another client";
constexpr std::chrono::milliseconds gtPatience{500};
constexpr size_t gnMostDrained = 1024 * 1024;

} // namespace

tcSimTurnAway::tcSimTurnAway(asio::ip::tcp::socket socket)
    : mtSocket(std::move(socket)), mtTimer(mtSocket.get_executor())
{
    tsMsgHeader header{};
    header.Magic = gnMessageMagic;
    header.Length = sizeof(tsCameraErrorMsg) + sizeof gsInUse;
    header.IDD = gnInterfaceVersion;
    header.MsgId = ansCameraError.id & 0xFFFFFF;
    const tsCameraErrorMsg error{eSimErrorBusy, eSimInUse};
    maMessage.resize(sizeof header + header.Length);
    std::memcpy(maMessage.data(), &header, sizeof header);
    std::memcpy(maMessage.data() + sizeof header, &error, sizeof error);
    std::memcpy(maMessage.data() + sizeof header + sizeof error, gsInUse, sizeof gsInUse);
}

void tcSimTurnAway::Begin()
{
    mtTimer.expires_after(gtPatience);
    mtTimer.async_wait([this, keep = shared_from_this()](const std::error_code& error) {
        if (!error) End();
    });
    asio::async_write(mtSocket, asio::buffer(maMessage),
                      [this, keep = shared_from_this()](const std::error_code& error, size_t) {
                          std::error_code ignored;
                          if (!error) mtSocket.shutdown(mtSocket.shutdown_send, ignored);
                          Drain();
                      });
}

// A close with unread bytes would be a reset and could overtake the text.
void tcSimTurnAway::Drain()
{
    if (Ended()) return;
    mtSocket.async_read_some(
        asio::buffer(maInput),
        [this, keep = shared_from_this()](const std::error_code& error, size_t bytes) {
            mnDrained += bytes;
            if (error || mnDrained > gnMostDrained)
                End();
            else
                Drain();
        });
}

void tcSimTurnAway::End()
{
    std::error_code ignored;
    mtTimer.cancel();
    mtSocket.close(ignored);
}

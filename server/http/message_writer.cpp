#include "http/message_writer.h"

#include <civetweb.h>

#include <array>

namespace vxcam {

bool MessageWriter::text(const std::string& message)
{
    return write(MG_WEBSOCKET_OPCODE_TEXT, message.data(), message.size());
}

bool MessageWriter::binary(const void* data, size_t size)
{
    return write(MG_WEBSOCKET_OPCODE_BINARY, static_cast<const char*>(data), size);
}

void MessageWriter::end()
{
    constexpr std::array<char, 2> kGoingAway{0x03, static_cast<char>(0xE9)};
    write(MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE, kGoingAway.data(), kGoingAway.size());
}

// The web library frees a connection that is closed before somebody reads from it, under those who
// are about to; that it is read from is known when something came.
void MessageWriter::cut()
{
    isCut_ = true;
    if (isRead_) mg_close_connection(connection_);
}

bool MessageWriter::isReadOn()
{
    isRead_ = true;
    return !isCut_;
}

bool MessageWriter::write(int opcode, const char* data, size_t size)
{
    return mg_websocket_write(connection_, opcode, data, size) > 0;
}

} // namespace vxcam

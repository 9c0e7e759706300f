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

// Nothing more is read, either.
void MessageWriter::end(int code)
{
    isCut_ = true;
    const std::array<char, 2> bytes{static_cast<char>(code >> 8), static_cast<char>(code)};
    write(MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE, bytes.data(), code == 0 ? 0 : bytes.size());
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
    std::lock_guard<std::mutex> guard(mutex_);
    if (isClosed_) return false;
    isClosed_ = opcode == MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE;
    return mg_websocket_write(connection_, opcode, data, size) > 0;
}

} // namespace vxcam

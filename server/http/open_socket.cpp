#include "http/open_socket.h"

#include <civetweb.h>

namespace vxcam {

namespace {

// Of the first byte of a frame.
constexpr int kIsLast = 0x80, kReserved = 0x70, kOpcode = 0x0F;

constexpr int kProtocolError = 1002, kTooBig = 1009;

// To the one of the client, which may come without a code.
int closeCodeFor(const char* data, size_t size)
{
    constexpr int kLeast = 1000, kMost = 4999, kNone = 1005, kAbnormal = 1006, kTls = 1015;
    if (size < 2) return 0;
    const int code = static_cast<unsigned char>(data[0]) << 8 | static_cast<unsigned char>(data[1]);
    const bool isReserved = code == kNone || code == kAbnormal || code == kTls;
    return code < kLeast || code > kMost || isReserved ? kProtocolError : code;
}

} // namespace

bool OpenSocket::fail(int code)
{
    writer.end(code);
    return false;
}

bool OpenSocket::take(int head, const char* data, size_t size)
{
    if (!socket) return false;
    const int opcode = head & kOpcode;
    if (opcode == MG_WEBSOCKET_OPCODE_CONNECTION_CLOSE) return fail(closeCodeFor(data, size));
    if (opcode == MG_WEBSOCKET_OPCODE_PING || opcode == MG_WEBSOCKET_OPCODE_PONG) {
        return writer.isReadOn();
    }
    const bool isFirst = opcode == MG_WEBSOCKET_OPCODE_TEXT || opcode == MG_WEBSOCKET_OPCODE_BINARY;
    const bool isKnown = isFirst || opcode == MG_WEBSOCKET_OPCODE_CONTINUATION;
    if (!isKnown || isFirst == isBegun_ || (head & kReserved) != 0) return fail(kProtocolError);
    if (isFirst) {
        isText_ = opcode == MG_WEBSOCKET_OPCODE_TEXT;
        message_.clear();
    }
    isBegun_ = (head & kIsLast) == 0;
    if (message_.size() + size > WebServer::kMostBody) return fail(kTooBig);
    message_.append(data, size);
    if (!isBegun_) socket->message(isText_ ? message_ : ""); // bytes say nothing
    return writer.isReadOn();
}

} // namespace vxcam

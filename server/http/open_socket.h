// WebSockets of clients.
#ifndef VXCAMD_OPEN_SOCKET_H
#define VXCAMD_OPEN_SOCKET_H

#include "http/message_writer.h"
#include "http/web_server.h"

#include <cstddef>
#include <memory>
#include <string>

namespace vxcam {

// A connection on which messages come, in pieces as the client likes.
//
// Threads: take() on the one that reads.
class OpenSocket
{
public:
    explicit OpenSocket(mg_connection* connection) : writer(connection) {}

    // A frame of the protocol: the first byte of its head, and what it carries. False: the
    // connection ends.
    bool take(int head, const char* data, size_t size);

    MessageWriter writer;
    std::unique_ptr<Socket> socket; // may be null: then nothing is taken

private:
    bool fail(int code);

    std::string message_; // what came of it
    bool isBegun_ = false, isText_ = false;
};

} // namespace vxcam

#endif

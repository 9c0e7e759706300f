// Messages to a browser.
#ifndef VXCAMD_MESSAGE_WRITER_H
#define VXCAMD_MESSAGE_WRITER_H

#include "http/web_server.h"

#include <atomic>
#include <mutex>

struct mg_connection; // of civetweb

namespace vxcam {

// Nothing follows what closes it. Threads: any. Locks: its own, while it sends. It does not own the
// connection.
class MessageWriter : public SocketWriter
{
public:
    explicit MessageWriter(mg_connection* connection) : connection_(connection) {}

    bool text(const std::string& message) override;
    bool binary(const void* data, size_t size) override;
    void end(int code) override;
    void cut() override;

    bool isReadOn(); // on the thread that reads: something came: whether more shall be read

private:
    bool write(int opcode, const char* data, size_t size);

    mg_connection* connection_;
    std::mutex mutex_;
    bool isClosed_ = false;
    std::atomic<bool> isRead_{false}, isCut_{false};
};

} // namespace vxcam

#endif

#include "tcLogConsumer.h"

#include "HSocket.h"
#include "appendstream.h"
#include "lifetime.h"
#include "record.h"
#include "vxhoststreams.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr int nBlockLines = 256; // of a buffer, that memory is taken for at a time

// A name of a network device, which is no local address, picks the device to send through.
void SendThrough(HSocket& socket, char const* interface)
{
    if (inet_addr(interface) != INADDR_NONE) return;
    const auto size = static_cast<socklen_t>(strnlen(interface, IFNAMSIZ));
    (void)setsockopt(socket.GetFD(), SOL_SOCKET, SO_BINDTODEVICE, interface, size);
}

class tcMutexGuard
{
public:
    explicit tcMutexGuard(pthread_mutex_t& mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~tcMutexGuard() { pthread_mutex_unlock(&mMutex); }
    tcMutexGuard(const tcMutexGuard&) = delete;
    tcMutexGuard& operator=(const tcMutexGuard&) = delete;

private:
    pthread_mutex_t& mMutex;
};

} // namespace

tcLogConsumer::tcLogConsumer() = default;

tcLogConsumer::~tcLogConsumer()
{
    vx::Forget(this);
}

char const* tcLogConsumer::Options() const
{
    return msOptions.c_str();
}

void tcLogConsumer::Dump(std::ostream&, tcLogConsumer*) const {}

tcLogNull::tcLogNull()
{
    msDescription = "NULL Log Device";
}

tcLogNull::~tcLogNull() = default;

void tcLogNull::Output(tcLogEvent const&) {}

char const* tcLogNull::TypeName() const
{
    return "NULL";
}

tcLogStream::tcLogStream(std::ostream& os) : mStream(os), mpLock(vx::LockOf(os))
{
    msDescription = "Log to a stream";
    msOptions = ",cout";
}

tcLogStream::~tcLogStream() = default;

void tcLogStream::Output(tcLogEvent const& event)
{
    char line[vx::nLineSize];
    const size_t length = vx::FormatRecord(event, line);
    vx::Print(mStream, *mpLock, {line, length});
}

char const* tcLogStream::TypeName() const
{
    return "STREAM";
}

tcLogFile::tcLogFile(char const* path)
    : tcLogFile(path ? path : "", std::make_unique<tcStream>(path))
{}

tcLogFile::tcLogFile(char const* path, std::unique_ptr<tcStream> stream)
    : tcLogStream(*stream), msFileName(path), mpFileStream(std::move(stream))
{
    if (mpFileStream->IsOpen()) {
        msDescription = msFileName;
        msOptions = "," + msFileName;
    } else {
        msOptions = ",Error - No file";
    }
}

tcLogFile::~tcLogFile() = default;

// One write, which nobody waits for.
void tcLogFile::Output(tcLogEvent const& event)
{
    char line[vx::nLineSize];
    const size_t length = vx::FormatRecord(event, line);
    mpFileStream->rdbuf()->sputn(line, static_cast<std::streamsize>(length));
}

char const* tcLogFile::TypeName() const
{
    return "FILE";
}

tcLogBuffer::tcLogBuffer(int lines)
    : mnLines(std::clamp(lines, 1, nMaximumLines)),
      maBlocks(new std::unique_ptr<tcLogEvent[]>[(mnLines - 1) / nBlockLines + 1]), mnNext(0)
{
    tcLock::InitializeLock(mhLock);
    const std::string count = std::to_string(mnLines);
    msDescription = count + " Line Buffer";
    msOptions = "," + count;
}

tcLogBuffer::~tcLogBuffer()
{
    pthread_mutex_destroy(&mhLock);
}

// Null where nothing has come to; with `makesRoom` only for want of memory.
tcLogEvent* tcLogBuffer::Slot(int index, bool makesRoom) const
{
    const int first = index - index % nBlockLines;
    std::unique_ptr<tcLogEvent[]>& block = maBlocks[first / nBlockLines];
    if (!block && makesRoom)
        block.reset(new (std::nothrow) tcLogEvent[std::min(nBlockLines, mnLines - first)]());
    return block ? &block[index - first] : nullptr;
}

void tcLogBuffer::Output(tcLogEvent const& event)
{
    const tcMutexGuard guard(mhLock);
    tcLogEvent* slot = Slot(mnNext, true);
    if (!slot) return;
    *slot = event;
    mnNext = (mnNext + 1) % mnLines;
}

char const* tcLogBuffer::TypeName() const
{
    return "BUFFER";
}

void tcLogBuffer::Dump(std::ostream& os, tcLogConsumer* out) const
{
    tcLogStream stream(os);
    if (!out) out = &stream;
    for (int i = 0; i < mnLines; ++i) {
        tcLogEvent event{};
        {
            const tcMutexGuard guard(mhLock);
            if (const tcLogEvent* slot = Slot(i, false)) event = *slot;
        }
        if (event.seconds != 0) out->Output(event);
    }
}

std::ostream& operator<<(std::ostream& os, tcLogBuffer const& buffer)
{
    buffer.Dump(os, nullptr);
    return os;
}

tcLogUdp::tcLogUdp(char const* address, unsigned short port, bool binary, char const* interface)
    : mpSocket(new HSocket), mpDestination(new HInetAddr(address ? address : mpDefaultAddr, port)),
      mbBinary(binary)
{
    mpSocket->Create(0, SOCK_DGRAM, interface);
    mpSocket->SetAsBroadcasting();

    const std::string host = address ? address : mpDefaultAddr;
    const std::string number = std::to_string(port);
    msDescription = std::string("UDP/") + (binary ? "bin" : "txt") + " to " + host + ":" + number;
    msOptions = "," + host + "," + number;
    if (!interface) return;
    SendThrough(*mpSocket, interface);
    msDescription += std::string(" via ") + interface;
    msOptions += std::string(",") + interface;
}

tcLogUdp::~tcLogUdp() = default;

void tcLogUdp::Output(tcLogEvent const& event)
{
    if (mbBinary) {
        mpSocket->SendTo(reinterpret_cast<const char*>(&event), sizeof event, *mpDestination);
        return;
    }
    char line[vx::nLineSize];
    const size_t length = vx::FormatRecord(event, line);
    mpSocket->SendTo(line, static_cast<int>(length), *mpDestination);
}

char const* tcLogUdp::TypeName() const
{
    return "UDP";
}

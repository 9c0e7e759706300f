// Faults of more than the bytes on the wire, as a client sees them.
#include "tcSimClient.h"

#include <sys/socket.h>

#include <string>

namespace {

constexpr int gnDeafBuffer = 4096; // bytes; what a camera that does not read takes all the same
constexpr int gnUsualBuffer = 1024 * 1024;

std::chrono::steady_clock::duration Wall(double seconds)
{
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

void SetReceiveBuffer(int descriptor, int bytes)
{
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

} // namespace

void tcSimClient::Suffer(const tsSimFault& fault)
{
    switch (fault.kind) {
    case teSimFault::eClose:
    case teSimFault::eCloseHeader:
    case teSimFault::eClosePayload:
        return End();
    case teSimFault::eReset:
        return Break();
    case teSimFault::eStopReading:
        return StopReading(fault.seconds);
    case teSimFault::eCoolerFailure:
        Camera().SetTime(mtContext.cameraTime());
        return Camera().FailCooler();
    case teSimFault::eErrorStorm:
        for (int64_t i = 1; i <= fault.count; ++i) {
            Error(static_cast<uint8_t>(fault.code), static_cast<uint8_t>(fault.subcode),
                  "error " + std::to_string(i) + " of " + std::to_string(fault.count));
        }
        return;
    case teSimFault::eHeartbeatStop:
        mtHeartBeatsAgain = fault.seconds > 0
                                ? std::chrono::steady_clock::now() + Wall(fault.seconds)
                                : std::chrono::steady_clock::time_point::max();
        return;
    case teSimFault::eReboot:
    case teSimFault::eRebootResized:
        return mtContext.reboot(fault);
    default:
        return;
    }
}

void tcSimClient::Relieve(teSimFault kind)
{
    if (mpLine) mpLine->Relieve(kind);
    if (kind == teSimFault::eHeartbeatStop) mtHeartBeatsAgain = {};
    if (kind == teSimFault::eStopReading && mbDeaf) ReadAgain();
}

// From now on all goes out through a line that is not as it should be.
tcSimBadLine* tcSimClient::BadLine()
{
    if (!mpLine && mtContext.faults.Any()) {
        mpLine =
            std::make_unique<tcSimBadLine>(mtSocket, mtContext.faults, mtContext.ledger, mtBegin);
        mpLine->Open(weak_from_this(), mtOutput.BytesSent(),
                     {[this](const tsSimFault& fault) { Suffer(fault); }, [this] { End(); }});
    }
    return mpLine.get();
}

void tcSimClient::FaultsCome()
{
    if (mbEnded) return;
    if (tcSimBadLine* line = BadLine()) line->FaultsCome();
}

void tcSimClient::ReadAgain()
{
    mbDeaf = false;
    mtDeaf.cancel();
    SetReceiveBuffer(mtSocket.native_handle(), gnUsualBuffer);
    Read();
}

bool tcSimClient::HeartBeats() const
{
    return std::chrono::steady_clock::now() >= mtHeartBeatsAgain;
}

// What is being read already is still taken.
void tcSimClient::StopReading(double seconds)
{
    mbDeaf = true;
    SetReceiveBuffer(mtSocket.native_handle(), gnDeafBuffer);
    if (seconds <= 0) return;
    mtDeaf.expires_after(Wall(seconds));
    mtDeaf.async_wait([this, keep = shared_from_this()](const std::error_code& error) {
        if (!error && !mbEnded) ReadAgain();
    });
}

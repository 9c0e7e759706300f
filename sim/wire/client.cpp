// A client's connection: reading, answering, errors, heartbeats, no-ops.
#include "tcSimClient.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <utility>

namespace {

constexpr size_t gnMostWaiting = 1024 * 1024; // bytes of answers not taken before reading pauses
constexpr double gnTuningStep = 0.2; // seconds until a changed time between heartbeats is noticed
constexpr size_t gnMostWaitingAlive = 64 * 1024; // ... before heartbeats and no-ops are left out
constexpr size_t gnMostLeftover = 64 * 1024 * 1024;
constexpr int gnIdleSeconds = 10, gnProbeSeconds = 5, gnProbes = 3;

std::string Hex(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

void KeepAlive(asio::ip::tcp::socket& socket)
{
    const int descriptor = socket.native_handle(), on = 1;
    const unsigned silence = (gnIdleSeconds + gnProbes * gnProbeSeconds) * 1000;
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, &gnIdleSeconds, sizeof gnIdleSeconds);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, &gnProbeSeconds, sizeof gnProbeSeconds);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPCNT, &gnProbes, sizeof gnProbes);
    setsockopt(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &silence, sizeof silence);
}

} // namespace

std::chrono::steady_clock::duration tsSimContext::WallTime(double cameraSeconds) const
{
    constexpr double longest = 1e8; // seconds
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::clamp(cameraSeconds / options.timeScale, 0.0, longest)));
}

tsSimTunables tsSimContext::Tunables() const
{
    if (options.tunables) return options.tunables();
    tsSimTunables fixed;
    fixed.ambient = options.ambient;
    fixed.heartbeatSeconds = options.heartbeatSeconds;
    fixed.lineRate = options.lineRate;
    fixed.defocus = options.defocus;
    fixed.seeing = options.seeing;
    fixed.driftRows = options.driftRows;
    fixed.driftColumns = options.driftColumns;
    return fixed;
}

bool operator==(const tsSimTunables& first, const tsSimTunables& second)
{
    return first.ambient == second.ambient && first.heartbeatSeconds == second.heartbeatSeconds &&
           first.hotPixels == second.hotPixels && first.lineRate == second.lineRate &&
           first.readNoise == second.readNoise && first.sky == second.sky &&
           first.stars == second.stars && first.defocus == second.defocus &&
           first.seeing == second.seeing && first.driftRows == second.driftRows &&
           first.driftColumns == second.driftColumns;
}

tcSimClient::tcSimClient(asio::ip::tcp::socket socket, tsSimContext& context, std::string name,
                         std::function<void()> left)
    : mtSocket(std::move(socket)), mtContext(context), msName(std::move(name)),
      mpLeft(std::move(left)),
      mtReader(
          [this](const tsMsgHeader& header, const uint8_t* payload) { OnMessage(header, payload); },
          [this](const tsMsgHeader& header) { OnTooLong(header); }),
      mtOutput(mtSocket, context.ledger, context.options.lineRate),
      mtHeartBeatBefore(std::chrono::steady_clock::now()), mtHeartBeat(context.io),
      mtNoOp(context.io), mtShutter(context.io), mtDeaf(context.io)
{}

void tcSimClient::Begin()
{
    const std::shared_ptr<tcSimClient> keep = shared_from_this();
    std::error_code ignored;
    mtSocket.set_option(asio::ip::tcp::no_delay(true), ignored);
    mtSocket.non_blocking(true, ignored);
    KeepAlive(mtSocket);
    mtContext.faults.ConnectionBegins();
    mtOutput.Open(weak_from_this(),
                  {[this] { Read(); }, [this] { End(); }, [this] { return BadLine(); }});
    mtContext.ledger.Count(&tsSimStatistics::connections);
    mtContext.ledger.SetConnected(true);
    mtContext.ledger.Raise(teSimEvent::eConnected, "client " + msName + " connected");
    FaultsCome(); // before anything is read
    Read();
    HeartBeatLater();
}

void tcSimClient::End()
{
    if (mbEnded) return;
    Leave();
    std::error_code ignored;
    mtSocket.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    // Unread bytes would turn the close into a reset, which may destroy what is still on its way.
    size_t left = gnMostLeftover;
    for (std::error_code error; !error && left > 0;) {
        left -= std::min(left, mtSocket.read_some(asio::buffer(maInput), error));
    }
    mtSocket.close(ignored);
    mpLeft();
}

void tcSimClient::Break()
{
    if (mbEnded) return;
    Leave();
    std::error_code ignored;
    mtSocket.set_option(asio::socket_base::linger(true, 0), ignored);
    mtSocket.close(ignored);
    mpLeft();
}

// All there is to the end of a client but the end of its connection.
void tcSimClient::Leave()
{
    mbEnded = true;
    StopReadout("the client left");
    mtOutput.Close();
    if (mpLine) mpLine->Close();
    mtHeartBeat.cancel();
    mtNoOp.cancel();
    mtDeaf.cancel();
    mtContext.ledger.SetConnected(false);
    mtContext.ledger.Raise(teSimEvent::eDisconnected, "client " + msName + " disconnected");
}

bool tcSimClient::HasLeft()
{
    if (mbEnded) return true;
    pollfd state{mtSocket.native_handle(), POLLRDHUP, 0};
    if (poll(&state, 1, 0) <= 0 || !(state.revents & (POLLRDHUP | POLLHUP | POLLERR))) return false;
    size_t left = gnMostLeftover;
    std::error_code error;
    while (left > 0 && !mbEnded) {
        size_t bytes = mtSocket.read_some(asio::buffer(maInput), error);
        if (error) break;
        mtContext.ledger.Count(&tsSimStatistics::bytesReceived, bytes);
        mtReader.Add(maInput.data(), bytes);
        left -= std::min(left, bytes);
    }
    End();
    return true;
}

void tcSimClient::Read()
{
    if (mbEnded || mbReading || mbDeaf || mtOutput.Waiting() > gnMostWaiting) return;
    mbReading = true;
    mtSocket.async_read_some(
        asio::buffer(maInput),
        [this, keep = shared_from_this()](const std::error_code& error, size_t bytes) {
            mbReading = false;
            if (mbEnded) return;
            if (error) {
                End();
                return;
            }
            const uint64_t skipped = mtReader.SkippedBytes();
            mtContext.ledger.Count(&tsSimStatistics::bytesReceived, bytes);
            mtReader.Add(maInput.data(), bytes);
            if (uint64_t more = mtReader.SkippedBytes() - skipped) {
                mtContext.ledger.Count(&tsSimStatistics::skippedBytes, more);
                Trace("skipped " + std::to_string(more) + " bytes that belong to no message");
            }
            Read();
        });
}

void tcSimClient::OnTooLong(const tsMsgHeader& header)
{
    ProtocolError(eSimTooLong, "message " + Hex(header.MsgId) + " of " +
                                   std::to_string(header.Length) + " bytes is too long");
}

void tcSimClient::OnMessage(const tsMsgHeader& header, const uint8_t* payload)
{
    if (mbEnded) return;
    const uint32_t id = header.MsgId;
    const uint16_t length = header.Length;
    if (header.IDD != gnInterfaceVersion) {
        ProtocolError(eSimWrongVersion, "message " + Hex(id) + " has interface version " +
                                            std::to_string(header.IDD) + ", expected " +
                                            std::to_string(gnInterfaceVersion));
        return;
    }
    if (id >= gnFirstUserDefinedId) {
        mtContext.ledger.Count(&tsSimStatistics::commands);
        Trace("user-defined message " + Hex(id) + ", " + std::to_string(length) + " bytes");
        mtOutput.Send(id, payload, length);
        return;
    }
    const tsCommandRow* row = FindCommand(id);
    if (!row) {
        ProtocolError(eSimUnknownId, "message " + Hex(id) + " is unknown");
        return;
    }
    if (length < row->shortest || length > row->longest) {
        ProtocolError(eSimWrongLength, "message " + Hex(id) + " " + row->name + " of " +
                                           std::to_string(length) + " bytes has a wrong length");
        return;
    }
    mtContext.ledger.Count(&tsSimStatistics::commands);
    Trace(std::string(row->name) + ", " + std::to_string(length) + " bytes");
    Camera().SetTime(mtContext.cameraTime());
    HandleSimCommand(*this, {id, length, payload});
    Shoot();
}

void tcSimClient::ProtocolError(teSimProtocolError error, const std::string& text)
{
    mtContext.ledger.Count(&tsSimStatistics::protocolErrors);
    Trace("ignored: " + text);
    Error(eSimErrorProtocol, error, text);
}

void tcSimClient::Trace(const std::string& text)
{
    if (mtContext.ledger.Traces()) mtContext.ledger.Raise(teSimEvent::eTrace, text);
}

void tcSimClient::Answer(const tsAnswer& answer, const void* payload, size_t bytes, uint32_t times)
{
    mtOutput.Send(answer.id, payload, bytes, times);
}

void tcSimClient::Error(uint8_t code, uint8_t subCode, const std::string& text)
{
    std::vector<uint8_t> payload(sizeof(tsCameraErrorMsg) + text.size() + 1);
    payload[offsetof(tsCameraErrorMsg, Code)] = code;
    payload[offsetof(tsCameraErrorMsg, SubCode)] = subCode;
    std::memcpy(payload.data() + sizeof(tsCameraErrorMsg), text.data(), text.size());
    mtContext.ledger.Count(&tsSimStatistics::cameraErrors);
    mtContext.ledger.Raise(teSimEvent::eError, text);
    Answer(ansCameraError, payload.data(), payload.size());
}

void tcSimClient::Judge(const tsSimRequest& request, const tsSimRefusal& refusal)
{
    if (refusal.empty()) return;
    const tsCommandRow* row = FindCommand(request.id);
    Error(eSimErrorRefused, static_cast<uint8_t>(request.id),
          std::string(row ? row->name : "") + " refused: " + refusal);
}

void tcSimClient::Reset(const tsSimRequest&)
{
    StopReadout("reset");
    mnNoOps = 0;
    mtNoOp.cancel();
    Camera().Reset();
}

// Of an answer, the first field tells how many data bytes arrived.
void tcSimClient::TestLink(const tsSimRequest& request)
{
    tsLinkTestMsg message{};
    std::memcpy(&message, request.payload, std::min<size_t>(request.length, sizeof message));
    const uint16_t data = static_cast<uint16_t>(request.length - gnLinkTestHeadBytes);
    if (message.DataLength != data) {
        Judge(request, "the data length told is not the data's");
        return;
    }
    const uint16_t wanted = message.Answers;
    message.Answers = data;
    Answer(ansLinkTest, &message, request.length, wanted);
}

void tcSimClient::EnableNoOps(const tsSimRequest& request)
{
    tsNoOpsMsg message;
    std::memcpy(&message, request.payload, sizeof message);
    constexpr uint32_t longest = 86400000;
    mnNoOps = message.Count;
    mtNoOpInterval =
        std::chrono::milliseconds(std::clamp<uint32_t>(message.IntervalMs, 1, longest));
    mtNoOp.cancel();
    NoOpLater();
}

// Silence on a connection that takes nothing: what waits there is life sign enough.
void tcSimClient::NoOpLater()
{
    if (mnNoOps == 0 || mbEnded) return;
    mtNoOp.expires_after(mtNoOpInterval);
    mtNoOp.async_wait([this, keep = shared_from_this()](const std::error_code& error) {
        if (error || mbEnded || mnNoOps == 0) return;
        --mnNoOps;
        if (mtOutput.Waiting() < gnMostWaitingAlive) {
            mtContext.ledger.Count(&tsSimStatistics::noOps);
            Answer(ansIgnored68, nullptr, 0);
        }
        NoOpLater();
    });
}

// A time between heartbeats that may change is looked at more often.
void tcSimClient::HeartBeatLater()
{
    using tpSeconds = std::chrono::duration<double>;
    using tpWait = std::chrono::steady_clock::duration;
    const double period = mtContext.Tunables().heartbeatSeconds;
    const bool isFixed = !mtContext.options.tunables;
    if (mbEnded || (isFixed && period <= 0)) return;
    const auto now = std::chrono::steady_clock::now();
    const tpSeconds left = mtHeartBeatBefore + tpSeconds(period) - now;
    if (period > 0 && left.count() <= 0) HeartBeatNow();
    const double wait = period > 0 && left.count() > 0 ? left.count() : period;
    const tpSeconds step(isFixed || (wait > 0 && wait < gnTuningStep) ? wait : gnTuningStep);
    mtHeartBeat.expires_after(std::chrono::ceil<tpWait>(step));
    mtHeartBeat.async_wait([this, keep = shared_from_this()](const std::error_code& error) {
        if (!error && !mbEnded) HeartBeatLater();
    });
}

void tcSimClient::HeartBeatNow()
{
    mtHeartBeatBefore = std::chrono::steady_clock::now();
    Camera().SetTime(mtContext.cameraTime());
    Camera().Tune(mtContext.Tunables());
    if (HeartBeats() && mtOutput.Waiting() < gnMostWaitingAlive) {
        const tsHeartBeatData heartbeat = Camera().HeartBeat();
        mtContext.ledger.Count(&tsSimStatistics::heartbeats);
        Answer(ansHeartBeat, &heartbeat, sizeof heartbeat);
    }
    Shoot();
}

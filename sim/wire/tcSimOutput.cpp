#include "tcSimOutput.h"

#include "crc32.h"
#include "vxmessages.h"

#include <asio/write.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr size_t gnMessagesAtOnce = 256 * 1024;
constexpr size_t gnPixelsAtOnce = 1024 * 1024;
constexpr size_t gnOneByOne = 1;
constexpr std::chrono::milliseconds gtBurst{10}; // a paced link sends no more than this ahead

} // namespace

tcSimOutput::tcSimOutput(asio::ip::tcp::socket& socket, tcSimLedger& ledger, double packetRate)
    : mtSocket(socket), mtLedger(ledger), mtPacer(socket.get_executor()), mnPacketRate(packetRate)
{}

void tcSimOutput::Open(std::weak_ptr<void> owner, tsHooks hooks)
{
    mpOwner = std::move(owner);
    mtHooks = std::move(hooks);
    mbOpen = true;
}

void tcSimOutput::Close()
{
    mbOpen = false;
    StopPicture();
    maQueue.clear();
    mnWaiting = 0;
}

void tcSimOutput::Send(uint32_t id, const void* payload, size_t bytes, uint32_t times)
{
    if (!mbOpen || times == 0) return;
    tsMsgHeader header{};
    header.Magic = gnMessageMagic;
    header.Length = static_cast<uint16_t>(bytes);
    header.IDD = gnInterfaceVersion;
    header.MsgId = id & 0xFFFFFF;
    tsQueued queued{std::vector<uint8_t>(sizeof header + bytes), times};
    std::memcpy(queued.bytes.data(), &header, sizeof header);
    if (bytes > 0) std::memcpy(queued.bytes.data() + sizeof header, payload, bytes);
    mnWaiting += queued.bytes.size();
    maQueue.push_back(std::move(queued));
    Pump();
}

void tcSimOutput::StartPicture(tsSimDelivery delivery)
{
    mtDelivery = std::move(delivery);
    mnNextPacket = 0;
    Pump();
}

void tcSimOutput::StopPicture()
{
    if (mtDelivery.picture) TellWhatLeft();
    mtDelivery = tsSimDelivery();
    mtPacer.cancel();
}

void tcSimOutput::Stamp(uint8_t* message)
{
    tsMsgHeader header;
    std::memcpy(&header, message, sizeof header);
    header.SeqNo = mnSequence++;
    std::memcpy(message, &header, sizeof header);
}

void tcSimOutput::TakeMessages()
{
    const size_t atOnce = mpLine ? gnOneByOne : gnMessagesAtOnce;
    while (!maQueue.empty() && maMessages.size() < atOnce) {
        tsQueued& queued = maQueue.front();
        const size_t start = maMessages.size();
        maMessages.insert(maMessages.end(), queued.bytes.begin(), queued.bytes.end());
        Stamp(maMessages.data() + start);
        if (--queued.times > 0) continue;
        mnWaiting -= queued.bytes.size();
        maQueue.pop_front();
    }
}

// How many packets may go now; 0 when the pace says wait, and then the pacer is set.
uint32_t tcSimOutput::PacketsDue()
{
    const uint32_t left = mtDelivery.picture->PacketCount() - mnNextPacket;
    if (mnPacketRate <= 0) return left;
    const tpClock::time_point now = tpClock::now();
    if (mtPacketDue > now) {
        mtPacer.expires_at(mtPacketDue);
        mtPacer.async_wait([this, keep = mpOwner.lock()](const std::error_code& error) {
            if (!error) Pump();
        });
        return 0;
    }
    mtPacketDue = std::max(mtPacketDue, now - gtBurst);
    const double burst = mnPacketRate * std::chrono::duration<double>(gtBurst).count();
    return std::min(left, static_cast<uint32_t>(std::clamp(burst, 1.0, 65535.0)));
}

void tcSimOutput::TakePackets()
{
    if (!mtDelivery.picture) return;
    const uint32_t due = PacketsDue();
    if (due == 0) return;
    tcSimPicture& picture = *mtDelivery.picture;
    const uint32_t first = mnNextPacket;
    const size_t atOnce = mpLine ? gnOneByOne : gnPixelsAtOnce;
    do {
        uint8_t* packet = picture.Packet(mnNextPacket++);
        Stamp(packet);
        packet[offsetof(tsPixelData16Msg, LastFrame)] = mtDelivery.lastFrame ? 1 : 0;
    } while (mnNextPacket - first < due && picture.Bytes(first, mnNextPacket) < atOnce);
    if (mnPacketRate > 0) {
        mtPacketDue += std::chrono::duration_cast<tpClock::duration>(
            std::chrono::duration<double>((mnNextPacket - first) / mnPacketRate));
    }
    maBuffers.emplace_back(picture.Packet(first), picture.Bytes(first, mnNextPacket));
    mpWritten = mtDelivery.picture;
    mtDelivery.leaving(mnNextPacket);
    if (!mpLine && mnNextPacket == picture.PacketCount()) TellWhatLeft();
}

// The line says of every packet what it made of it.
tcSimBadLine::tpLeaving tcSimOutput::PacketLeaving()
{
    if (!mtDelivery.sent) {
        mtDelivery.sent = std::make_shared<tcSimSentFrame>(mtDelivery.picture, mnNextPacket - 1);
    }
    auto& ledger = mtLedger;
    return
        [&ledger, sent = mtDelivery.sent, last = mtDelivery.picture->PacketCount() == mnNextPacket,
         readout = mtDelivery.readout, frame = mtDelivery.frame](const tpSimBytes& packet) {
            sent->Leaves(packet);
            if (last || sent->Ended()) ledger.FrameLeft(readout, frame, sent->Tell());
        };
}

// Of the picture as far as it has come.
void tcSimOutput::TellWhatLeft()
{
    const uint32_t packets = mnNextPacket;
    const tcSimPicture& picture = *mtDelivery.picture;
    tsSimSent sent;
    if (mtDelivery.sent) {
        mtDelivery.sent->End();
        sent = mtDelivery.sent->Tell();
    } else {
        const uint32_t all = picture.PacketCount();
        const size_t rest = picture.PixelBytes(all) - picture.PixelBytes(packets);
        sent = {packets, all - packets, picture.PixelSum(packets),
                SimCrc32OfZeros(picture.Crc(packets), rest), packets == all};
    }
    mtLedger.FrameLeft(mtDelivery.readout, mtDelivery.frame, sent);
}

void tcSimOutput::Pump()
{
    if (!mbOpen || mbWriting) return;
    std::shared_ptr<void> keep = mpOwner.lock();
    if (!keep) return;
    if (!mpLine) mpLine = mtHooks.line();
    maMessages.clear();
    maBuffers.clear();
    TakeMessages();
    if (!maMessages.empty()) maBuffers.emplace_back(maMessages.data(), maMessages.size());
    if (!mpLine || maBuffers.empty()) TakePackets();
    if (maBuffers.empty()) return;
    mbWriting = true;
    Write(std::move(keep));
}

void tcSimOutput::Write(std::shared_ptr<void> keep)
{
    if (mpLine) {
        const asio::const_buffer& only = maBuffers.front();
        const bool isPacket = maMessages.empty();
        mpLine->Write(static_cast<const uint8_t*>(only.data()), UnitOf(isPacket),
                      isPacket ? PacketLeaving() : nullptr, [this] { Written({}, 0); });
        return;
    }
    mnBytesSent += asio::buffer_size(maBuffers);
    asio::async_write(mtSocket, maBuffers,
                      [this, keep = std::move(keep)](const std::error_code& error, size_t bytes) {
                          Written(error, bytes);
                      });
}

// The one message or pixel packet that is to be written.
tsSimUnit tcSimOutput::UnitOf(bool isPacket) const
{
    tsMsgHeader header;
    std::memcpy(&header, maBuffers.front().data(), sizeof header);
    tsSimUnit unit;
    unit.id = header.MsgId;
    unit.bytes = maBuffers.front().size();
    unit.isPacket = isPacket;
    if (isPacket) {
        unit.readout = mtDelivery.readout;
        unit.frame = mtDelivery.frame;
        unit.packet = mnNextPacket; // counts from 0, and is one further already
        return unit;
    }
    const tsAnswer* answer = FindAnswer(unit.id);
    unit.isAnswer = answer ? answer->delivery != eEvent && answer->delivery != eIgnored
                           : unit.id >= gnFirstUserDefinedId;
    return unit;
}

void tcSimOutput::Written(const std::error_code& error, size_t bytes)
{
    mbWriting = false;
    mtLedger.Count(&tsSimStatistics::bytesSent, bytes);
    const std::shared_ptr<tcSimPicture> written = std::move(mpWritten);
    if (!mbOpen) return;
    if (error) {
        mtHooks.failed();
        return;
    }
    if (mtDelivery.picture && mtDelivery.picture == written &&
        mnNextPacket == mtDelivery.picture->PacketCount()) {
        if (mtDelivery.sent) TellWhatLeft();
        std::function<void()> done = std::move(mtDelivery.done);
        mtDelivery = tsSimDelivery();
        done();
    }
    mtHooks.drained();
    Pump();
}

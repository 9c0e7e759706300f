#include "tcSimSentFrame.h"

#include "crc32.h"
#include "vxmessages.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr size_t gnHead = offsetof(tsPixelData16Msg, Pixels); // what all pixel packets have

tsPixelData16Msg HeadOf(const uint8_t* packet)
{
    tsPixelData16Msg head;
    std::memcpy(&head, packet, gnHead);
    return head;
}

} // namespace

tcSimSentFrame::tcSimSentFrame(std::shared_ptr<tcSimPicture> picture, uint32_t gone)
    : mpPicture(std::move(picture)), mnPixelBytes(mpPicture->Facts().bits / 8),
      maPixels(mpPicture->PixelBytes(mpPicture->PacketCount())), maFilled(mpPicture->PacketCount()),
      mnPackets(gone), mnNext(gone)
{
    for (uint32_t i = 0; i < mpPicture->PacketCount(); ++i) {
        const tsPixelData16Msg head = HeadOf(mpPicture->Packet(i));
        mmRows[head.Row].push_back({i, head.FirstColumn, head.LastColumn});
        if (i >= gone) continue;
        std::memcpy(&maPixels[mpPicture->PixelBytes(i)],
                    mpPicture->Packet(i) + mpPicture->HeadBytes(),
                    mpPicture->PixelBytes(i + 1) - mpPicture->PixelBytes(i));
        maFilled[i] = true;
    }
}

void tcSimSentFrame::Leaves(const tpSimBytes& message)
{
    Follow(message);
    if (message.size() < mpPicture->HeadBytes()) return;
    const tsPixelData16Msg head = HeadOf(message.data());
    const tsPixelData16Msg meant = HeadOf(mpPicture->Packet(0));
    if (head.header.Magic != gnMessageMagic || head.header.IDD != gnInterfaceVersion ||
        head.header.MsgId != meant.header.MsgId ||
        head.header.Length != message.size() - gnHeaderBytes ||
        head.LastColumn < head.FirstColumn) {
        return;
    }
    ++mnPackets;
    const size_t carried = (message.size() - mpPicture->HeadBytes()) / mnPixelBytes;
    const auto told = static_cast<size_t>(head.LastColumn - head.FirstColumn) + 1;
    Put(head.Row, head.FirstColumn, message.data() + mpPicture->HeadBytes(),
        static_cast<uint32_t>(std::min(carried, told)));
}

// Whether it is the packet whose turn it is, unchanged.
void tcSimSentFrame::Follow(const tpSimBytes& message)
{
    mbIntact = mbIntact && mnNext < mpPicture->PacketCount() &&
               message.size() == mpPicture->Bytes(mnNext, mnNext + 1) &&
               std::memcmp(message.data(), mpPicture->Packet(mnNext), message.size()) == 0;
    ++mnNext;
}

// Wherever the frame has these columns; regions may share pixels.
void tcSimSentFrame::Put(uint16_t row, uint32_t first, const uint8_t* pixels, uint32_t count)
{
    const auto places = mmRows.find(row);
    if (places == mmRows.end() || count == 0) return;
    const uint32_t last = first + count - 1;
    for (const tsPlace& place : places->second) {
        const uint32_t from = std::max(first, place.first), to = std::min(last, place.last);
        if (from > to) continue;
        const size_t start = mpPicture->PixelBytes(place.packet);
        std::memcpy(&maPixels[start + (from - place.first) * mnPixelBytes],
                    pixels + (from - first) * mnPixelBytes, (to - from + 1) * mnPixelBytes);
        if (from == place.first && to == place.last) maFilled[place.packet] = true;
    }
}

tsSimSent tcSimSentFrame::Tell() const
{
    tsSimSent sent;
    sent.packets = mnPackets;
    sent.lost = static_cast<uint32_t>(std::count(maFilled.begin(), maFilled.end(), false));
    for (size_t at = 0; at < maPixels.size(); at += mnPixelBytes) {
        uint32_t pixel = 0;
        std::memcpy(&pixel, &maPixels[at], mnPixelBytes);
        sent.pixelSum += pixel;
    }
    sent.crc = SimCrc32(0, maPixels.data(), maPixels.size());
    sent.intact = mbIntact && mnNext == mpPicture->PacketCount();
    return sent;
}

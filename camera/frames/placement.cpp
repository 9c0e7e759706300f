// Pixels: where those of a packet go.
#include "tcExtension.h"

#include <algorithm>
#include <cstring>

// Where the pixels of one packet go.
struct tcVXCamera::tsPlacement {
    const char* operation; // for the log
    int item;              // whose readout the packet belongs to
    const void* pixels;
    uint32_t pixelBytes;
    uint32_t carried; // pixels that the packet really holds
    uint32_t row, firstColumn, lastColumn;
    uint32_t stride; // of the buffer, in pixels; 0 for the sensor's columns
    void* buffer;
};

namespace {

constexpr uint32_t gnOldStride = 1024; // pixels a row before interface version 3

} // namespace

template <class Packet>
void tcVXCamera::CountPacket(const char* operation, const Packet& packet,
                             std::atomic<int>& expected, bool announce)
{
    const int total = packet.TotalPackets;
    mLog.logDebug(10, "tcVXCamera::%s Received Cols (%d though %d), Row %d", operation,
                  packet.FirstColumn + 0, packet.LastColumn + 0, packet.Row + 0);
    if (expected == -1) {
        expected = total;
        if (announce) mLog.logDebug(1, "Number of image packets is %d", total);
    }
    if (expected != total) {
        mLog.logError("tcVXCamera::%s Bad Total Number of Packets (expected %d, got %d)", operation,
                      expected.load(), total);
    }
    ++mnPacketsReceived;
}

void tcVXCamera::Place(const tsPlacement& place)
{
    mbPlacedOutside = false;
    tsReadoutFacts& readout = mpExtension->readouts[KindOf(place.item)];
    if (place.buffer == nullptr) {
        const bool isKnown = readout.runs && readout.isUnderrun; // and has been told
        if (!isKnown) mLog.logError("tcVXCamera::%s NULL Image Buffer Pointer!", place.operation);
        return;
    }
    if (place.lastColumn < place.firstColumn) return;
    const tsRequestItem& item = maItems[place.item];
    const uint32_t wanted = std::min(place.lastColumn - place.firstColumn + 1, place.carried);
    const tsImageLimits limits = LimitsOf(item, place.buffer);
    const bool isInTurn = IsInTurn(KindOf(place.item)) && place.buffer == item.result1;
    const tsSpot spot = isInTurn
                            ? readout.packing.Find(place.row, place.firstColumn, place.lastColumn)
                            : SpotOf(place, limits);
    const uint64_t room = spot.element < limits.pixels ? limits.pixels - spot.element : 0;
    const uint64_t inside =
        limits.known ? std::min({uint64_t{wanted}, uint64_t{spot.columns}, room}) : wanted;
    auto* bytes = static_cast<uint8_t*>(place.buffer) + spot.element * place.pixelBytes;
    memcpy(bytes, place.pixels, inside * place.pixelBytes);
    if (inside < wanted) NoteOutside(place, limits, wanted - inside);
}

// In a buffer that has the shape of the sensor.
tsSpot tcVXCamera::SpotOf(const tsPlacement& place, const tsImageLimits& limits)
{
    const uint64_t stride = place.stride != 0 ? place.stride : limits.columns;
    const bool isInside = place.row < limits.rows && place.firstColumn < limits.columns;
    return {place.row * stride + place.firstColumn,
            isInside ? limits.columns - place.firstColumn : 0};
}

void tcVXCamera::NoteOutside(const tsPlacement& place, const tsImageLimits& limits, uint64_t pixels)
{
    mbPlacedOutside = true;
    tcLedger::Add(mpLedger->Figures().PacketsOutside);
    tcLedger::Add(mpLedger->Figures().PixelsOutside, pixels);
    if (mbOutsideReported) return;
    mbOutsideReported = true;
    mLog.logError("tcVXCamera::%s pixels outside the image of %u x %u: row %u, columns %u to %u",
                  place.operation, limits.columns, limits.rows, place.row, place.firstColumn,
                  place.lastColumn);
}

int tcVXCamera::CompileMessage16(tsPixelData16Msg* packet, short* buffer)
{
    CountPacket("CompileMessage16", *packet, mnExpectedPackets16, true);
    Place({"CompileMessage16", eItemImage16, packet->Pixels, 2,
           PixelsCarried(packet->header, offsetof(tsPixelData16Msg, Pixels), 2), packet->Row,
           packet->FirstColumn, packet->LastColumn, packet->header.IDD > 2 ? 0 : gnOldStride,
           buffer});
    return 0;
}

int tcVXCamera::CompileMessage(tsPixelData32Msg* packet, long* buffer)
{
    CountPacket("CompileMessage", *packet, mnExpectedPackets32, false);
    const uint32_t offset = packet->header.IDD < 2 ? offsetof(tsPixelData32Msg, Extra1)
                                                   : offsetof(tsPixelData32Msg, Pixels);
    Place({"CompileMessage", eItemImage32, reinterpret_cast<const uint8_t*>(packet) + offset, 4,
           PixelsCarried(packet->header, offset, 4), packet->Row, packet->FirstColumn,
           packet->LastColumn, packet->header.IDD > 2 ? 0 : gnOldStride, buffer});
    return 0;
}

int tcVXCamera::CompileMessage8(tsPixelData8Msg* packet, unsigned char* buffer)
{
    CountPacket("CompileMessage8", *packet, mnExpectedPackets16, true);
    Place({"CompileMessage8", eItemImage8, packet->Pixels, 1,
           PixelsCarried(packet->header, offsetof(tsPixelData8Msg, Pixels), 1), packet->Row,
           packet->FirstColumn, packet->LastColumn, 0, buffer});
    return 0;
}

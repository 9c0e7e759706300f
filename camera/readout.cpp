// Readout: start it, place its pixel packets, finish frames, progress, abort.
#include "tcExtension.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

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

constexpr int gnAbortLimit = 50;       // ms that the sending of an abort may take
constexpr uint32_t gnOldStride = 1024; // pixels a row before interface version 3

// How many pixels of a size fit between an offset of the message and its end.
uint32_t PixelsCarried(const tsMsgHeader& header, uint32_t offset, uint32_t pixelBytes)
{
    const uint32_t bytes = header.Length + static_cast<uint32_t>(gnHeaderBytes);
    return bytes > offset ? (bytes - offset) / pixelBytes : 0;
}

// Whether a packet carries the pixels that it tells.
template <class Packet>
bool IsWhole(const Packet& packet, uint32_t pixelBytes)
{
    const uint32_t first = packet.FirstColumn, last = packet.LastColumn;
    const uint32_t told = last < first ? 0 : last - first + 1;
    return PixelsCarried(packet.header, offsetof(Packet, Pixels), pixelBytes) >= told;
}

// The message as a pixel packet: itself, or where it is too short for a packet's fixed fields, a
// copy in `room` that is filled up with zeros.
constexpr size_t gnPacketHeadBytes = offsetof(tsPixelData32Msg, Pixels);
template <class Packet>
Packet& AsPacket(tuCameraMessages& message, uint8_t (&room)[gnPacketHeadBytes])
{
    const size_t length = static_cast<size_t>(message.header.Length) + gnHeaderBytes;
    if (length >= gnPacketHeadBytes) return *reinterpret_cast<Packet*>(message.bytes);
    memset(room, 0, sizeof room);
    memcpy(room, message.bytes, length);
    return *reinterpret_cast<Packet*>(room);
}

int32_t ImageTypeOf(uint8_t code)
{
    constexpr int32_t other = 4;
    constexpr int32_t types[] = {0, 1, 3, 2, other, 5};
    return code < std::size(types) ? types[code] : other;
}

} // namespace

// A frame's callback under way: WaitCompletion returns only behind it.
class tcVXCamera::tcDeliveryScope
{
public:
    explicit tcDeliveryScope(tcVXCamera& camera) : mCamera(camera) { ++camera.mnDeliveriesBegun; }
    ~tcDeliveryScope()
    {
        ++mCamera.mnDeliveriesEnded;
        mCamera.NotifyWaiters();
    }
    tcDeliveryScope(const tcDeliveryScope&) = delete;
    tcDeliveryScope& operator=(const tcDeliveryScope&) = delete;

private:
    tcVXCamera& mCamera;
};

// Lets go of a lock for as long as it lives.
class tcVXCamera::tcUnlocked
{
public:
    explicit tcUnlocked(tStackLock& lock) : mLock(lock) { mLock.unlock(); }
    ~tcUnlocked() { mLock.lock(); }
    tcUnlocked(const tcUnlocked&) = delete;
    tcUnlocked& operator=(const tcUnlocked&) = delete;

private:
    tStackLock& mLock;
};

// Arms the item of a readout whose command is then to be sent: the readout's number, or 0 when one
// is running.
uint32_t tcVXCamera::StartReadout(int item, teReadoutKind kind, void* buffer,
                                  unsigned short* maximum, short frames)
{
    // What takes memory comes before the item is armed.
    std::vector<tsRegion> regions;
    if (kind == eReadoutArea) regions = RegionsToRead();
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    LevelAreaItems();
    // Both kinds of area readout are the camera's one.
    const bool isBusy = (item == eItemImage8 && maItems[eItemImage16].IsPending()) ||
                        (item == eItemImage16 && mpExtension->readouts[eFrame8].runs);
    if (isBusy || InitReqStackItem(item, 1) != eVXOk) {
        tcLedger::Add(mpLedger->Figures().RequestsBusy);
        return 0;
    }
    tsRequestItem& request = maItems[item];
    mpLedger->BeginReadout(KindOf(item), static_cast<uint16_t>(frames));
    mnPacketsReceived = 0;
    request.result1 = buffer != nullptr ? buffer : mpDefaultBuffer.get();
    request.result2 = maximum;
    if (maximum != nullptr) *maximum = 0;
    request.frameLimit = static_cast<uint32_t>(frames);
    (item == eItemImage32 ? mnExpectedPackets32 : mnExpectedPackets16) = -1;
    mnFrameIndex = 1;
    request.limits = ToldLimits();
    mbOutsideReported = false;
    ++mnReadoutSerial;
    BeginReadoutFacts(KindOf(item), kind, std::move(regions));
    return mnReadoutSerial;
}

// An area readout that the camera answered in 8 bits leaves its own item open, and the other one
// with an answer too many. Where nothing is under way any more, both are made even.
void tcVXCamera::LevelAreaItems()
{
    tsRequestItem &area = maItems[eItemImage16], &bytes = maItems[eItemImage8];
    const int areaOpen = area.respNeeded - area.respCount;
    const int bytesOpen = bytes.respNeeded - bytes.respCount;
    if (bytesOpen > 0 || areaOpen + bytesOpen > 0) return;
    if (areaOpen > 0) {
        area.respCount = area.respNeeded.load();
        EndRequest(area);
    }
    const int count = area.respNeeded;
    bytes.respNeeded = count;
    bytes.respCount = count;
}

// Sends a readout's command.
template <class Payload>
int tcVXCamera::SendReadout(const char* operation, int item, uint32_t number,
                            const tsCommand<Payload>& command, const Payload& payload)
{
    const bool isSent = Send(command, payload) == eVXOk;
    NoteCommandSent(KindOf(item), number, isSent);
    if (!isSent) mLog.logError("tcVXCamera::%s could not send", operation);
    return eVXOk;
}

int tcVXCamera::ReadArea(const char* operation, int item, void* buffer, short frames,
                         unsigned short flags)
try {
    const uint32_t number = StartReadout(item, eReadoutArea, buffer, nullptr, frames);
    if (number == 0) {
        const tsRequestItem& busy = maItems[item];
        mLog.logError("tcVXCamera::%s already in progress! %d,%d", operation,
                      busy.respNeeded.load(), busy.respCount.load());
        return eVXFailed;
    }
    tsReadAreaMsg read{};
    {
        std::lock_guard<std::mutex> lock(mAreaMutex);
        read = {static_cast<uint16_t>(maArea[0]), static_cast<uint16_t>(maArea[1]),
                static_cast<uint16_t>(maArea[2]), static_cast<uint16_t>(maArea[3]),
                static_cast<uint16_t>(frames),    flags};
    }
    return SendReadout(operation, item, number, cmdReadCCDArea, read);
} catch (const std::bad_alloc&) { // before anything had begun
    mLog.logError("tcVXCamera::%s no memory", operation);
    return eVXFailed;
}

int tcVXCamera::ReadCCDArea(unsigned short* buffer, short frames, unsigned short flags)
{
    return ReadArea("ReadCCDArea", eItemImage16, buffer, frames, flags);
}

int tcVXCamera::ReadCCDArea8(unsigned char* buffer, short frames, unsigned short flags)
{
    constexpr unsigned short bytes = 0x0008;
    return ReadArea("ReadCCDArea8", eItemImage8, buffer, frames, flags | bytes);
}

int tcVXCamera::ReadCCDBinned(long* buffer, unsigned short* maximum, short frames,
                              unsigned short mode)
{
    const uint32_t number = StartReadout(eItemImage32, eReadoutBinned, buffer, maximum, frames);
    if (number == 0) return eVXFailed;
    return SendReadout("ReadCCDBinned", eItemImage32, number, cmdReadCCDBinned,
                       {static_cast<uint16_t>(frames), mode, {}});
}

int tcVXCamera::ReadCCDMaskBinned(long* buffer, unsigned short* maximum, short frames,
                                  unsigned short mode)
{
    const uint32_t number = StartReadout(eItemImage32, eReadoutMaskBinned, buffer, maximum, frames);
    if (number == 0) return eVXFailed;
    return SendReadout("ReadCCDMaskBinned", eItemImage32, number, cmdReadCCDMaskBinned,
                       {static_cast<uint16_t>(frames), mode});
}

int tcVXCamera::AbortRead()
{
    mLog.logDebug(4, "tcVXCamera::AbortRead Entered");
    tsMsgHeader message{};
    message.MsgId = cmdAbortRead.Row().id;
    const int result = SendMessageWithin(&message, gnAbortLimit);
    if (result != eVXOk) mLog.logError("tcVXCamera::AbortRead could not send");
    {
        const tStackLock lock(mStackMutex);
        for (int index : {eItemImage16, eItemImage8, eItemImage32}) {
            const bool isForgotten = index == eItemImage8 && !mpExtension->readouts[eFrame8].runs;
            if (isForgotten) continue;
            maItems[index].respCount = maItems[index].respNeeded.load();
            mpLedger->EndReadout(KindOf(index), tcLedger::eAborted);
            EndReadoutFacts(maItems[index], eReadoutAborted);
            ReleaseImageBuffer(maItems[index]);
            EndRequest(maItems[index]);
        }
        LevelAreaItems();
    }
    AwaitDelivery();
    return result;
}

int tcVXCamera::PercentComplete(unsigned int* frame)
{
    if (frame != nullptr) *frame = mnFrameIndex;
    int expected = 0;
    // An item that was armed by hand is not considered.
    const bool isOfBytes = maItems[eItemImage8].IsPending() && mbReadsBytes;
    if (maItems[eItemImage16].IsPending() || isOfBytes) {
        expected = mnExpectedPackets16;
    } else if (maItems[eItemImage32].IsPending()) {
        expected = mnExpectedPackets32;
    } else {
        return 100;
    }
    if (expected <= 0) return 0;
    return static_cast<int>(std::min<int64_t>(100, int64_t{100} * mnPacketsReceived / expected));
}

int tcVXCamera::OverrideImageTimout(int ms)
{
    mnImageTimeoutOverride = ms;
    return eVXOk;
}

// What arrives from now on for the item goes to the camera's own buffer, not to the caller's; 8-bit
// frames that nobody asked for go nowhere.
void tcVXCamera::ReleaseImageBuffer(tsRequestItem& item)
{
    const bool isOfBytes = &item == &maItems[eItemImage8];
    item.result1 = isOfBytes ? nullptr : mpDefaultBuffer.get();
    item.result2 = nullptr;
    if (isOfBytes) item.frameLimit = 0;
}

// What an application that went by the hardware information has room for. Where that leaves the
// rows open (65535), the area that is read is all the room that it can be expected to have.
tsImageLimits tcVXCamera::ToldLimits()
{
    constexpr uint32_t open = 65535;
    tsImageLimits limits{mbGeometryTold, mnRows, mnColumns, 0};
    if (limits.rows == open) {
        std::lock_guard<std::mutex> lock(mAreaMutex);
        const int64_t reach = int64_t{maArea[1]} + maArea[3];
        if (maArea[3] > 0) limits.rows = static_cast<uint32_t>(std::clamp<int64_t>(reach, 0, open));
    }
    limits.pixels = uint64_t{limits.rows} * limits.columns;
    return limits;
}

// What may be stored in a buffer that packets of the item's width go to.
tsImageLimits tcVXCamera::LimitsOf(const tsRequestItem& item, const void* buffer)
{
    tsImageLimits limits = ToldLimits();
    if (buffer == item.result1 && item.limits.known) limits = item.limits;
    if (buffer == mpDefaultBuffer.get()) {
        limits.pixels = limits.known ? std::min(limits.pixels, mnDefaultPixels) : mnDefaultPixels;
        limits.known = true;
    }
    return limits;
}

void tcVXCamera::ReArmImage(tsRequestItem& item)
{
    const int overridden = mnImageTimeoutOverride;
    item.timeout = overridden == 0 ? gnImageTimeout : overridden < 0 ? 0x7FFFFFFF : overridden;
}

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
    if (place.buffer == nullptr) {
        mLog.logError("tcVXCamera::%s NULL Image Buffer Pointer!", place.operation);
        return;
    }
    if (place.lastColumn < place.firstColumn) return;
    const uint32_t wanted = std::min(place.lastColumn - place.firstColumn + 1, place.carried);
    const tsImageLimits limits = LimitsOf(maItems[place.item], place.buffer);
    const uint32_t stride = place.stride != 0 ? place.stride : limits.columns;
    const uint64_t start = place.firstColumn + static_cast<uint64_t>(place.row) * stride;
    uint64_t inside = wanted;
    if (limits.known) {
        if (place.row >= limits.rows || place.firstColumn >= limits.columns ||
            start >= limits.pixels) {
            inside = 0;
        } else {
            inside = std::min<uint64_t>(inside, limits.columns - place.firstColumn);
            inside = std::min(inside, limits.pixels - start);
        }
    }
    memcpy(static_cast<uint8_t*>(place.buffer) + start * place.pixelBytes, place.pixels,
           inside * place.pixelBytes);
    if (inside == wanted) return;
    mbPlacedOutside = true;
    tcLedger::Add(mpLedger->Figures().PacketsOutside);
    tcLedger::Add(mpLedger->Figures().PixelsOutside, wanted - inside);
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

void tcVXCamera::OnPixels16(tuCameraMessages& message, tsRequestItem*)
{
    uint8_t room[gnPacketHeadBytes];
    auto& packet = AsPacket<tsPixelData16Msg>(message, room);
    tsRequestItem& item = maItems[eItemImage16];
    tStackLock lock(mStackMutex);
    ReArmImage(item);
    const bool isWhole = IsWhole(packet, 2);
    if (!TakePacket(lock, item, packet, isWhole)) return;
    CompileMessage16(&packet, static_cast<short*>(item.result1));
    NotePacket(eFrame16, packet, isWhole);
    if (packet.PacketNumber != packet.TotalPackets) return;

    tsImageData image = DescribeFrame(item);
    image.ImageType = ImageTypeOf(packet.ImageType);
    image.Rows = packet.TotalPackets;
    image.Columns = packet.LastColumn - packet.FirstColumn + 1;
    image.Statistic = packet.Statistic;
    FinishFrame(lock, item, packet.LastFrame != 0 && item.IsPending(), image);
}

void tcVXCamera::OnPixels32(tuCameraMessages& message, tsRequestItem*)
{
    uint8_t room[gnPacketHeadBytes];
    auto& packet = AsPacket<tsPixelData32Msg>(message, room);
    tsRequestItem& item = maItems[eItemImage32];
    tStackLock lock(mStackMutex);
    ReArmImage(item);
    const bool isWhole = IsWhole(packet, 4);
    if (!TakePacket(lock, item, packet, isWhole)) return;
    CompileMessage(&packet, static_cast<long*>(item.result1));
    NotePacket(eFrame32, packet, isWhole);
    if (packet.PacketNumber != packet.TotalPackets) return;

    auto* maximum = static_cast<unsigned short*>(item.result2);
    if (maximum != nullptr && *maximum < packet.Statistic) *maximum = packet.Statistic;
    tsImageData image = DescribeFrame(item);
    image.ImageType = 1;
    image.Rows = packet.TotalPackets;
    image.Columns = packet.LastColumn - packet.FirstColumn + 1;
    image.AreaFirstColumn = image.AreaFirstRow = 0;
    image.Extra1 = packet.Extra1;
    image.Extra2 = packet.Extra2;
    image.Statistic = packet.Statistic;
    FinishFrame(lock, item, packet.LastFrame != 0 && item.IsPending(), image);
}

void tcVXCamera::OnPixels8(tuCameraMessages& message, tsRequestItem*)
{
    uint8_t room[gnPacketHeadBytes];
    auto& packet = AsPacket<tsPixelData8Msg>(message, room);
    tsRequestItem& item = maItems[eItemImage8];
    tStackLock lock(mStackMutex);
    ReArmImage(item);
    const bool isWhole = IsWhole(packet, 1);
    if (!TakePacket(lock, item, packet, isWhole)) return;
    CompileMessage8(&packet, static_cast<unsigned char*>(item.result1));
    NotePacket(eFrame8, packet, isWhole);
    if (packet.PacketNumber != packet.TotalPackets) return;

    tsImageData image = DescribeFrame(item);
    image.ImageType = ImageTypeOf(packet.ImageType);
    image.Rows = static_cast<int32_t>(mnRows);
    image.Columns = static_cast<int32_t>(mnColumns);
    // Kept: the count is compared with what the 16-bit item needs. Pending requests are summed, so
    // this is what completes an area readout that the camera answers in 8 bits.
    tsRequestItem& area = maItems[eItemImage16];
    const bool answersArea = !mpExtension->readouts[eFrame8].runs;
    const int needed = answersArea ? area.respNeeded : item.respNeeded;
    const bool completes = packet.LastFrame != 0 && item.respCount < needed;
    if (completes && answersArea) ReleaseImageBuffer(area);
    FinishFrame(lock, item, completes, image);
}

template <class Packet>
void tcVXCamera::NotePacket(teFrameKind kind, const Packet& packet, bool isWhole)
{
    const teArrival arrival = !isWhole || MessageSpansConnections() ? eDamaged
                              : mbPlacedOutside                     ? eMisplaced
                                                                    : eCame;
    mpExtension->frames[kind].Note(packet.PacketNumber,
                                   {packet.Row, packet.FirstColumn, packet.LastColumn, arrival});
}

// Enters a packet into the books. Where it shows that the frame before was cut short, that is told
// first; false when the readout has been ended meanwhile.
template <class Packet>
bool tcVXCamera::TakePacket(tStackLock& lock, tsRequestItem& item, const Packet& packet,
                            bool isWhole)
{
    const teFrameKind kind = KindOf(static_cast<int>(&item - maItems));
    const tsFrameEnd cut = mpLedger->TakePacket(
        kind, {packet.PacketNumber, packet.TotalPackets, isWhole, MessageSpansConnections()});
    if (cut.packets == 0) return true;
    mLog.logError("tcVXCamera::TakePacket a frame was cut short: %u of %u packets are missing",
                  cut.missing, cut.packets);
    tsFrameNews news;
    if (!EndFrame(news, item, cut, true)) return true;
    const tcDeliveryScope scope(*this);
    const uint32_t serial = mnReadoutSerial;
    {
        const tcUnlocked unlocked(lock);
        mpExtension->frameCallback.Call(mnHandle, &news.record);
    }
    return serial == mnReadoutSerial && ReadoutOf(kind).runs;
}

// Enters the end of a frame into the books, and that of its readout where it is the last.
tsFrameEnd tcVXCamera::CloseFrame(teFrameKind kind, bool completes)
{
    const tsFrameEnd end = mpLedger->DeliverFrame(kind, completes);
    if (!end.IsComplete()) {
        mLog.logError("tcVXCamera::FinishFrame frame %u is incomplete: %u of %u packets are "
                      "missing",
                      mnFrameIndex.load(), end.missing, end.packets);
    }
    if (!completes) return end;
    const uint32_t lost =
        mpLedger->EndReadout(kind == eFrame32 ? eFrame32 : eFrame16, tcLedger::eLost);
    if (lost > 0) {
        mpExtension->readoutEnd.NoteFlaw(ReadoutOf(kind).number);
        mLog.logError("tcVXCamera::FinishFrame the readout ended without %u of its frames", lost);
    }
    return end;
}

// What has not been delivered of a readout that ends is lost: how many frames.
uint32_t tcVXCamera::LoseFrames(int item)
{
    const bool isReadout = item == eItemImage16 || item == eItemImage32 ||
                           (item == eItemImage8 && mpExtension->readouts[eFrame8].runs);
    if (!isReadout) return 0;
    return mpLedger->EndReadout(KindOf(item), tcLedger::eLost);
}

// The part of a frame's record that every pixel width shares.
tsImageData tcVXCamera::DescribeFrame(const tsRequestItem& item)
{
    tsImageData image{};
    {
        std::lock_guard<std::mutex> lock(mAreaMutex);
        image.AreaFirstColumn = maArea[0];
        image.AreaFirstRow = maArea[1];
    }
    image.SensorColumns = static_cast<int32_t>(mnColumns);
    image.SensorRows = static_cast<int32_t>(mnRows);
    image.FrameIndex = static_cast<int32_t>(mnFrameIndex);
    image.ImageBuffer = item.result1;
    return image;
}

// Counts and delivers a frame whose last packet came; `completes` ends the readout. The readout
// counts as ended before the callback, which may start the next one. The callback is called without
// the lock, so that it and other threads may use the camera.
void tcVXCamera::FinishFrame(tStackLock& lock, tsRequestItem& item, bool completes,
                             tsImageData image)
{
    const tcDeliveryScope scope(*this);
    const uint32_t serial = mnReadoutSerial;
    const uint32_t limit = item.frameLimit & 0xFFFF;
    const tsFrameEnd end = CloseFrame(KindOf(static_cast<int>(&item - maItems)), completes);
    tsFrameNews news;
    const bool isTold = EndFrame(news, item, end, false);
    if (isTold) TellFigures(news.record, image, completes);
    if (completes) {
        EndReadoutFacts(item, eReadoutComplete);
        ReleaseImageBuffer(item);
        ++item.respCount;
        EndRequest(item);
    }
    image.FramesDelivered = ++mnFramesDelivered;
    {
        const tcUnlocked unlocked(lock);
        if (tpImageDataCallback callback = mpImageDataCallback) callback(mnHandle, &image);
        if (isTold) mpExtension->frameCallback.Call(mnHandle, &news.record);
    }
    if (serial != mnReadoutSerial) return;
    mnPacketsReceived = 0;
    mbOutsideReported = false;
    const uint32_t next = mnFrameIndex + 1;
    mnFrameIndex = limit != 0 && next > limit ? 1 : next;
}

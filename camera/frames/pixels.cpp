// Pixels: take the packets of a readout, finish its frames.
#include "tcExtension.h"

#include "swallowed.h"

#include <algorithm>
#include <cstring>

namespace {

// How long a packet is with the pixels that it tells.
template <class Packet>
size_t ToldBytes(const Packet& packet, uint32_t pixelBytes)
{
    const uint32_t first = packet.FirstColumn, last = packet.LastColumn;
    const size_t told = last < first ? 0 : last - first + 1;
    return offsetof(Packet, Pixels) + told * pixelBytes;
}

// Whether it is as long, and all of its pixels have a column.
template <class Packet>
bool IsWhole(const Packet& packet, size_t told)
{
    const size_t length = size_t{packet.header.Length} + gnHeaderBytes;
    return packet.LastColumn < packet.FirstColumn ? length <= told : length >= told;
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

// The three kinds of packets: whose item, pixels of how many bytes, placed by whom.
template <>
struct tcVXCamera::tsPixelsOf<tsPixelData16Msg> {
    static constexpr int item = eItemImage16;
    static constexpr uint32_t bytes = 2;
    static void Compile(tcVXCamera& camera, tsPixelData16Msg& packet, void* buffer)
    {
        camera.CompileMessage16(&packet, static_cast<short*>(buffer));
    }
};

template <>
struct tcVXCamera::tsPixelsOf<tsPixelData32Msg> {
    static constexpr int item = eItemImage32;
    static constexpr uint32_t bytes = 4;
    static void Compile(tcVXCamera& camera, tsPixelData32Msg& packet, void* buffer)
    {
        camera.CompileMessage(&packet, static_cast<long*>(buffer));
    }
};

template <>
struct tcVXCamera::tsPixelsOf<tsPixelData8Msg> {
    static constexpr int item = eItemImage8;
    static constexpr uint32_t bytes = 1;
    static void Compile(tcVXCamera& camera, tsPixelData8Msg& packet, void* buffer)
    {
        camera.CompileMessage8(&packet, static_cast<unsigned char*>(buffer));
    }
};

void tcVXCamera::OnPixels16(tuCameraMessages& message, tsRequestItem*)
{
    uint8_t room[gnPacketHeadBytes];
    auto& packet = AsPacket<tsPixelData16Msg>(message, room);
    tsRequestItem& item = maItems[eItemImage16];
    tStackLock lock(mStackMutex);
    if (!AcceptPacket(lock, packet)) return;

    tsImageData image = DescribeFrame(item, packet.TotalPackets, packet);
    image.ImageType = ImageTypeOf(packet.ImageType);
    image.Statistic = packet.Statistic;
    FinishFrame(lock, item, packet.LastFrame != 0 && item.IsPending(), image);
}

void tcVXCamera::OnPixels32(tuCameraMessages& message, tsRequestItem*)
{
    uint8_t room[gnPacketHeadBytes];
    auto& packet = AsPacket<tsPixelData32Msg>(message, room);
    tsRequestItem& item = maItems[eItemImage32];
    tStackLock lock(mStackMutex);
    if (!AcceptPacket(lock, packet)) return;

    auto* maximum = static_cast<unsigned short*>(item.result2);
    if (maximum != nullptr && *maximum < packet.Statistic) *maximum = packet.Statistic;
    tsImageData image = DescribeFrame(item, packet.TotalPackets, packet);
    image.ImageType = 1;
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
    if (!AcceptPacket(lock, packet)) return;

    tsImageData image = DescribeFrame(item);
    image.ImageType = ImageTypeOf(packet.ImageType);
    image.Rows = image.SensorRows;
    image.Columns = image.SensorColumns;
    // Kept: the count is compared with what the 16-bit item needs. Pending requests are summed, so
    // this is what completes an area readout that the camera answers in 8 bits.
    tsRequestItem& area = maItems[eItemImage16];
    const bool answersArea = !mpExtension->readouts[eFrame8].runs;
    const int needed = answersArea ? area.respNeeded : item.respNeeded;
    const bool completes = packet.LastFrame != 0 && item.respCount < needed;
    if (completes && answersArea) ReleaseImageBuffer(area);
    FinishFrame(lock, item, completes, image);
}

// Books and places a packet. True when it is the last of its frame, which is then to be finished.
template <class Packet>
bool tcVXCamera::AcceptPacket(tStackLock& lock, Packet& packet)
{
    constexpr int index = tsPixelsOf<Packet>::item;
    tsRequestItem& item = maItems[index];
    if (IsLeftover(KindOf(index), packet.PacketNumber, packet.TotalPackets)) return false;
    ReArmImage(item);
    CheckLastPacket();
    const size_t told = ToldBytes(packet, tsPixelsOf<Packet>::bytes);
    const teSwallowed swallowed =
        IsFollowedInOrder(packet.header) ? eSwallowedNothing : FindSwallowed(packet.header, told);
    const bool isDamaged = MessageSpansConnections() || swallowed == eSwallowedMessages;
    const bool isWhole = IsWhole(packet, told);
    bool isHeld = false;
    const tsPacketFacts facts{packet.PacketNumber, packet.TotalPackets, isWhole, isDamaged,
                              packet.LastFrame != 0};
    if (!TakePacket<Packet>(lock, facts, &isHeld)) return false;
    const bool isIntact = isWhole && !isDamaged;
    const bool isCounted = isIntact && packet.PacketNumber != 0;
    mpExtension->lastPacket = {KindOf(index), isCounted && swallowed == eSwallowedPerhaps};
    if (isHeld && IsInTurn(KindOf(index))) {
        HoldPacket(packet);
        return false;
    }
    StorePacket(packet, isIntact, isHeld);
    return packet.PacketNumber == packet.TotalPackets;
}

// Bytes that belong to no message came in since the last packet. If that holds what looks like the
// beginning of a message, it was cut short, and those are the rest of the next one.
void tcVXCamera::CheckLastPacket()
{
    if (mpParser->SkippedBytes == mnSkippedAtPacket) return;
    mnSkippedAtPacket = mpParser->SkippedBytes;
    const tsLastPacket last = mpExtension->lastPacket;
    if (!last.mayBeCut || !mpExtension->frames[last.kind].IsRunning()) return;
    mpExtension->lastPacket.mayBeCut = false;
    mpLedger->SuspectLast(last.kind);
    const tsHeldPacket* const held = mpExtension->held[last.kind].get();
    if (held != nullptr && held->isHeld) {
        ForgetHeld(last.kind);
    } else {
        mpExtension->frames[last.kind].SuspectLast();
    }
}

// Places a packet in the buffer of its frame, which begins with it or has begun before.
template <class Packet>
void tcVXCamera::StorePacket(Packet& packet, bool isWhole, bool isHeld)
{
    constexpr int index = tsPixelsOf<Packet>::item;
    BeginFrame(maItems[index]);
    tsPixelsOf<Packet>::Compile(*this, packet, maItems[index].result1);
    const teArrival arrival = !isWhole ? eDamaged : mbPlacedOutside ? eMisplaced : eCame;
    tcFrameAccount& account = mpExtension->frames[KindOf(index)];
    account.Note(packet.PacketNumber, packet.TotalPackets,
                 {packet.Row, packet.FirstColumn, packet.LastColumn, arrival}, isHeld,
                 account.IsTimed(isHeld) ? ArrivedAfter(packet.header) : 0);
}

// Enters a packet into the books. Where it shows that the frame before was cut short, that is told
// first; false when the readout has been ended meanwhile.
template <class Packet>
bool tcVXCamera::TakePacket(tStackLock& lock, const tsPacketFacts& facts, bool* isHeld)
{
    const teFrameKind kind = KindOf(tsPixelsOf<Packet>::item);
    const tsFrameEnd cut = mpLedger->TakePacket(kind, facts);
    *isHeld = cut.isHeld;
    bool goesOn = true;
    if (cut.hadHeld) ForgetHeld(kind);
    if (cut.packets > 0) {
        mLog.logError("tcVXCamera::TakePacket a frame was cut short: %u of %u packets are missing",
                      cut.missing, cut.packets);
        goesOn = TellCut(lock, maItems[tsPixelsOf<Packet>::item], cut);
    }
    if (tsHeldPacket* held = mpExtension->held[kind].get(); held != nullptr && held->isHeld) {
        held->isHeld = false;
        auto& first = *reinterpret_cast<Packet*>(held->bytes);
        if (goesOn) StorePacket(first, true, false);
        if (goesOn && cut.packets > 0) mpExtension->frames[kind].BeginAt(held->arrival);
    }
    return goesOn;
}

// In buffers in turn, a packet that may be the first of another frame waits for the next one, which
// tells: that frame has another buffer.
template <class Packet>
void tcVXCamera::HoldPacket(const Packet& packet)
{
    const size_t length = static_cast<size_t>(packet.header.Length) + gnHeaderBytes;
    tsHeldPacket& held = *mpExtension->held[KindOf(tsPixelsOf<Packet>::item)];
    memset(held.bytes, 0, gnPacketHeadBytes);
    memcpy(held.bytes, &packet, std::min(length, sizeof held.bytes));
    held.arrival = {ThisMoment(), ArrivedAfter(packet.header)};
    held.isHeld = true;
}

// A packet that was held is not the first of another frame.
void tcVXCamera::ForgetHeld(teFrameKind kind)
{
    if (mpExtension->held[kind]) mpExtension->held[kind]->isHeld = false;
    mpExtension->frames[kind].ForgetHeld();
}

// Tells of a frame that was cut short; false when its readout was ended meanwhile.
bool tcVXCamera::TellCut(tStackLock& lock, tsRequestItem& item, const tsFrameEnd& cut)
{
    tsFrameNews news;
    if (!EndFrame(news, item, cut, true)) return true;
    const tcDeliveryScope scope(*this);
    {
        const tcUnlocked unlocked(lock);
        mpExtension->frameCallback.Call(mnHandle, &news.record);
    }
    const tsReadoutFacts& now = ReadoutOf(KindOf(ItemOf(item)));
    return now.runs && now.number == news.record.Readout;
}

// Enters the end of a frame into the books, and that of its readout where it is the last.
tsFrameEnd tcVXCamera::CloseFrame(teFrameKind kind, bool completes)
{
    const bool isUnderrun = IsInTurn(kind) && mpExtension->readouts[kind].isUnderrun;
    const tsFrameEnd end = mpLedger->DeliverFrame(kind, completes, isUnderrun);
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

// The part of a frame's record that every pixel width shares. What is told of the sensor is what
// the buffer has, whatever the camera told since.
tsImageData tcVXCamera::DescribeFrame(const tsRequestItem& item)
{
    tsImageData image{};
    {
        std::lock_guard<std::mutex> lock(mAreaMutex);
        image.AreaFirstColumn = maArea[0];
        image.AreaFirstRow = maArea[1];
    }
    const tsImageLimits limits = LimitsOf(item, item.result1);
    image.SensorColumns = static_cast<int32_t>(limits.columns);
    image.SensorRows = static_cast<int32_t>(limits.rows);
    if (IsPacked(KindOf(ItemOf(item)))) image.AreaFirstColumn = image.AreaFirstRow = 0;
    image.FrameIndex = static_cast<int32_t>(mnFrameIndex);
    image.ImageBuffer = item.result1;
    return image;
}

// Of a frame whose rows and columns are those of its packets; of another sensor's frame, as far as
// its buffer has them.
template <class Packet>
tsImageData tcVXCamera::DescribeFrame(const tsRequestItem& item, int32_t rows, const Packet& last)
{
    tsImageData image = DescribeFrame(item);
    image.Rows = rows;
    image.Columns = last.LastColumn - last.FirstColumn + 1;
    const bool isOfAnother = static_cast<uint32_t>(image.SensorRows) != mnRows ||
                             static_cast<uint32_t>(image.SensorColumns) != mnColumns;
    if (image.ImageBuffer != nullptr && isOfAnother && LimitsOf(item, item.result1).known) {
        image.Rows = std::min(image.Rows, image.SensorRows);
        image.Columns = std::min(image.Columns, image.SensorColumns);
    }
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
    const tsFrameEnd end = CloseFrame(KindOf(ItemOf(item)), completes);
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

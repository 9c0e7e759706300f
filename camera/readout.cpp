// Readout: start it, progress, abort, what its buffer holds.
#include "tcExtension.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr int gnAbortLimit = 50; // ms that the sending of an abort may take

} // namespace

// Arms the item of a readout whose command is then to be sent: the readout's number, or 0 when one
// is running. The area's fields of `command` are what the readout's record tells.
uint32_t tcVXCamera::StartReadout(int item, teReadoutKind kind, void* buffer,
                                  unsigned short* maximum, short frames, tsReadAreaMsg* command)
{
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    LevelAreaItems();
    // Both kinds of area readout are the camera's one.
    const bool isBusy = (item == eItemImage8 && maItems[eItemImage16].IsPending()) ||
                        (item == eItemImage16 && mpExtension->readouts[eFrame8].runs);
    // What takes memory comes before the item is armed.
    tsReadoutFacts facts = PlanReadout(KindOf(item), kind, buffer == nullptr);
    if (isBusy || InitReqStackItem(item, 1) != eVXOk) {
        tcLedger::Add(mpLedger->Figures().RequestsBusy);
        return 0;
    }
    if (command != nullptr) {
        const auto& [column, row, columns, rows] = facts.command;
        *command = {column, row, columns, rows, 0, 0};
    }
    tsRequestItem& request = maItems[item];
    mpLedger->BeginReadout(KindOf(item), static_cast<uint16_t>(frames));
    mnPacketsReceived = 0;
    request.result1 = buffer != nullptr ? buffer : facts.isInTurn ? nullptr : mpDefaultBuffer.get();
    request.result2 = maximum;
    if (maximum != nullptr) *maximum = 0;
    request.frameLimit = static_cast<uint32_t>(frames);
    (item == eItemImage32 ? mnExpectedPackets32 : mnExpectedPackets16) = -1;
    mnFrameIndex = 1;
    request.limits = LimitsToRead(facts, item == eItemImage8 ? 1 : item == eItemImage16 ? 2 : 4);
    mbOutsideReported = false;
    ++mnReadoutSerial;
    BeginReadoutFacts(KindOf(item), std::move(facts));
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
    tsReadAreaMsg read{};
    const uint32_t number = StartReadout(item, eReadoutArea, buffer, nullptr, frames, &read);
    if (number == 0) {
        const tsRequestItem& busy = maItems[item];
        mLog.logError("tcVXCamera::%s already in progress! %d,%d", operation,
                      busy.respNeeded.load(), busy.respCount.load());
        return eVXFailed;
    }
    read.Frames = static_cast<uint16_t>(frames);
    read.Flags = flags;
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
try {
    const uint32_t number = StartReadout(eItemImage32, eReadoutBinned, buffer, maximum, frames);
    if (number == 0) return eVXFailed;
    return SendReadout("ReadCCDBinned", eItemImage32, number, cmdReadCCDBinned,
                       {static_cast<uint16_t>(frames), mode, {}});
} catch (const std::bad_alloc&) { // before anything had begun
    mLog.logError("tcVXCamera::ReadCCDBinned no memory");
    return eVXFailed;
}

int tcVXCamera::ReadCCDMaskBinned(long* buffer, unsigned short* maximum, short frames,
                                  unsigned short mode)
try {
    const uint32_t number = StartReadout(eItemImage32, eReadoutMaskBinned, buffer, maximum, frames);
    if (number == 0) return eVXFailed;
    return SendReadout("ReadCCDMaskBinned", eItemImage32, number, cmdReadCCDMaskBinned,
                       {static_cast<uint16_t>(frames), mode});
} catch (const std::bad_alloc&) { // before anything had begun
    mLog.logError("tcVXCamera::ReadCCDMaskBinned no memory");
    return eVXFailed;
}

int tcVXCamera::AbortRead()
{
    mLog.logDebug(4, "tcVXCamera::AbortRead Entered");
    tsMsgHeader message{};
    message.MsgId = cmdAbortRead.Row().id;
    const int result = SendMessageWithin(&message, gnAbortLimit);
    if (result != eVXOk) mLog.logError("tcVXCamera::AbortRead could not send");
    GiveUpReadout();
    return result;
}

int tcVXCamera::GiveUpReadout()
{
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
    return eVXOk;
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

// What an application that went by the hardware information has room for.
tsImageLimits tcVXCamera::ToldLimits() const
{
    const uint32_t rows = mnRows, columns = mnColumns;
    return {mbGeometryTold, rows, columns, uint64_t{rows} * columns};
}

// What may be stored of a readout in the application's buffer. Where the sensor's rows are open,
// the rows that are read are all the room that it can be expected to have.
tsImageLimits tcVXCamera::LimitsToRead(const tsReadoutFacts& facts, uint32_t pixelBytes)
{
    constexpr uint32_t open = 65535;
    tsImageLimits limits = facts.sensor;
    if (facts.isInTurn) {
        limits = {true, facts.packing.Rows(), facts.packing.Stride(), 0};
        const uint64_t room = facts.bufferBytes / pixelBytes;
        limits.pixels = std::min(room, uint64_t{limits.rows} * limits.columns);
        if (limits.columns > 0) {
            limits.rows = static_cast<uint32_t>(limits.pixels / limits.columns);
        }
        return limits;
    }
    if (limits.rows == open && !facts.regions.empty()) {
        uint32_t reach = 0;
        for (const tsRegion& region : facts.regions) {
            reach = std::max(reach, region.row + region.rows);
        }
        limits.rows = std::min(reach, open);
    }
    limits.pixels = uint64_t{limits.rows} * limits.columns;
    return limits;
}

// What may be stored in a buffer that packets of the item's width go to.
tsImageLimits tcVXCamera::LimitsOf(const tsRequestItem& item, const void* buffer)
{
    if (buffer == nullptr) return ToldLimits();
    if (buffer == mpDefaultBuffer.get()) return mtDefaultLimits;
    return buffer == item.result1 && item.limits.known ? item.limits : ToldLimits();
}

void tcVXCamera::ReArmImage(tsRequestItem& item)
{
    const int overridden = mnImageTimeoutOverride;
    item.timeout = overridden == 0 ? gnImageTimeout : overridden < 0 ? 0x7FFFFFFF : overridden;
}

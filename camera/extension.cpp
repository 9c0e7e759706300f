// Beyond the described interface: what vxcamext.h has told to the application.
#include "tcExtension.h"
#include "tcLedger.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr unsigned gnAllTaps =
    eTapBytesReceived | eTapBytesSent | eTapMessagesReceived | eTapMessagesSent | eTapLink;

// Of the cameras that this thread opens.
struct tsOpeningTap {
    unsigned what = 0;
    tpTapCallback callback = nullptr;
    void* user = nullptr;
};
thread_local tsOpeningTap tOpeningTap;

} // namespace

template <class Callback>
int tcVXCamera::SetSlot(tcCallbackSlot<Callback>& slot, Callback callback, void* user)
{
    const bool waits = CallingCamera() == nullptr && !tcCallbackScope::IsInside();
    slot.Set(callback, user, waits);
    return eVXOk;
}

int tcVXCamera::SetFrameCallback(tpFrameCallback callback, void* user)
{
    return SetSlot(mpExtension->frameCallback, callback, user);
}

int tcVXCamera::SetLinkCallback(tpLinkCallback callback, void* user)
{
    return SetSlot(mpExtension->linkCallback, callback, user);
}

int tcVXCamera::SetHeartBeatRecordCallback(tpHeartBeatRecordCallback callback, void* user)
{
    return SetSlot(mpExtension->heartBeatCallback, callback, user);
}

int tcVXCamera::SetCameraErrorCallback(tpCameraErrorCallback callback, void* user)
{
    return SetSlot(mpExtension->errorCallback, callback, user);
}

int tcVXCamera::SetTap(unsigned what, tpTapCallback callback, void* user)
{
    if ((what & ~gnAllTaps) != 0) return eVXArgument;
    mpExtension->tapped = 0;
    const bool waits = CallingCamera() == nullptr && !tcCallbackScope::IsInside();
    mpExtension->tap.Set(callback, user, waits, what);
    if (callback != nullptr) mpExtension->tapped = what;
    return eVXOk;
}

int tcVXCamera::SetOpeningTap(unsigned what, tpTapCallback callback, void* user)
{
    if ((what & ~gnAllTaps) != 0) return eVXArgument;
    tOpeningTap = {what, callback, user};
    return eVXOk;
}

void tcVXCamera::TakeOpeningTap()
{
    if (tOpeningTap.callback == nullptr) return;
    SetTap(tOpeningTap.what, tOpeningTap.callback, tOpeningTap.user);
}

void tcVXCamera::TellTap(unsigned what, const void* bytes, size_t length, uint32_t event,
                         const tsMoment* time)
{
    if ((mpExtension->tapped.load(std::memory_order_relaxed) & what) == 0) return;
    tsTapRecord record{};
    record.Size = sizeof record;
    record.What = what;
    record.Time = time != nullptr ? *time : ThisMoment();
    record.Bytes = static_cast<const uint8_t*>(bytes);
    record.Length = static_cast<uint32_t>(length);
    record.Event = event;
    mpExtension->tap.CallFor(what, mnHandle, &record); // which may be another one by now
}

// ---- Buffers in turn ----------------------------------------------------------------------------

bool tcVXCamera::IsReading() const
{
    for (const int item : {eItemImage16, eItemImage32}) {
        if (maItems[item].IsPending()) return true;
    }
    return mpExtension->readouts[eFrame8].runs;
}

int tcVXCamera::SetImageBuffers(void* const* buffers, int count, size_t bytes)
try {
    const tStackLock lock(mStackMutex);
    LevelAreaItems();
    if (IsReading()) return eVXFailed;
    return mpExtension->buffers.Set(buffers, count, bytes) ? eVXOk : eVXArgument;
} catch (const std::bad_alloc&) { // the buffers stay as they were
    mLog.logError("tcVXCamera::SetImageBuffers no memory");
    return eVXFailed;
}

int tcVXCamera::ReturnImageBuffer(void* buffer)
{
    return mpExtension->buffers.Return(buffer) ? eVXOk : eVXArgument;
}

int tcVXCamera::ReadoutResult()
{
    return mpExtension->readoutEnd.Result();
}

// ---- What a camera tells unasked ----------------------------------------------------------------

void tcVXCamera::LinkLost()
{
    tcLedger::Add(mpLedger->Figures().ConnectionsLost);
    mpExtension->order = {};
    tcWords words;
    {
        const tStackLock lock(mStackMutex);
        for (tsReadoutFacts& readout : mpExtension->readouts) {
            if (readout.runs) mpExtension->readoutEnd.End(readout.number, eReadoutLinkLost);
        }
        for (tcFrameAccount& frame : mpExtension->frames) {
            frame.Interrupt();
        }
        for (tsLeftover& leftover : mpExtension->leftovers) {
            leftover = {};
        }
        std::swap(words, mpExtension->lastWords);
        if (mbShakingHands) EndHandshake(words.Text());
    }
    TellLink(eLinkLost, words.Text());
}

void tcVXCamera::LinkRestored()
{
    tcLedger::Add(mpLedger->Figures().Reconnects);
    TellLink(eLinkRestored, "");
}

void tcVXCamera::TellHeartBeat(const tuCameraMessages& message)
{
    if (!mpExtension->heartBeatCallback.IsSet()) return;
    tsHeartBeatRecord record{};
    record.Size = sizeof record;
    record.Bytes = message.header.Length;
    record.Payload = message.bytes + gnHeaderBytes;
    record.CCDTemp = static_cast<int16_t>(mnCCDTemp.load());
    record.BoardTemp = static_cast<int16_t>(mnBoardTemp.load());
    record.Time = ThisMoment();
    mpExtension->heartBeatCallback.Call(mnHandle, &record);
}

void tcVXCamera::TellCameraError(uint32_t code, uint32_t subCode, const char* text)
{
    uint32_t running = 0;
    {
        const tStackLock lock(mStackMutex);
        mpExtension->lastWords.Set(text);
        for (const tsReadoutFacts& readout : mpExtension->readouts) {
            if (readout.runs) running = std::max(running, readout.number);
        }
    }
    if (!mpExtension->errorCallback.IsSet()) return;
    const tsCameraErrorRecord record{sizeof record, code, subCode, running, text, ThisMoment()};
    mpExtension->errorCallback.Call(mnHandle, &record);
}

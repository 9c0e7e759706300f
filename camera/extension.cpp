// Beyond the described interface: what vxcamext.h has told to the application.
#include "tcExtension.h"
#include "tcLedger.h"

#include <algorithm>
#include <utility>

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

int tcVXCamera::ReadoutResult()
{
    return mpExtension->readoutEnd.Result();
}

// ---- What a camera tells unasked ----------------------------------------------------------------

void tcVXCamera::LinkLost()
{
    tcLedger::Add(mpLedger->Figures().ConnectionsLost);
    tcWords words;
    {
        const tStackLock lock(mStackMutex);
        for (tsReadoutFacts& readout : mpExtension->readouts) {
            if (readout.runs) mpExtension->readoutEnd.End(readout.number, eReadoutLinkLost);
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

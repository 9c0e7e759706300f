// What the camera has done so far, and the figures of its link.
#include "tcExtension.h"
#include "tcVXCamera.h"

#include "swallowed.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t gnFirstStatistics = 288; // bytes of the record's first version

// How far a counter of 32 bits, which wraps, has come. A parser that was reset begins again.
uint32_t Advance(uint32_t now, uint32_t& seen)
{
    constexpr uint32_t most = 0x7FFFFFFF; // in one call
    const uint32_t advance = now - seen;
    seen = now;
    return advance <= most ? advance : now;
}

} // namespace

int tcVXCamera::CheckStatistics(const tsStatistics* statistics, int size)
{
    if (statistics == nullptr) return eVXArgument;
    return size < static_cast<int>(gnFirstStatistics) ? eVXSize : eVXOk;
}

int tcVXCamera::GetStatistics(tsStatistics* statistics, int size) const
{
    const int result = CheckStatistics(statistics, size);
    if (result != eVXOk) return result;
    const tsStatistics figures = mpLedger->Read();
    const size_t room = static_cast<size_t>(size), known = std::min(room, sizeof figures);
    memcpy(statistics, &figures, known);
    memset(reinterpret_cast<char*>(statistics) + known, 0, room - known);
    return eVXOk;
}

uint64_t tcVXCamera::PixelsOutside() const
{
    return mpLedger->Read().PixelsOutside;
}

void tcVXCamera::CountReceived(const void* data, int bytes)
{
    TellTap(eTapBytesReceived, data, static_cast<size_t>(bytes));
    tcLedger::Add(mpLedger->Figures().BytesReceived, static_cast<uint64_t>(bytes));
    mpExtension->received = {static_cast<const uint8_t*>(data), static_cast<uint32_t>(bytes),
                             mpParser->BytesIn};
}

bool tcVXCamera::NoteRead(int64_t begun, int bytes, bool isAll)
{
    tcArrivals& arrivals = mpExtension->arrivals;
    const uint32_t position = mpParser->BytesIn;
    const uint32_t end = position + static_cast<uint32_t>(std::max(bytes, 0));
    arrivals.BeginRead(position, static_cast<uint32_t>(mpParser->Pending()));
    if (isAll) arrivals.Mark(end, begun, true);
    mpExtension->readEnd = end;
    return !isAll && arrivals.IsPassed(end);
}

void tcVXCamera::NoteWaiting(int64_t time, int bytes)
{
    mpExtension->arrivals.Mark(mpExtension->readEnd + static_cast<uint32_t>(bytes), time, false);
}

// A moment at which a message that is being dispatched had not come yet; see tcArrivals.
int64_t tcVXCamera::ArrivedAfter(const tsMsgHeader& message) const
{
    return mpExtension->arrivals.After(mpParser->BytesIn - gnHeaderBytes - message.Length);
}

// Whether the header of the camera's next message has come and stands right behind this one, which
// is being dispatched. A message that was cut short, and so filled up with others, is not followed
// so: what stands behind it is the rest of one, or one that was counted later.
bool tcVXCamera::IsFollowedInOrder(const tsMsgHeader& message) const
{
    if (!mpExtension->order.IsKept()) return false;
    const tsReceived& received = mpExtension->received;
    const uint32_t taken = mpParser->BytesIn - received.bytesBefore;
    if (taken > received.length || received.length - taken < gnHeaderBytes) return false;
    tsMsgHeader next;
    memcpy(&next, received.bytes + taken, sizeof next);
    return next.Magic == gnMessageMagic && next.IDD == gnInterfaceVersion &&
           next.SeqNo == (message.SeqNo + 1U) % 256 && !MayHoldAllNumbers(message);
}

void tcVXCamera::CountParsed()
{
    const tcCamParser& parser = *mpParser;
    if (parser.SkippedBytes == mnSkippedSeen && parser.ChecksumErrors == mnChecksumErrorsSeen)
        return;
    tsStatistics& figures = mpLedger->Figures();
    tcLedger::Add(figures.BytesSkipped, Advance(mpParser->SkippedBytes, mnSkippedSeen));
    tcLedger::Add(figures.ChecksumErrors, Advance(mpParser->ChecksumErrors, mnChecksumErrorsSeen));
}

void tcVXCamera::CountSent(const tsMsgHeader* frame, int bytes, bool isWhole, const tsMoment& begun)
{
    TellTap(eTapBytesSent, frame, static_cast<size_t>(bytes), 0, &begun);
    if (isWhole) TellTap(eTapMessagesSent, frame, static_cast<size_t>(bytes), 0, &begun);
    tsStatistics& figures = mpLedger->Figures();
    tcLedger::Add(figures.BytesSent, static_cast<uint64_t>(bytes));
    if (isWhole) tcLedger::Add(figures.MessagesSent);
}

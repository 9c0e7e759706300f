#include "tcLedger.h"

#include <algorithm>
#include <thread>

// ---- Packets of one frame -----------------------------------------------------------------------

tcFrameTrack::tePacket tcFrameTrack::Note(uint32_t number)
{
    const uint32_t held = mnHeld, last = mnLast;
    mnHeld = 0;
    mnLast = number;
    uint64_t& word = maNoted[number / gnWordBits];
    const uint64_t bit = uint64_t{1} << number % gnWordBits;
    if ((word & bit) == 0) {
        word |= bit;
        mnWords = std::max(mnWords, number / gnWordBits + 1);
        ++mnNoted;
        return eNew;
    }
    if (held != 0 && number > held) return eRestart;
    if (number < last) mnHeld = number;
    return mnHeld != 0 ? eHeld : eRepeated;
}

void tcFrameTrack::BeginAgain(uint32_t first, uint32_t second)
{
    Clear();
    Note(first);
    Note(second);
}

bool tcFrameTrack::Withdraw()
{
    uint64_t& word = maNoted[mnLast / gnWordBits];
    const uint64_t bit = uint64_t{1} << mnLast % gnWordBits;
    if ((word & bit) == 0) return false;
    word &= ~bit;
    --mnNoted;
    return true;
}

void tcFrameTrack::Clear()
{
    std::fill_n(maNoted, mnWords, 0);
    mnNoted = mnTotal = mnWords = 0;
    mnLast = mnHeld = 0;
    mbDamaged = false;
}

uint32_t tcFrameTrack::NotedWithin(uint32_t total) const
{
    uint64_t mask = ~uint64_t{0} << total % gnWordBits << 1; // the numbers beyond, in a word
    int beyond = 0;
    for (uint32_t word = total / gnWordBits; word < mnWords; ++word) {
        beyond += __builtin_popcountll(maNoted[word] & mask);
        mask = ~uint64_t{0};
    }
    return mnNoted - static_cast<uint32_t>(beyond);
}

// ---- Figures ------------------------------------------------------------------------------------

void tcLedger::Subtract(uint64_t& figure, uint64_t amount)
{
    Set(figure, __atomic_load_n(&figure, __ATOMIC_RELAXED) - amount);
}

tcLedger::tcChange::tcChange(tcLedger& ledger) : mLedger(ledger)
{
    mLedger.mnChanges.store(mLedger.mnChanges.load(std::memory_order_relaxed) + 1,
                            std::memory_order_relaxed);
}

tcLedger::tcChange::~tcChange()
{
    mLedger.mnChanges.store(mLedger.mnChanges.load(std::memory_order_relaxed) + 1,
                            std::memory_order_release);
}

tsStatistics tcLedger::Read() const
{
    constexpr size_t count = sizeof(tsStatistics) / sizeof(uint64_t);
    static_assert(sizeof(tsStatistics) == count * sizeof(uint64_t), "figures of one width");
    tsStatistics copy;
    const auto* from = reinterpret_cast<const uint64_t*>(&mtFigures);
    auto* to = reinterpret_cast<uint64_t*>(&copy);
    for (;;) {
        const uint32_t before = mnChanges.load(std::memory_order_acquire);
        for (size_t i = 0; i < count; ++i) {
            to[i] = __atomic_load_n(from + i, __ATOMIC_ACQUIRE);
        }
        const bool isOdd = before % 2 != 0;
        if (!isOdd && mnChanges.load(std::memory_order_relaxed) == before) return copy;
        std::this_thread::yield();
    }
}

// ---- Requests -----------------------------------------------------------------------------------

void tcLedger::BeginRequest()
{
    const tcChange change(*this);
    Add(mtFigures.RequestsSent);
    Add(mtFigures.RequestsPending);
}

void tcLedger::EndRequest(teOutcome outcome)
{
    const tcChange change(*this);
    Subtract(mtFigures.RequestsPending);
    Add(outcome == eAnswered   ? mtFigures.RequestsAnswered
        : outcome == eTimedOut ? mtFigures.RequestsTimedOut
                               : mtFigures.RequestsFailed);
}

// ---- Readouts -----------------------------------------------------------------------------------

void tcLedger::BeginReadout(teFrameKind kind, uint32_t frames)
{
    EndReadout(kind, eAborted);
    const tcChange change(*this);
    tsAsked& asked = AskedOf(kind);
    asked.isEndless = frames == 0;
    asked.pending = asked.isEndless ? 1 : frames;
    Add(mtFigures.FramesRequested, asked.pending);
    Add(mtFigures.FramesPending, asked.pending);
}

uint32_t tcLedger::EndReadout(teFrameKind kind, teUndelivered how)
{
    const tcChange change(*this);
    tsAsked& asked = AskedOf(kind);
    const uint32_t undelivered = asked.pending;
    const bool wasWanted = undelivered > 0 && how == eLost;
    EndTrack(maTracks[kind], wasWanted);
    if (kind == eFrame16) EndTrack(maTracks[eFrame8], wasWanted);
    if (kind == eFrame8) EndTrack(maTracks[eFrame16], wasWanted);
    EndAsked(asked, how == eLost ? mtFigures.FramesFailed : mtFigures.FramesAborted, undelivered);
    asked.isEndless = false;
    return undelivered;
}

void tcLedger::EndAsked(tsAsked& asked, uint64_t& figure, uint32_t frames)
{
    asked.pending -= frames;
    Subtract(mtFigures.FramesPending, frames);
    Add(figure, frames);
}

tsFrameEnd tcLedger::TakePacket(teFrameKind kind, const tsPacketFacts& packet)
{
    const tcChange change(*this);
    tcFrameTrack& track = maTracks[kind];
    Add(mtFigures.PacketsReceived);
    const bool isWhole = packet.isWhole && !packet.isDamaged;
    if (packet.isDamaged) {
        Add(mtFigures.PacketsDamaged);
        track.Damage();
    }
    if (!isWhole || packet.number == 0) {
        ReleaseHeld(track);
        track.Expect(packet.total);
        Add(isWhole ? mtFigures.PacketsStray : mtFigures.PacketsShort);
        return {};
    }
    // Cameras that say so in the very last packet only do not tell anything by that.
    const bool isOfAnother =
        track.Noted() > 0 && packet.isOfLast != track.IsOfLast() && packet.number < packet.total;
    tsFrameEnd cut = isOfAnother ? BeginLastFrame(kind) : tsFrameEnd{};
    track.SetOfLast(packet.isOfLast);
    const uint32_t held = track.Held();
    const tcFrameTrack::tePacket found = track.Note(packet.number);
    if (found == tcFrameTrack::eRestart) {
        Subtract(mtFigures.PacketsRunning); // the one held, which the new frame counts
        cut = EndTrack(track, true);
        LoseCutFrame(AskedOf(kind));
        track.BeginAgain(held, packet.number);
        Add(mtFigures.PacketsRunning, 2);
    } else {
        if (held != 0) {
            Subtract(mtFigures.PacketsRunning);
            Add(mtFigures.PacketsDuplicate);
        }
        const bool isRepeated = found == tcFrameTrack::eRepeated;
        Add(isRepeated ? mtFigures.PacketsDuplicate : mtFigures.PacketsRunning);
    }
    track.Expect(packet.total);
    cut.isHeld = found == tcFrameTrack::eHeld;
    return cut;
}

// All packets of a readout's last frame say so, and none of the others: with the first that does,
// the frame before has ended.
tsFrameEnd tcLedger::BeginLastFrame(teFrameKind kind)
{
    const bool hadHeld = maTracks[kind].Held() != 0;
    tsFrameEnd cut = EndTrack(maTracks[kind], true);
    cut.hadHeld = hadHeld;
    LoseCutFrame(AskedOf(kind));
    return cut;
}

// A frame that lost its end makes way for the next one. The last frame asked for is not given up,
// since it may be that one that runs now.
void tcLedger::LoseCutFrame(tsAsked& asked)
{
    if (asked.isEndless) {
        Add(mtFigures.FramesRequested);
        Add(mtFigures.FramesFailed);
    } else if (asked.pending > 1) {
        EndAsked(asked, mtFigures.FramesFailed);
    }
}

void tcLedger::SuspectLast(teFrameKind kind)
{
    const tcChange change(*this);
    tcFrameTrack& track = maTracks[kind];
    const bool wasHeld = track.Held() != 0;
    track.Release();
    if (!wasHeld && !track.Withdraw()) return;
    Subtract(mtFigures.PacketsRunning);
    Add(mtFigures.PacketsShort);
    Add(mtFigures.PacketsDamaged);
    track.Damage();
}

void tcLedger::TakeStrayPacket()
{
    const tcChange change(*this);
    Add(mtFigures.PacketsReceived);
    Add(mtFigures.PacketsStray);
}

tsFrameEnd tcLedger::DeliverFrame(teFrameKind kind, bool isLast, bool isUnderrun)
{
    const tcChange change(*this);
    const tsFrameEnd end = EndTrack(maTracks[kind], true);
    Set(mtFigures.LastFramePackets, end.packets);
    Set(mtFigures.LastFrameMissing, end.missing);
    tsAsked& asked = AskedOf(kind);
    if (asked.pending == 0) {
        Add(mtFigures.FramesUnasked);
        return end;
    }
    if (isUnderrun) Add(mtFigures.FramesUnderrun);
    EndAsked(asked, isUnderrun         ? mtFigures.FramesFailed
                    : end.IsComplete() ? mtFigures.FramesComplete
                                       : mtFigures.FramesIncomplete);
    if (asked.isEndless && !isLast) {
        asked.pending = 1;
        Add(mtFigures.FramesRequested);
        Add(mtFigures.FramesPending);
    }
    return end;
}

// What was held is a repetition after all.
void tcLedger::ReleaseHeld(tcFrameTrack& track)
{
    if (track.Held() == 0) return;
    Subtract(mtFigures.PacketsRunning);
    Add(mtFigures.PacketsDuplicate);
    track.Release();
}

// The packets of a frame that was not wanted count as expected only where they came.
tsFrameEnd tcLedger::EndTrack(tcFrameTrack& track, bool wasWanted)
{
    ReleaseHeld(track);
    const uint32_t noted = track.Noted();
    const uint32_t within = track.NotedWithin(track.Total());
    const tsFrameEnd end{track.Total(), track.Total() - within, track.IsDamaged()};
    Subtract(mtFigures.PacketsRunning, noted);
    Add(mtFigures.PacketsStray, noted - within);
    Add(mtFigures.PacketsExpected, within + (wasWanted ? end.missing : 0));
    Add(mtFigures.PacketsMissing, wasWanted ? end.missing : 0);
    track.Clear();
    return end;
}

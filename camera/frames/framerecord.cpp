// The record of a frame: what the application is told of it beside its pixels.
#include "tcExtension.h"

#include <algorithm>
#include <utility>

namespace {

// The smallest rectangle around them; empty without any.
tsRegion Around(const std::vector<tsRegion>& regions)
{
    if (regions.empty()) return {};
    tsRegion whole = regions[0];
    for (const tsRegion& region : regions) {
        const uint32_t bottom = std::max(whole.row + whole.rows, region.row + region.rows);
        const uint32_t right =
            std::max(whole.column + whole.columns, region.column + region.columns);
        whole.row = std::min(whole.row, region.row);
        whole.column = std::min(whole.column, region.column);
        whole.rows = bottom - whole.row;
        whole.columns = right - whole.column;
    }
    return whole;
}

bool Encloses(const tsRegion& outer, const tsRegion& inner)
{
    return inner.row >= outer.row && inner.column >= outer.column &&
           inner.row + inner.rows <= outer.row + outer.rows &&
           inner.column + inner.columns <= outer.column + outer.columns;
}

void Clip(tsRegion& region, const tsImageLimits& limits)
{
    if (!limits.known) return;
    region.row = std::min(region.row, limits.rows);
    region.column = std::min(region.column, limits.columns);
    region.rows = std::min(region.rows, limits.rows - region.row);
    region.columns = std::min(region.columns, limits.columns - region.column);
}

// What the frame shows: what was asked for, as long as nothing came from elsewhere.
tsRegion Shown(const std::vector<tsRegion>& asked, const tsPacketPlace* places, uint32_t total)
{
    const tsRegion around = Around(asked);
    if (places == nullptr) return around;
    const std::optional<tsRegion> bounds = FindBounds(places, total);
    if (!bounds || (!asked.empty() && Encloses(around, *bounds))) return around;
    return GuessRegion(places, total).value_or(*bounds);
}

std::vector<uint8_t> MissingBits(const tsPacketPlace* places, uint32_t total)
{
    std::vector<uint8_t> bits((total + 7) / 8);
    for (uint32_t i = 0; i < total; ++i) {
        if (places[i].arrival <= eDamaged) bits[i / 8] |= static_cast<uint8_t>(1U << i % 8);
    }
    return bits;
}

// Rows of the sensor as those of what is shown; what lies elsewhere goes.
void MakeRelative(std::vector<uint32_t>& rows, const tsRegion& shown)
{
    const auto isElsewhere = [&](uint32_t row) {
        return row < shown.row || row - shown.row >= shown.rows;
    };
    rows.erase(std::remove_if(rows.begin(), rows.end(), isElsewhere), rows.end());
    for (uint32_t& row : rows) {
        row -= shown.row;
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
}

} // namespace

// ---- Readouts -----------------------------------------------------------------------------------

// A readout as it would be if it were started now; throws for want of memory. `isIntoOwn`: the
// application gives no buffer with it.
tsReadoutFacts tcVXCamera::PlanReadout(teFrameKind frames, teReadoutKind kind, bool isIntoOwn)
{
    tsReadoutFacts facts;
    facts.kind = kind;
    facts.sensor = ToldLimits();
    facts.exposure = static_cast<uint32_t>(mnExposure);
    if (kind == eReadoutArea) {
        facts.regions = RegionsToRead(facts.command);
        const tsRegion around = Around(facts.regions);
        const uint32_t area[] = {around.column, around.row, around.columns, around.rows};
        std::copy(std::begin(area), std::end(area), facts.area);
    }
    facts.bufferBytes = isIntoOwn ? mpExtension->buffers.Bytes() : 0;
    facts.isInTurn = facts.bufferBytes > 0;
    if (facts.isInTurn) {
        const tsRegion sensor{0, 0, facts.sensor.rows, facts.sensor.columns};
        facts.packing =
            tcPacking(facts.regions.empty() ? std::vector<tsRegion>{sensor} : facts.regions);
        auto& held = mpExtension->held[frames];
        if (!held) held = std::make_unique<tsHeldPacket>();
    }
    facts.commandBegun = ThisMoment();
    return facts;
}

void tcVXCamera::BeginReadoutFacts(teFrameKind frames, tsReadoutFacts&& facts)
{
    ForgetFrames(frames);
    facts.number = mnReadoutSerial;
    facts.runs = true;
    mpExtension->readouts[frames] = std::move(facts);
    mpExtension->readoutEnd.Begin(mnReadoutSerial);
    if (frames == eFrame8) mbReadsBytes = true;
}

// What has come of a frame is not wanted any more; nor will its rest be. Frames of 8 and of 16 bits
// answer the same readouts.
void tcVXCamera::ForgetFrames(teFrameKind frames)
{
    for (const teFrameKind kind : {eFrame16, eFrame8, eFrame32}) {
        if ((kind == eFrame32) != (frames == eFrame32)) continue;
        tcFrameAccount& account = mpExtension->frames[kind];
        if (account.IsRunning())
            mpExtension->leftovers[kind] = {account.Last(), account.Total(), false};
        account.Clear();
        ForgetHeld(kind);
    }
    tsLastPacket& last = mpExtension->lastPacket;
    if ((last.kind == eFrame32) == (frames == eFrame32)) last = {};
}

// Whether a packet belongs to the frame that an earlier readout was given up in: the packets of
// that one go on exactly where they were, and a frame of this readout would begin with number 1.
// The packet is booked then, and that is all.
bool tcVXCamera::IsLeftover(teFrameKind frames, uint32_t number, uint32_t total)
{
    tsLeftover& leftover = mpExtension->leftovers[frames];
    if (leftover.last == 0) return false;
    const bool isNext = leftover.goesOn ? number > leftover.last : number == leftover.last + 1;
    const bool isRest = isNext && number <= total && total == leftover.total;
    if (!ReadoutOf(frames).runs || !isRest || mpExtension->frames[frames].IsRunning()) {
        leftover = {};
        return false;
    }
    leftover.last = number < total ? number : 0;
    leftover.goesOn = true;
    mpLedger->TakeStrayPacket();
    return true;
}

// The command has been handed over, or not. The readout may have ended meanwhile, and another one
// have begun.
void tcVXCamera::NoteCommandSent(teFrameKind frames, uint32_t number, bool isSent)
{
    const tsMoment now = ThisMoment();
    const tStackLock lock(mStackMutex);
    if (!isSent) mpExtension->readoutEnd.End(number, eReadoutNotSent);
    tsReadoutFacts& facts = mpExtension->readouts[frames];
    if (isSent && facts.number == number) facts.commandSent = now;
}

// The readout that frames belong to: 8-bit frames may also answer a readout of 16 bits.
tsReadoutFacts& tcVXCamera::ReadoutOf(teFrameKind frames)
{
    tsReadoutFacts* readouts = mpExtension->readouts;
    const bool answersArea = frames == eFrame8 && !readouts[eFrame8].runs;
    return readouts[answersArea ? eFrame16 : frames];
}

// A request ended: if it is a readout's, that has ended so.
void tcVXCamera::EndReadoutFacts(const tsRequestItem& item, teReadoutResult how)
{
    const auto index = static_cast<int>(&item - maItems);
    if (index != eItemImage16 && index != eItemImage32 && index != eItemImage8) return;
    const teFrameKind kind = KindOf(index);
    tsReadoutFacts& facts = ReadoutOf(kind);
    ForgetFrames(kind);
    if (!facts.runs) return;
    facts.runs = false;
    if (facts.isInTurn && how != eReadoutComplete) mpExtension->buffers.LendAll();
    if (kind == eFrame8) mbReadsBytes = false;
    mpExtension->readoutEnd.End(facts.number, how);
}

// What has not been delivered of a readout that ends is lost.
void tcVXCamera::LoseFrames(int item)
{
    const bool isReadout = item == eItemImage16 || item == eItemImage32 ||
                           (item == eItemImage8 && mpExtension->readouts[eFrame8].runs);
    if (isReadout) mpLedger->EndReadout(KindOf(item), tcLedger::eLost);
}

// Whether frames of a kind go to buffers in turn, and there without what lies around the area.
bool tcVXCamera::IsInTurn(teFrameKind frames) const
{
    return mpExtension->readouts[frames].runs && mpExtension->readouts[frames].isInTurn;
}

bool tcVXCamera::IsPacked(teFrameKind frames) const
{
    return IsInTurn(frames) && !mpExtension->readouts[frames].regions.empty();
}

// ---- Frames -------------------------------------------------------------------------------------

// A frame ended, with its last packet or, where it is cut, with the beginning of the next one. True
// when it is one of a readout and somebody wants to know: then its record is made. Called before
// its buffer is let go.
bool tcVXCamera::EndFrame(tsFrameNews& news, tsRequestItem& item, const tsFrameEnd& end, bool isCut)
{
    const teFrameKind kind = KindOf(ItemOf(item));
    tsReadoutFacts& facts = ReadoutOf(kind);
    tcFrameAccount& account = mpExtension->frames[kind];
    // Where frames have another width than the readout's buffers, there is none.
    const bool isStored = !facts.isInTurn || item.result1 != nullptr;
    if (end.IsComplete()) account.CheckPlaces(facts.regions, end.packets);
    if (account.HasMisfits()) {
        mLog.logError("tcVXCamera::EndFrame %u of %u packets belong elsewhere", account.Misplaced(),
                      end.packets);
    }
    const bool isWhole =
        end.IsComplete() && account.Misplaced() == 0 && account.Damaged() == 0 && isStored;
    const bool isInTurn = IsInTurn(kind);
    const bool isUnderrun = isInTurn && facts.isUnderrun;
    const bool isTold = facts.runs && mpExtension->frameCallback.IsSet();
    if (facts.runs) ++facts.frames;
    if (!isWhole || isUnderrun) mpExtension->readoutEnd.NoteFlaw(facts.number);
    if (isTold) {
        news.record.Outcome = isCut        ? eFrameCut
                              : isUnderrun ? eFrameUnderrun
                              : isWhole    ? eFrameComplete
                                           : eFrameIncomplete;
        MakeNews(news, kind, item, end);
    }
    if (isCut) {
        account.BeginAgain();
    } else {
        account.Clear();
    }
    // A buffer that nobody has been told of is used once more.
    const bool isKept = isCut && !isTold && !isUnderrun;
    if (isInTurn && !isKept) {
        facts.hasBegunFrame = false;
        item.result1 = nullptr;
    }
    facts.packing.BeginFrame();
    return isTold;
}

// The first packet of a frame is there: in a readout into buffers in turn, it gets the next one.
void tcVXCamera::BeginFrame(tsRequestItem& item)
{
    tsReadoutFacts& facts = mpExtension->readouts[KindOf(ItemOf(item))];
    if (!IsInTurn(KindOf(ItemOf(item))) || facts.hasBegunFrame) return;
    facts.hasBegunFrame = true;
    item.result1 = mpExtension->buffers.Take();
    facts.isUnderrun = item.result1 == nullptr;
    if (!facts.isUnderrun) return;
    mLog.logError("tcVXCamera::BeginFrame no image buffer is free: frame %u of the readout is lost",
                  facts.frames + 1);
}

void tcVXCamera::MakeNews(tsFrameNews& news, teFrameKind kind, const tsRequestItem& item,
                          const tsFrameEnd& end)
{
    const tsReadoutFacts& facts = ReadoutOf(kind);
    const tcFrameAccount& account = mpExtension->frames[kind];
    tsFrameRecord& record = news.record;
    record.Size = sizeof record;
    record.Kind = facts.kind;
    record.Bits = kind == eFrame8 ? 8 : kind == eFrame16 ? 16 : 32;
    record.Readout = facts.number;
    record.Frame = facts.frames;
    std::copy(std::begin(facts.area), std::end(facts.area), record.Area);
    record.SensorRows = facts.sensor.rows;
    record.SensorColumns = facts.sensor.columns;
    record.PacketsExpected = end.packets;
    record.PacketsReceived = end.packets - end.missing;
    record.PacketsMissing = end.missing;
    record.PacketsMisplaced = account.Misplaced();
    record.PacketsDamaged = account.Damaged();
    record.Exposure = facts.exposure;
    record.CommandBegun = facts.commandBegun;
    record.FirstPacket = account.FirstPacket();
    record.FirstPacketAfter = account.FirstPacketAfter();
    if (record.Outcome != eFrameCut) record.LastPacket = ThisMoment();
    // Whoever sent it may not have come to note that yet, or only when frames were coming.
    const tsMoment& sent = facts.commandSent;
    const bool isKnown = sent.Monotonic != 0 && sent.Monotonic <= account.FirstPacket().Monotonic;
    record.CommandSent = isKnown ? sent : account.FirstPacket();
    TellPlace(news, kind, item);
    if (record.Outcome != eFrameComplete) TellMissing(news, kind);
}

void tcVXCamera::TellFigures(tsFrameRecord& record, const tsImageData& image, bool isLast)
{
    record.IsLast = isLast ? 1 : 0;
    record.ImageType = static_cast<uint32_t>(image.ImageType);
    record.Statistic = image.Statistic;
    record.Extra1 = static_cast<uint32_t>(image.Extra1);
    record.Extra2 = static_cast<uint32_t>(image.Extra2);
}

// Where the frame lies in its buffer.
void tcVXCamera::TellPlace(tsFrameNews& news, teFrameKind kind, const tsRequestItem& item)
{
    tsFrameRecord& record = news.record;
    const tsReadoutFacts& facts = ReadoutOf(kind);
    const tsImageLimits limits = IsInTurn(kind) ? item.limits : LimitsOf(item, item.result1);
    record.Buffer = item.result1;
    record.Room = item.result1 != nullptr && limits.known ? limits.pixels : 0;
    record.Stride = limits.columns;
    tsRegion shown{0, 0, facts.packing.Rows(), facts.packing.Stride()};
    if (!IsPacked(kind)) {
        shown = Shown(facts.regions, mpExtension->frames[kind].Places(), record.PacketsExpected);
    }
    Clip(shown, limits);
    record.FirstRow = shown.row;
    record.FirstColumn = shown.column;
    record.Rows = shown.rows;
    record.Columns = shown.columns;
}

void tcVXCamera::TellMissing(tsFrameNews& news, teFrameKind kind)
try {
    tsFrameRecord& record = news.record;
    const tcFrameAccount& account = mpExtension->frames[kind];
    const tsPacketPlace* places = account.Places();
    if (places == nullptr) return;
    if (record.PacketsMissing > 0) {
        news.missingBits = MissingBits(places, record.PacketsExpected);
        record.MissingBits = news.missingBits.data();
    }
    const tsReadoutFacts& facts = ReadoutOf(kind);
    auto rows = FindMissingRows(facts.regions, places, record.PacketsExpected, IsPacked(kind));
    if (!rows && !account.HasMisfits()) return;
    if (rows) news.missingRows = std::move(*rows);
    std::vector<uint32_t> suspect = account.SuspectRows();
    if (IsPacked(kind)) suspect = facts.packing.FrameRows(suspect);
    news.missingRows.insert(news.missingRows.end(), suspect.begin(), suspect.end());
    MakeRelative(news.missingRows,
                 {record.FirstRow, record.FirstColumn, record.Rows, record.Columns});
    if (news.missingRows.empty()) return;
    record.MissingRows = news.missingRows.data();
    record.MissingRowCount = static_cast<uint32_t>(news.missingRows.size());
} catch (...) { // out of memory: what has not been told yet is not known
}

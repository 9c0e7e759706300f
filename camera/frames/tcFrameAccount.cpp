#include "tcFrameAccount.h"

#include <algorithm>
#include <cstring>
#include <ctime>

static int64_t Nanoseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

tsMoment ThisMoment()
{
    return {Nanoseconds(CLOCK_MONOTONIC), Nanoseconds(CLOCK_REALTIME)};
}

// ---- Packets ------------------------------------------------------------------------------------

void tcFrameAccount::Note(uint32_t number, uint32_t total, const tsPacketPlace& place, bool isHeld)
{
    if (!IsRunning()) mtFirstPacket = ThisMoment();
    mnLast = number;
    mnTotal = total;
    mnLastRow = place.row;
    if (place.arrival == eMisplaced) ++mnMisplaced;
    if (place.arrival == eDamaged) ++mnDamaged;
    if (mtHeld) Store(mtHeld->number, mtHeld->place);
    mtHeld.reset();
    if (isHeld) {
        mtHeld = tsHeld{number, place, ThisMoment()};
    } else {
        Store(number, place);
    }
}

// What is damaged does not replace what came.
void tcFrameAccount::Store(uint32_t number, const tsPacketPlace& place)
{
    // Memory that the system hands out only as far as it is used.
    if (!mpNotes) mpNotes.reset(static_cast<tsNotes*>(calloc(1, sizeof(tsNotes))));
    mnHighest = std::max({mnHighest, number, 1U});
    if (!mpNotes) return;
    tsPacketPlace& noted = mpNotes->places[number];
    if (place.arrival >= noted.arrival) noted = place;
    if (place.arrival != eCame) Suspect(place.row);
}

void tcFrameAccount::Suspect(uint32_t row)
{
    mpNotes->suspect[row] = 1;
    mbSuspects = true;
}

void tcFrameAccount::SuspectLast()
{
    if (!IsRunning()) return;
    ++mnDamaged;
    const bool wasHeld = mtHeld.has_value(); // and what came before it under its number counts
    mtHeld.reset();
    if (!mpNotes) return;
    Suspect(mnLastRow);
    if (!wasHeld) mpNotes->places[mnLast].arrival = eDamaged;
}

void tcFrameAccount::BeginAgain()
{
    const std::optional<tsHeld> held = mtHeld;
    const uint32_t total = mnTotal;
    Clear();
    if (!held) return;
    Note(held->number, total, held->place, false);
    mtFirstPacket = held->time;
}

void tcFrameAccount::Clear()
{
    if (mpNotes && mnHighest > 0) {
        memset(mpNotes->places, 0, (size_t{mnHighest} + 1) * sizeof(tsPacketPlace));
        if (mbSuspects) memset(mpNotes->suspect, 0, sizeof mpNotes->suspect);
    }
    mnHighest = mnLast = mnTotal = mnMisplaced = mnDamaged = 0;
    mbInterrupted = mbSuspects = false;
    mtHeld.reset();
    mtFirstPacket = {};
}

const tsPacketPlace* tcFrameAccount::Places() const
{
    return mpNotes ? mpNotes->places + 1 : nullptr;
}

std::vector<uint32_t> tcFrameAccount::SuspectRows() const
{
    std::vector<uint32_t> rows;
    for (uint32_t row = 0; mbSuspects && row < gnNumbers; ++row) {
        if (mpNotes->suspect[row] != 0) rows.push_back(row);
    }
    if (mtHeld) rows.push_back(mtHeld->place.row);
    return rows;
}

// ---- Rows ---------------------------------------------------------------------------------------

std::optional<tsRegion> FindBounds(const tsPacketPlace* places, uint32_t total)
{
    uint32_t top = UINT32_MAX, left = UINT32_MAX, bottom = 0, right = 0; // exclusive
    for (uint32_t i = 0; i < total; ++i) {
        const tsPacketPlace& place = places[i];
        if (place.arrival != eCame || place.last < place.first) continue;
        top = std::min<uint32_t>(top, place.row);
        left = std::min<uint32_t>(left, place.first);
        bottom = std::max(bottom, place.row + 1U);
        right = std::max(right, place.last + 1U);
    }
    if (bottom == 0) return std::nullopt;
    return tsRegion{top, left, bottom - top, right - left};
}

std::optional<tsRegion> GuessRegion(const tsPacketPlace* places, uint32_t total)
{
    const std::optional<tsRegion> bounds = FindBounds(places, total);
    if (!bounds) return std::nullopt;
    uint32_t widest = 0, first = total;
    for (uint32_t i = 0; i < total; ++i) {
        if (places[i].arrival != eCame || places[i].last < places[i].first) continue;
        widest = std::max(widest, places[i].last - places[i].first + 1U);
        first = std::min(first, i);
    }
    const uint32_t pieces = (bounds->columns + widest - 1) / widest; // a row
    const uint32_t above = first / pieces;                           // rows before the first packet
    if (total % pieces != 0 || above > places[first].row) return std::nullopt;
    return tsRegion{places[first].row - above, bounds->column, total / pieces, bounds->columns};
}

namespace {

// Follows the packets through what they show, and notes the rows that they leave open.
class tcRowWalk
{
public:
    tcRowWalk(const std::vector<tsRegion>& regions, bool isStacked)
        : mRegions(regions), mbStacked(isStacked)
    {}

    // The next packet that came, and how many did not since the one before. False when they do not
    // fit.
    bool Step(const tsPacketPlace& place, uint32_t missing)
    {
        const size_t region = Find(place);
        if (region == mRegions.size()) return false;
        const size_t before = maRows.size();
        const bool isNext = region == mnRegion && place.row == mnRow && place.first == mnColumn;
        if (!isNext) {
            LeaveOpen(region, place.row);
            if (place.first > mRegions[region].column) Add(region, place.row);
        }
        if (isNext != (missing == 0) || maRows.size() - before > missing) return false;
        MoveBehind(region, place);
        return true;
    }

    // No packet comes any more; `missing` did not since the last one.
    bool Finish(uint32_t missing)
    {
        const size_t before = maRows.size();
        const bool isAtEnd = mnRegion == mRegions.size();
        if (!isAtEnd) LeaveOpen(mRegions.size(), 0);
        return isAtEnd == (missing == 0) && maRows.size() - before <= missing;
    }

    std::vector<uint32_t> Rows()
    {
        std::sort(maRows.begin(), maRows.end());
        maRows.erase(std::unique(maRows.begin(), maRows.end()), maRows.end());
        return std::move(maRows);
    }

private:
    bool IsBehind(size_t region, const tsPacketPlace& place) const
    {
        return region > mnRegion || place.row > mnRow ||
               (place.row == mnRow && place.first >= mnColumn);
    }

    size_t Find(const tsPacketPlace& place) const
    {
        size_t region = mnRegion;
        while (region < mRegions.size() &&
               !(mRegions[region].Holds(place) && IsBehind(region, place))) {
            ++region;
        }
        return region;
    }

    // From where the last packet ended to that row, exclusive.
    void LeaveOpen(size_t region, uint32_t row)
    {
        while (mnRegion < region) {
            const tsRegion& now = mRegions[mnRegion];
            for (; mnRow < now.row + now.rows; ++mnRow)
                Add(mnRegion, mnRow);
            BeginRegion(mnRegion + 1);
        }
        for (; region < mRegions.size() && mnRow < row; ++mnRow)
            Add(region, mnRow);
    }

    void Add(size_t region, uint32_t row)
    {
        uint32_t above = 0;
        for (size_t i = 0; mbStacked && i < region; ++i)
            above += mRegions[i].rows;
        maRows.push_back(mbStacked ? above + row - mRegions[region].row : row);
    }

    void BeginRegion(size_t region)
    {
        mnRegion = region;
        if (region == mRegions.size()) return;
        mnRow = mRegions[region].row;
        mnColumn = mRegions[region].column;
    }

    void MoveBehind(size_t region, const tsPacketPlace& place)
    {
        const tsRegion& now = mRegions[region];
        mnRegion = region;
        mnRow = place.row;
        mnColumn = place.last + 1U;
        if (mnColumn < now.column + now.columns) return;
        mnColumn = now.column;
        if (++mnRow == now.row + now.rows) BeginRegion(region + 1);
    }

    const std::vector<tsRegion>& mRegions;
    const bool mbStacked;
    size_t mnRegion = 0;              // where the next packet is expected
    uint32_t mnRow = mRegions[0].row; // likewise
    uint32_t mnColumn = mRegions[0].column;
    std::vector<uint32_t> maRows;
};

} // namespace

static std::optional<std::vector<uint32_t>> WalkRows(const std::vector<tsRegion>& regions,
                                                     const tsPacketPlace* places, uint32_t total,
                                                     bool isStacked)
{
    tcRowWalk walk(regions, isStacked);
    uint32_t missing = 0;
    for (uint32_t i = 0; i < total; ++i) {
        if (places[i].arrival != eCame) {
            ++missing;
            continue;
        }
        if (!walk.Step(places[i], missing)) return std::nullopt;
        missing = 0;
    }
    if (!walk.Finish(missing)) return std::nullopt;
    return walk.Rows();
}

std::optional<std::vector<uint32_t>> FindMissingRows(const std::vector<tsRegion>& regions,
                                                     const tsPacketPlace* places, uint32_t total,
                                                     bool isStacked)
{
    if (!regions.empty()) {
        auto rows = WalkRows(regions, places, total, isStacked);
        if (rows || isStacked) return rows;
    }
    const std::optional<tsRegion> guess = GuessRegion(places, total);
    return guess ? WalkRows({*guess}, places, total, false) : std::nullopt;
}

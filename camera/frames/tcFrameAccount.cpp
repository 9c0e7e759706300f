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

int64_t MonotonicTime()
{
    return Nanoseconds(CLOCK_MONOTONIC);
}

// A thread that is kept from running between the two clocks looks again.
tsMoment ThisMoment()
{
    constexpr int64_t together = 20000; // ns
    constexpr int tries = 8;
    tsMoment now{};
    for (int i = 0; i < tries; ++i) {
        now = {MonotonicTime(), Nanoseconds(CLOCK_REALTIME)};
        if (MonotonicTime() - now.Monotonic < together) break;
    }
    return now;
}

// ---- Packets ------------------------------------------------------------------------------------

void tcFrameAccount::Note(uint32_t number, uint32_t total, const tsPacketPlace& place, bool isHeld,
                          int64_t after)
{
    if (!IsRunning()) mtFirst = {ThisMoment(), after};
    mnLast = number;
    mnTotal = total;
    mnLastRow = place.row;
    if (place.arrival == eMisplaced) ++mnMisplaced;
    if (place.arrival == eDamaged) ++mnDamaged;
    if (mtHeld) Store(mtHeld->number, mtHeld->place);
    mtHeld.reset();
    if (isHeld) {
        mtHeld = tsHeld{number, place, {ThisMoment(), after}};
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
    Note(held->number, total, held->place, false, 0);
    mtFirst = held->arrival;
}

tsMoment tcFrameAccount::FirstPacketAfter() const
{
    if (mtFirst.after == 0) return {};
    const tsMoment& noted = mtFirst.noted;
    return {mtFirst.after, noted.Realtime - (noted.Monotonic - mtFirst.after)};
}

void tcFrameAccount::Clear()
{
    if (mpNotes && mnHighest > 0) {
        memset(mpNotes->places, 0, (size_t{mnHighest} + 1) * sizeof(tsPacketPlace));
        if (mbSuspects) memset(mpNotes->suspect, 0, sizeof mpNotes->suspect);
    }
    mnHighest = mnLast = mnTotal = mnMisplaced = mnDamaged = 0;
    mbInterrupted = mbSuspects = mbMisfits = false;
    mtHeld.reset();
    mtFirst = {};
}

// ---- Places that contradict each other ----------------------------------------------------------

namespace {

bool IsInside(const std::vector<tsRegion>& regions, const tsPacketPlace& place)
{
    return std::any_of(regions.begin(), regions.end(),
                       [&](const tsRegion& region) { return region.Holds(place); });
}

// The pixels that a row of the sensor has in a frame.
uint32_t ColumnsOf(const std::vector<tsRegion>& regions, uint32_t row)
{
    uint32_t columns = 0;
    for (const tsRegion& region : regions) {
        if (row >= region.row && row - region.row < region.rows) columns += region.columns;
    }
    return columns;
}

} // namespace

void tcFrameAccount::CheckPlaces(const std::vector<tsRegion>& regions, uint32_t total)
{
    if (!mpNotes || regions.empty()) return;
    tsRegion around{};
    const uint32_t outside = Cover(regions, total, &around);
    // A camera may also show something else than it was asked for.
    if (outside <= total / 2) {
        mnMisplaced += outside;
        mbMisfits = outside > 0;
        JudgeRows(regions, around);
        if (mbMisfits) SuspectUneven(regions);
    }
    std::fill_n(mpNotes->covered + around.row, around.rows, 0);
}

// Counts the pixels of each row; how many packets lie elsewhere, which are not counted. `*around`
// are the rows that have some.
uint32_t tcFrameAccount::Cover(const std::vector<tsRegion>& regions, uint32_t total,
                               tsRegion* around)
{
    uint32_t outside = 0, top = gnNumbers, bottom = 0; // exclusive
    for (uint32_t number = 1; number <= total; ++number) {
        const tsPacketPlace& place = mpNotes->places[number];
        if (place.arrival != eCame || place.last < place.first) continue;
        if (!IsInside(regions, place)) {
            ++outside;
            continue;
        }
        mpNotes->covered[place.row] += place.last - place.first + 1U;
        top = std::min<uint32_t>(top, place.row);
        bottom = std::max(bottom, place.row + 1U);
    }
    if (bottom > 0) *around = {top, 0, bottom - top, 0};
    return outside;
}

// No row can have more pixels than were asked for. Of a single region, all have the same number.
void tcFrameAccount::JudgeRows(const std::vector<tsRegion>& regions, const tsRegion& around)
{
    const auto each = [&](auto judge) {
        for (uint32_t row = around.row; row < around.row + around.rows; ++row)
            judge(mpNotes->covered[row], ColumnsOf(regions, row));
    };
    uint32_t most = 0, misfits = 0;
    each([&](uint32_t pixels, uint32_t columns) {
        if (pixels <= columns) most = std::max(most, pixels);
    });
    each([&](uint32_t pixels, uint32_t columns) {
        const bool isUneven = regions.size() == 1 && pixels > 0 && pixels < most;
        if (pixels > columns || isUneven) ++misfits;
    });
    mnMisplaced += misfits;
    mbMisfits = mbMisfits || misfits > 0;
}

void tcFrameAccount::SuspectUneven(const std::vector<tsRegion>& regions)
{
    for (const tsRegion& region : regions) {
        for (uint32_t row = region.row; row < region.row + region.rows; ++row) {
            if (mpNotes->covered[row] != ColumnsOf(regions, row)) Suspect(row);
        }
    }
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

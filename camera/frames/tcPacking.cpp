#include "tcPacking.h"

#include <algorithm>
#include <utility>

tcPacking::tcPacking(std::vector<tsRegion> regions) : maRegions(std::move(regions))
{
    maAbove.reserve(maRegions.size());
    for (const tsRegion& region : maRegions) {
        maAbove.push_back(mnRows);
        mnRows += region.rows;
        mnStride = std::max(mnStride, region.columns);
    }
}

void tcPacking::BeginFrame()
{
    mnRegion = 0;
    mnRow = mnColumn = 0;
}

size_t tcPacking::Search(size_t from, uint32_t row, uint32_t first, uint32_t last) const
{
    for (; from < maRegions.size(); ++from) {
        const tsRegion& region = maRegions[from];
        const bool hasRow = row >= region.row && row - region.row < region.rows;
        if (hasRow && first >= region.column && last - region.column < region.columns) break;
    }
    return from;
}

// From the region of the last packet on, where it must lie behind that one; else, since packets may
// be repeated, anywhere. Of a packet that no region holds whole, the first column decides.
tsSpot tcPacking::Find(uint32_t row, uint32_t first, uint32_t last)
{
    const bool isBehind = row > mnRow || (row == mnRow && first >= mnColumn);
    const size_t next = isBehind ? mnRegion : mnRegion + 1, none = maRegions.size();
    size_t region = none;
    for (const uint32_t end : {last, first}) {
        region = Search(next, row, first, end);
        if (region < none) {
            mnRegion = region;
            mnRow = row;
            mnColumn = last + 1;
            break;
        }
        region = Search(0, row, first, end);
        if (region < none) break;
    }
    if (region == none) return {};
    const tsRegion& found = maRegions[region];
    const uint64_t below = maAbove[region] + row - found.row;
    return {below * mnStride + first - found.column, found.columns - (first - found.column)};
}

std::vector<uint32_t> tcPacking::FrameRows(const std::vector<uint32_t>& sensorRows) const
{
    std::vector<uint32_t> rows;
    for (const uint32_t row : sensorRows) {
        for (size_t i = 0; i < maRegions.size(); ++i) {
            const uint32_t first = maRegions[i].row;
            if (row >= first && row - first < maRegions[i].rows) {
                rows.push_back(maAbove[i] + row - first);
            }
        }
    }
    return rows;
}

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

bool tcPacking::Holds(size_t region, uint32_t row, uint32_t column) const
{
    const tsRegion& wanted = maRegions[region];
    return row >= wanted.row && row - wanted.row < wanted.rows && column >= wanted.column &&
           column - wanted.column < wanted.columns;
}

// From the region of the last packet on, where it must lie behind that one; else, since packets may
// be repeated, anywhere.
tsSpot tcPacking::Find(uint32_t row, uint32_t column)
{
    const bool isBehind = row > mnRow || (row == mnRow && column >= mnColumn);
    size_t region = isBehind ? mnRegion : mnRegion + 1;
    while (region < maRegions.size() && !Holds(region, row, column)) {
        ++region;
    }
    if (region >= maRegions.size()) {
        region = 0;
        while (region < maRegions.size() && !Holds(region, row, column)) {
            ++region;
        }
        if (region == maRegions.size()) return {};
    } else {
        mnRegion = region;
        mnRow = row;
        mnColumn = column + 1;
    }
    const tsRegion& found = maRegions[region];
    const uint64_t below = maAbove[region] + row - found.row;
    return {below * mnStride + column - found.column, found.columns - (column - found.column)};
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

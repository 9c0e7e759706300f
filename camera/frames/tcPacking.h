// Where the pixels of a readout go that is stored without what lies around it.
#ifndef TCPACKING_H
#define TCPACKING_H

#include "tcFrameAccount.h"

#include <cstdint>
#include <vector>

// Where pixels that begin at a row and column go.
struct tsSpot {
    uint64_t element = 0; // from the buffer's first
    uint32_t columns = 0; // that there are up to the right edge; 0: the pixels lie outside
};

// Region follows region: the rows of each lie below those of the one before, at the left edge. The
// stride is that of the widest.
// Threads: one at a time.
class tcPacking
{
public:
    tcPacking() = default;
    // Rows and columns of none are 0.
    explicit tcPacking(std::vector<tsRegion> regions);

    uint32_t Rows() const { return mnRows; }
    uint32_t Stride() const { return mnStride; }

    // The packets that are looked for from now on are those of another frame.
    void BeginFrame();

    // Where the pixels of a packet go, by its row and columns of the sensor, the last one
    // inclusive. Regions may overlap; packets come in order.
    tsSpot Find(uint32_t row, uint32_t first, uint32_t last);

    // Rows of the sensor, as those of the frame; each may be several, or none.
    std::vector<uint32_t> FrameRows(const std::vector<uint32_t>& sensorRows) const;

private:
    // The first of the regions, from one on, that holds all these columns of a row; or their
    // number.
    size_t Search(size_t from, uint32_t row, uint32_t first, uint32_t last) const;

    std::vector<tsRegion> maRegions;
    std::vector<uint32_t> maAbove; // rows above each region
    uint32_t mnRows = 0, mnStride = 0;
    size_t mnRegion = 0;              // where the last packet was
    uint32_t mnRow = 0, mnColumn = 0; // likewise, and where the next one may begin
};

#endif

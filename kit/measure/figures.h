// Figures of all pixels of a frame.
#ifndef VXCAMKIT_FIGURES_H
#define VXCAMKIT_FIGURES_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>

#include <cstdint>
#include <vector>

namespace vxcam {

struct FrameFigures {
    uint64_t sum = 0;
    uint32_t least = 0, most = 0;
    double mean = 0, deviation = 0; // the standard deviation of the pixels, as they are
    uint64_t saturated = 0;         // pixels of `saturation` or more
};

// `saturation`: 0 is the highest value that a pixel of that width can have.
VXCAMKIT_EXPORT FrameFigures figuresOf(const Frame& frame, uint32_t saturation = 0);

// How many pixels have which value.
struct Histogram {
    double first = 0; // the least value of the first bin
    double width = 1; // of a bin, in values: 1 or a larger whole number
    std::vector<uint64_t> counts;

    // The value below which this part of all pixels lies, 0 to 1: the median for 0.5. Of values,
    // where a bin is one; else as if they were spread evenly in their bin.
    VXCAMKIT_EXPORT double percentile(double part) const;
};

// From the least to the most that occurs, of so many bins at most.
VXCAMKIT_EXPORT Histogram histogramOf(const Frame& frame, size_t mostBins = 65536);

} // namespace vxcam

#endif

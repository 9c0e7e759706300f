// Preview pictures: 8-bit gray PNG, stretched so that a dark sky shows its stars.
#ifndef PREVIEW_H
#define PREVIEW_H

#include "tsFrame.h"

#include <cstdint>
#include <vector>

// Maps pixel values to gray. Black lies a little below the sky, white where the brightest stars
// are; between them gray follows the inverse hyperbolic sine, its bend such that the sky comes out
// dark gray. Outliers (hot pixels, a star that saturates) do not move the limits.
struct tsStretch {
    double black = 0, white = 1;
    double bend = 1; // large: faint values are lifted more; above 0

    uint8_t Gray(double value) const;
};

// Found from at most about a million of the pixels, evenly spread.
tsStretch FindStretch(const tsFrame& frame);

// A whole PNG file; the frame's first row is on top. Throws tcFailure with eExitFile.
std::vector<char> MakePreview(const tsFrame& frame);

#endif

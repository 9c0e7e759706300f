// From pixels to grays that show something.
#ifndef VXCAMKIT_STRETCH_H
#define VXCAMKIT_STRETCH_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>

#include <cstdint>
#include <vector>

namespace vxcam {

// Maps values of pixels to grays from 0 to 255: `black` and less to 0, `white` and more to 255,
// and between them by the inverse hyperbolic sine.
struct VXCAMKIT_EXPORT Stretch {
    double black = 0, white = 1; // white lies above black
    double bend = 0;             // 0: a straight line; large: faint values are lifted more

    uint8_t gray(double value) const;
};

// One that shows a sky and its stars: black lies a little below the sky, white where the brightest
// stars are, and the sky comes out dark gray. Outliers (hot pixels, a star that saturates) do not
// move the limits. It is found from at most about a million of the pixels, evenly spread.
VXCAMKIT_EXPORT Stretch findStretch(const Frame& frame);

// A straight line between the values below which these parts of all pixels lie, 0 to 1; from as
// many pixels.
VXCAMKIT_EXPORT Stretch percentileStretch(const Frame& frame, double black, double white);

// All pixels, row after row.
VXCAMKIT_EXPORT std::vector<uint8_t> graysOf(const Frame& frame, const Stretch& stretch);

} // namespace vxcam

#endif

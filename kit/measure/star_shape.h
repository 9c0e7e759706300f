// The shape of one star.
#ifndef VXCAMKIT_STAR_SHAPE_H
#define VXCAMKIT_STAR_SHAPE_H

#include "measure/sky.h"

#include <vxcamkit/stars.h>

#include <optional>

namespace vxcam {

// Pixels of a star that are connected.
struct Blob {
    double column = 0, row = 0; // centre of their light
    double peak = 0;            // the brightest one
    int pixels = 0;
};

// Nothing for what cannot be measured: it reaches beyond the frame, or is no heap of light.
// `threshold` is what pixels of the blob lie above.
std::optional<Star> measuredStar(const SkyFree& sky, const Blob& blob, double threshold);

} // namespace vxcam

#endif

// Stars in frames.
#ifndef VXCAMKIT_STARS_H
#define VXCAMKIT_STARS_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>

#include <cstddef>
#include <vector>

namespace vxcam {

struct Star {
    double column = 0, row = 0; // its centre, from 0: 0, 0 is the middle of the first pixel
    double flux = 0;            // above the background
    double peak = 0;            // of its brightest pixel, above the background
    // Half flux diameter: of the circle around the centre that has half of the flux; in pixels.
    double hfd = 0;
    double fwhm = 0; // of the gaussian that its core is like, the mean of both axes; in pixels
    double elongation = 1; // long axis by short axis
    bool isSaturated = false;
};

struct StarOptions {
    double threshold = 5;    // how far above the background a pixel of a star is, in its noise
    int leastPixels = 4;     // that are connected
    int mesh = 64;           // pixels: side of the tiles that the background is measured in
    uint32_t saturation = 0; // as figuresOf() takes it
    size_t most = 1000;      // the brightest ones
};

struct Background {
    double level = 0, noise = 0; // the median over all tiles, and that of its standard deviation
};

struct StarField {
    std::vector<Star> stars; // the brightest one first
    Background background;

    // Medians over the stars that are not saturated; 0 without any.
    VXCAMKIT_EXPORT double hfd() const;
    VXCAMKIT_EXPORT double fwhm() const;
    VXCAMKIT_EXPORT double elongation() const;
};

// Stars whose light reaches beyond the frame, or into rows that did not come, are left out. Two
// whose pixels touch are one. Throws Error{Usage} for options that mean nothing.
VXCAMKIT_EXPORT StarField findStars(const Frame& frame, const StarOptions& options = {});

} // namespace vxcam

#endif

// What is measured of a frame on its way: one record for reports and files.
#ifndef VXCAMKIT_MEASURES_H
#define VXCAMKIT_MEASURES_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>
#include <vxcamkit/stars.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vxcam {

// Of the rows that came whole; all 0 when none did.
struct Measures {
    uint32_t least = 0, most = 0;
    double mean = 0, median = 0;
    double noise = 0;       // of the background, without its slopes and stars: its sigma
    uint64_t saturated = 0; // pixels at full scale
    size_t stars = 0;
    // Medians over the stars that are not saturated; 0 without any.
    double hfd = 0, fwhm = 0; // pixels
    double elongation = 0;    // 1: round
};

// All stars are counted, whatever `options` says of their number. Throws as findStars() does.
VXCAMKIT_EXPORT Measures measuresOf(const Frame& frame, const StarOptions& options = {});

// For the header of a frame: DATAMIN and DATAMAX, NSTARS, and with stars HFD and FWHM.
VXCAMKIT_EXPORT std::vector<HeaderCard> cardsOf(const Measures& measures);

} // namespace vxcam

#endif

// Gain, read noise and full well of a camera, from pairs of flat frames.
#ifndef VXCAMKIT_PHOTON_TRANSFER_H
#define VXCAMKIT_PHOTON_TRANSFER_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace vxcam {

// Two frames of the same light. What differs between them is noise: stars, dust and pixels that
// are unlike others do not count.
struct FramePair {
    double exposure = 0;  // seconds
    double level = 0;     // ADU: the median of all pixels
    double saturated = 0; // part of the pixels that are at full scale, 0 to 1
    // Of tiles in which no pixel is at full scale and none stands out of the noise:
    double mean = 0;     // ADU
    double variance = 0; // ADU^2, of one frame
    double used = 0;     // part of the frame that they are, 0 to 1
};

// Of frames of 8 or 16 bits, of one size. Throws Error{Usage} for others.
VXCAMKIT_EXPORT FramePair pairOf(const Frame& first, const Frame& second);

struct PhotonTransfer {
    double offset = 0;              // ADU, of frames without light
    double gain = 0;                // electrons in an ADU
    double readNoise = 0;           // electrons; without that of rounding to whole ADU
    std::optional<double> fullWell; // electrons; nothing when no pair was as bright
    bool endsAtFullScale = false;   // of the converter, before a pixel is full
    std::vector<bool> isFitted;     // the flat pairs that the gain is from
};

// `dark`: without exposure. Pairs up to 70 % of the brightest level give the gain, where the
// brightest is saturated; else all. Throws Error{Usage} when fewer than two pairs are of use.
VXCAMKIT_EXPORT PhotonTransfer photonTransferOf(const FramePair& dark,
                                                const std::vector<FramePair>& flats);
// Standard deviation of its gain, in electrons per ADU, by how far the fitted pairs lie off their
// line. Nothing with fewer than three of them.
VXCAMKIT_EXPORT std::optional<double> gainUncertainty(const PhotonTransfer& result,
                                                      const FramePair& dark,
                                                      const std::vector<FramePair>& flats);

} // namespace vxcam

#endif

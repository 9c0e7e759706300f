// Pixels as FITS files hold them.
#ifndef VXCAMKIT_FITS_PIXELS_H
#define VXCAMKIT_FITS_PIXELS_H

#include <vxcamkit/frame.h>

#include <cstdint>
#include <optional>

namespace vxcam {

// How the pixels of one frame are held: value = number in the file + zero.
struct FitsPixels {
    int bits = 0; // 8, 16 or 32; of 8, the numbers have no sign
    int64_t zero = 0;
    std::optional<int64_t> blank; // the number of pixels that did not come
};

FitsPixels fitsPixelsOf(const Frame& frame);

// Writes the pixels, frame.bytes() of them, with the highest byte first. Returns their fitsSum().
uint32_t encodePixels(const Frame& frame, const FitsPixels& how, void* to);

} // namespace vxcam

#endif

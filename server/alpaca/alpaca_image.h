// Images as Alpaca has them: column after column.
#ifndef VXCAMD_ALPACA_IMAGE_H
#define VXCAMD_ALPACA_IMAGE_H

#include <vxcamkit/area.h>
#include <vxcamkit/frame.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// A part of a frame, in pixels of the frame.
struct AlpacaImage {
    Frame frame;
    Area part;
};

struct Transactions {
    uint32_t client = 0, server = 0;
};

// The header of 44 bytes and the pixels, in the narrowest type that holds them: bytes of 8 bits,
// else unsigned ones of 16 bits or signed ones of 32. Throws Error{Camera} for a sum beyond these.
std::string imageBytes(const AlpacaImage& image, const Transactions& ids);

// "[[1,2],[3,4]]": a column each. Throws likewise.
std::string imageJson(const AlpacaImage& image);

} // namespace vxcam

#endif

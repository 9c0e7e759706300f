// One look at all pixels.
#ifndef VXCAMKIT_PIXEL_TALLY_H
#define VXCAMKIT_PIXEL_TALLY_H

#include <cstddef>
#include <cstdint>

namespace vxcam {

struct PixelTally {
    uint32_t least = UINT32_MAX, most = 0;
    uint64_t saturated = 0; // pixels of the limit or more
    uint64_t squares = 0;   // of the distances from the middle of all values that pixels can have
};

// The middle of all values: half of those that there are.
template <class Pixel>
inline constexpr int32_t kMiddle = int32_t{1} << (8 * sizeof(Pixel) - 1);

PixelTally tallyOf(const uint8_t* pixels, size_t count, uint8_t limit);
PixelTally tallyOf(const uint16_t* pixels, size_t count, uint16_t limit);

} // namespace vxcam

#endif

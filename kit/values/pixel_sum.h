// Pixels added up.
#ifndef VXCAMKIT_PIXEL_SUM_H
#define VXCAMKIT_PIXEL_SUM_H

#include <cstddef>
#include <cstdint>

namespace vxcam {

uint64_t pixelSum(const uint8_t* pixels, size_t count);
uint64_t pixelSum(const uint16_t* pixels, size_t count);
uint64_t pixelSum(const uint32_t* pixels, size_t count);

} // namespace vxcam

#endif

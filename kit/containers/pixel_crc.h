// The check value of pixels.
#ifndef VXCAMKIT_PIXEL_CRC_H
#define VXCAMKIT_PIXEL_CRC_H

#include <cstddef>
#include <cstdint>

namespace vxcam {

// CRC-32 as zlib, PNG and Ethernet have it.
uint32_t pixelCrc(const void* bytes, size_t count);

} // namespace vxcam

#endif

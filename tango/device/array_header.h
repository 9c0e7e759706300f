// The header in front of the pixels of an encoded image, as clients of detectors know it.
#ifndef VXCAMERA_ARRAY_HEADER_H
#define VXCAMERA_ARRAY_HEADER_H

#include <vxcamkit/frame.h>

#include <array>
#include <cstdint>

namespace vxcam {

inline constexpr const char* kArrayFormat = "DATA_ARRAY"; // the name of the encoding

// All numbers have the low byte first:
//
//     0  magic 0x44544159   4  version   6  64, the header's length   8  2: an image
//    12  type of a pixel: 0, 1, 2 for 8, 16, 32 bits without a sign
//    16  0: pixels have the low byte first   18  2 dimensions
//    20  columns, rows, and four words of 0
//    32  bytes from a column to the next, from a row to the next, and 24 bytes of 0
using ArrayHeader = std::array<uint8_t, 64>;
ArrayHeader arrayHeader(const Frame& frame, int version);

} // namespace vxcam

#endif

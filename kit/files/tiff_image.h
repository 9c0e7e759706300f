// How TIFF files are made.
#ifndef VXCAMKIT_TIFF_IMAGE_H
#define VXCAMKIT_TIFF_IMAGE_H

#include <vxcamkit/tiff.h>

namespace vxcam {

inline constexpr size_t kMostClassicTiff = 0xFFFFFFFFU; // bytes that an ordinary TIFF file can have

// As makeTiff(); a BigTIFF where a file may have more than `mostClassic` bytes.
FileBytes tiffImage(const Frame& frame, const HeaderOptions& options, size_t mostClassic);

} // namespace vxcam

#endif

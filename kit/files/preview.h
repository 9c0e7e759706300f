// Pictures of frames to look at.
#ifndef VXCAMKIT_PREVIEW_H
#define VXCAMKIT_PREVIEW_H

#include <vxcamkit/export.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>

#include <cstdint>
#include <vector>

namespace vxcam {

// A whole PNG file of 8-bit grays, stretched so that a dark sky shows its stars (findStretch());
// the frame's first row is on top. Throws Error{Usage} where the kit was built without PNG.
VXCAMKIT_EXPORT FileBytes makePreview(const Frame& frame);

// A whole PNG file of these grays, row after row. Throws likewise, and when they are no whole rows.
VXCAMKIT_EXPORT FileBytes makePng(const std::vector<uint8_t>& grays, int columns);

} // namespace vxcam

#endif

// TIFF files.
#ifndef VXCAMKIT_TIFF_H
#define VXCAMKIT_TIFF_H

#include <vxcamkit/export.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

namespace vxcam {

// A whole file with one gray image of 8, 16 or 32 bits, unsigned, as it is; beyond 4 GB a BigTIFF.
// Its ImageDescription is the frame's header as headerJson() writes it. Throws Error{Usage} as
// makeHeader() does, and where the kit was built without TIFF.
VXCAMKIT_EXPORT FileBytes makeTiff(const Frame& frame, const HeaderOptions& options = {});

} // namespace vxcam

#endif

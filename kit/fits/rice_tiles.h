// Frames as images that are compressed row by row, by Rice.
#ifndef VXCAMKIT_RICE_TILES_H
#define VXCAMKIT_RICE_TILES_H

#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

namespace vxcam {

// Whether all of it can be told where it lies: of more than 2 GiB it cannot.
bool fitsRiceTiles(const Frame& frame);

// An extension of a FITS file with the frame and its cards, whole, in the memory of `spare`. The
// rows are compressed by cfitsio, as it does it itself; the table around them is made here, so that
// they are written once and not copied. Throws Error{File}.
FileBytes riceTiles(const Frame& frame, const HeaderOptions& options, FileBytes spare);

} // namespace vxcam

#endif

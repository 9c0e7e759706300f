// Frames of compressed FITS records.
#ifndef VXCAMKIT_TILE_READER_H
#define VXCAMKIT_TILE_READER_H

#include "verify/record_reader.h"

namespace vxcam {

// The extensions of a file, from the second part on. Sets the size of the frames.
std::unique_ptr<PixelReader> readTiles(const std::string& path, ReadRecord* record);

} // namespace vxcam

#endif

// Whether all of an HDF5 file can be read.
#ifndef VXCAMKIT_HDF5_WALK_H
#define VXCAMKIT_HDF5_WALK_H

#include "containers/hdf5_objects.h"
#include "verify/record_reader.h"

namespace vxcam {

// Reads every object of the file, with its attributes, but the pixels: what cannot be read is
// found.
void walkHdf5(const Hdf5Id& file, ReadRecord* record);

} // namespace vxcam

#endif

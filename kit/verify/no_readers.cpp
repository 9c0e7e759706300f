// Readers whose libraries were not there when the kit was built.
#include "verify/record_reader.h"
#include "verify/tile_reader.h"

#include <vxcamkit/error.h>

namespace vxcam {

#if !VXCAMKIT_HAS_HDF5
std::unique_ptr<PixelReader> readHdf5(const std::string& path, ReadRecord* /*record*/)
{
    throw Error(ErrorKind::Usage, path + ": this kit was built without HDF5");
}
#endif

#if !VXCAMKIT_HAS_CFITSIO
std::unique_ptr<PixelReader> readTiles(const std::string& path, ReadRecord* /*record*/)
{
    throw Error(ErrorKind::Usage, path + ": this kit was built without cfitsio");
}
#endif

} // namespace vxcam

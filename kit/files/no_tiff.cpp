// Where the kit is built without TIFF.
#include <vxcamkit/error.h>
#include <vxcamkit/tiff.h>

namespace vxcam {

FileBytes makeTiff(const Frame& /*frame*/, const HeaderOptions& /*options*/)
{
    throw Error(ErrorKind::Usage, "this kit was built without TIFF");
}

} // namespace vxcam

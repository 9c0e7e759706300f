// Where the kit is built without PNG.
#include <vxcamkit/error.h>
#include <vxcamkit/preview.h>

namespace vxcam {

FileBytes makePreview(const Frame& /*frame*/)
{
    throw Error(ErrorKind::Usage, "this kit was built without PNG");
}

} // namespace vxcam

// Formats whose libraries were not there when the kit was built.
#include <vxcamkit/error.h>
#include <vxcamkit/preview.h>
#include <vxcamkit/tiff.h>

namespace vxcam {

#if !VXCAMKIT_HAS_PNG
FileBytes makePreview(const Frame& /*frame*/)
{
    throw Error(ErrorKind::Usage, "this kit was built without PNG");
}

FileBytes makePng(const std::vector<uint8_t>& /*grays*/, int /*columns*/)
{
    throw Error(ErrorKind::Usage, "this kit was built without PNG");
}
#endif

#if !VXCAMKIT_HAS_TIFF
FileBytes makeTiff(const Frame& /*frame*/, const HeaderOptions& /*options*/)
{
    throw Error(ErrorKind::Usage, "this kit was built without TIFF");
}
#endif

} // namespace vxcam

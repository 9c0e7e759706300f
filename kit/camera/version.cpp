#include <vxcamkit/version.h>

#include "vxcamiface.h"

namespace vxcam {

LibraryVersion libraryVersion()
{
    constexpr unsigned low = 0xFFFF;
    const auto version = static_cast<unsigned>(VXGetDllVersion());
    return {static_cast<int>(version >> 16U), static_cast<int>(version & low)};
}

} // namespace vxcam

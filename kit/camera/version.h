// Of the library that the kit stands on.
#ifndef VXCAMKIT_VERSION_H
#define VXCAMKIT_VERSION_H

#include <vxcamkit/export.h>

namespace vxcam {

struct LibraryVersion {
    int number = 0, build = 0; // 3.7: 3 and 7
};
VXCAMKIT_EXPORT LibraryVersion libraryVersion();

} // namespace vxcam

#endif

// What must not be read as a file.
#ifndef VXCAMD_SPECIAL_FILE_H
#define VXCAMD_SPECIAL_FILE_H

#include <string>

namespace vxcam {

// Whether there is something else than a regular file: whoever reads from a pipe may wait for ever.
bool isSpecialFile(const std::string& path);

} // namespace vxcam

#endif

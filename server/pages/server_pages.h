// The manual page and the completion of vxcamd, made from its options.
#ifndef VXCAMD_SERVER_PAGES_H
#define VXCAMD_SERVER_PAGES_H

#include <string>

namespace vxcam {

std::string serverManual();     // in the form of man(7)
std::string serverCompletion(); // for bash

} // namespace vxcam

#endif

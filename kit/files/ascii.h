// Texts for files that hold ASCII alone.
#ifndef VXCAMKIT_ASCII_H
#define VXCAMKIT_ASCII_H

#include <string>

namespace vxcam {

// Letters with marks lose these ("ä" becomes "ae"), some signs are written out ("°" becomes "deg"),
// other characters become "?". Control characters, and bytes that are no UTF-8, are made visible:
// \n, \x1b.
std::string asciiOf(const std::string& text);

} // namespace vxcam

#endif

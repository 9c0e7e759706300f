// Frames as Tango carries them in one piece.
#ifndef VXCAMERA_ENCODED_H
#define VXCAMERA_ENCODED_H

#include "array_header.h"

#include <tango.h>

#include <memory>

namespace vxcam {

// Header and pixels.
std::unique_ptr<Tango::DevEncoded> encoded(const Frame& frame, int arrayVersion);

} // namespace vxcam

#endif

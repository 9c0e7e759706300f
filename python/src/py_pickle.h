// Frames on their way to other processes.
#ifndef VXCAM_PY_PICKLE_H
#define VXCAM_PY_PICKLE_H

#include "py_frame.h"

namespace vxcam::py {

// Has Frame.facts(), .times() and .settings() with the pixels made a frame again.
void addPickle(pybind11::class_<CoreFrame>& frame);

} // namespace vxcam::py

#endif

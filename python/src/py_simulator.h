// The simulated camera, and cameras of the local networks, as the Python layer wraps them.
#ifndef VXCAM_PY_SIMULATOR_H
#define VXCAM_PY_SIMULATOR_H

#include <pybind11/pybind11.h>

namespace vxcam::py {

void addSimulator(pybind11::module_& module);

} // namespace vxcam::py

#endif

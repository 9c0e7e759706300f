// The table of properties as the Python layer has it.
#ifndef VXCAM_PY_PROPERTIES_H
#define VXCAM_PY_PROPERTIES_H

#include <pybind11/pybind11.h>

namespace vxcam::py {

void addProperties(pybind11::module_& module);

} // namespace vxcam::py

#endif

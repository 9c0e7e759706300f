// Failures as Python has them.
#ifndef VXCAM_PY_ERRORS_H
#define VXCAM_PY_ERRORS_H

#include <pybind11/pybind11.h>

namespace vxcam::py {

// Has Python raise what Error stands for: the class of vxcam._errors that the table names, OSError
// for a file.
void addErrors(pybind11::module_& module);

} // namespace vxcam::py

#endif

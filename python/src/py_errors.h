// Failures as Python has them.
#ifndef VXCAM_PY_ERRORS_H
#define VXCAM_PY_ERRORS_H

#include <vxcamkit/error.h>

#include <pybind11/pybind11.h>

#include <string>

namespace vxcam::py {

// Something of another type than is possible: WrongTypeError, which is a UsageError, too.
class WrongType : public Error
{
public:
    explicit WrongType(const std::string& text) : Error(ErrorKind::Usage, text) {}
};

// Has Python raise what Error stands for: the class of vxcam._errors that the table names, OSError
// for a file.
void addErrors(pybind11::module_& module);

} // namespace vxcam::py

#endif

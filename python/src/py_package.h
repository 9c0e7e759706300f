// Objects of the package, made and asked without code of Python's: frames of a fast stream come
// while all cores are busy, and code that was not run since the last one is slow.
#ifndef VXCAM_PY_PACKAGE_H
#define VXCAM_PY_PACKAGE_H

#include "py_frame.h"

namespace vxcam::py {

// What vxcam.Frame(core) makes, without code of Python's.
pybind11::object frameToPython(CoreFrame core);

// A field of objects of the package, whose name is made once.
class FieldName
{
public:
    explicit FieldName(const char* name) : name_(PyUnicode_InternFromString(name)) {}

    pybind11::object of(const pybind11::handle& object) const
    {
        PyObject* const field = PyObject_GetAttr(object.ptr(), name_);
        if (field == nullptr) throw pybind11::error_already_set();
        return pybind11::reinterpret_steal<pybind11::object>(field);
    }

private:
    PyObject* const name_; // not let go when the interpreter has gone
};

} // namespace vxcam::py

#endif

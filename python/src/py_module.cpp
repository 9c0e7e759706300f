// The extension module vxcam._vxcam.
#include "py_camera.h"
#include "py_errors.h"
#include "py_frame.h"
#include "py_process.h"
#include "py_properties.h"
#include "py_simulator.h"
#include "wire/py_wire.h"

#include <vxcamkit/version.h>

#include "vxexport.h"

// The library opens no port in a program for Python.
extern "C" const int VXNoDebugServices = 1;

namespace vxcam::py {

namespace python = pybind11;

namespace {

std::string versionText()
{
    const LibraryVersion version = libraryVersion();
    return std::to_string(version.number) + "." + std::to_string(version.build);
}

void fill(python::module_ module)
{
    watchForks();
    module.attr("__doc__") = "What the package vxcam is made of; use that.";
    module.attr("library_version") = versionText();
    module.attr("kit_version") = VXCAM_KIT_VERSION;
    addErrors(module);
    addProperties(module);
    addFrame(module);
    addStream(module);
    addWire(module);
    addCamera(module);
    addSimulator(module);
    addRecords(module);
    addSequences(module);
}

// The module, once filled. Its classes are there once in a process: who imports it again gets the
// same one.
PyObject* madeModule = nullptr;

PyObject* make(PyObject* spec, PyModuleDef*)
{
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
        PyErr_SetString(PyExc_ImportError,
                        "vxcam cannot be used in a sub-interpreter: import it in the main one, or "
                        "in a process of its own");
        return nullptr;
    }
    if (madeModule != nullptr) {
        Py_INCREF(madeModule);
        return madeModule;
    }
    PyObject* const name = PyObject_GetAttrString(spec, "name");
    if (name == nullptr) return nullptr;
    PyObject* const module = PyModule_NewObject(name);
    Py_DECREF(name);
    return module;
}

int execute(PyObject* module)
{
    if (madeModule == module) return 0;
    try {
        python::detail::get_internals();
        fill(python::reinterpret_borrow<python::module_>(module));
    } catch (python::error_already_set& error) {
        error.restore();
        return -1;
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_ImportError, error.what());
        return -1;
    }
    Py_INCREF(module);
    madeModule = module;
    return 0;
}

PyModuleDef_Slot slots[] = {{Py_mod_create, reinterpret_cast<void*>(make)},
                            {Py_mod_exec, reinterpret_cast<void*>(execute)},
                            {0, nullptr}};

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "_vxcam", nullptr, 0, nullptr, slots, nullptr, nullptr, nullptr};

} // namespace

} // namespace vxcam::py

// NOLINTNEXTLINE(bugprone-reserved-identifier): Python's name for it
extern "C" __attribute__((visibility("default"))) PyObject* PyInit__vxcam();

PyObject* PyInit__vxcam()
{
    return PyModuleDef_Init(&vxcam::py::definition);
}

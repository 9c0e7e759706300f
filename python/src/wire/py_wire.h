// Recordings of the wire as the Python layer wraps them.
#ifndef VXCAM_PY_WIRE_H
#define VXCAM_PY_WIRE_H

#include "py_process.h"

#include <vxcamkit/wire_capture.h>

#include <pybind11/pybind11.h>

#include <memory>

namespace vxcam::py {

// A recording that is being made. Threads: any.
class CoreCapture
{
public:
    explicit CoreCapture(std::shared_ptr<WireCapture> capture) : capture_(std::move(capture)) {}

    const std::shared_ptr<WireCapture>& use() const { return capture_.use("the recording"); }

private:
    Owned<WireCapture> capture_;
};

void addWire(pybind11::module_& module);

} // namespace vxcam::py

#endif

#include "py_errors.h"

#include "py_frame.h"
#include "py_values.h"

#include <vxcamkit/error.h>
#include <vxcamkit/sequence.h>
#include <vxcamkit/stream.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

python::tuple toPython(const std::vector<SequenceMistake>& mistakes)
{
    python::list result;
    for (const SequenceMistake& mistake : mistakes) {
        result.append(python::make_tuple(mistake.line, textToPython(mistake.text)));
    }
    return python::tuple(result);
}

python::object raised(const Error& error)
{
    const python::str text = textToPython(error.what());
    if (error.kind() == ErrorKind::File) {
        const python::object type = python::module_::import("builtins").attr("OSError");
        return error.code() != 0 ? type(error.code(), text) : type(text);
    }
    const python::module_ errors = python::module_::import("vxcam._errors");
    const auto* plan = dynamic_cast<const SequenceError*>(&error);
    const char* const type = plan != nullptr ? "PlanError"
                             : dynamic_cast<const HookError*>(&error) != nullptr
                                 ? "HookError"
                                 : error.row().python;
    python::object exception = errors.attr(type)(text);
    if (plan != nullptr) exception.attr("mistakes") = toPython(plan->mistakes());
    if (error.kind() == ErrorKind::Camera) {
        exception.attr("code") = error.code();
        exception.attr("sub_code") = error.subCode();
    }
    if (const auto* incomplete = dynamic_cast<const IncompleteFrame*>(&error)) {
        exception.attr("frame") =
            python::module_::import("vxcam._frame").attr("Frame")(CoreFrame(incomplete->frame()));
    }
    return exception;
}

void translate(std::exception_ptr failure)
{
    try {
        if (failure) std::rethrow_exception(failure);
    } catch (const Error& error) {
        try {
            const python::object exception = raised(error);
            PyErr_SetObject(python::type::of(exception).ptr(), exception.ptr());
        } catch (python::error_already_set& worse) {
            worse.restore();
        }
    }
}

} // namespace

void addErrors(python::module_& module)
{
    python::register_local_exception_translator(&translate);
    python::dict names;
    for (const ErrorRow& row : errorTable()) {
        names[row.name] = row.python;
    }
    module.attr("error_classes") = names;
}

} // namespace vxcam::py

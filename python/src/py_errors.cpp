#include "py_errors.h"

#include "py_frame.h"
#include "py_values.h"

#include <vxcamkit/error.h>
#include <vxcamkit/sequence.h>
#include <vxcamkit/stream.h>

#include <cerrno>

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

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What to do about it, where that is the same for all of the kind.
std::string adviceFor(const Error& error)
{
    const std::string text = error.what();
    switch (error.kind()) {
    case ErrorKind::NotFound:
        return "; is it on, and is that the right place? vxcam.discover() looks for cameras";
    case ErrorKind::Busy:
        return "; end the program that uses it, or wait until it has ended";
    case ErrorKind::Timeout:
        return endsWith(text, "?") ? "" : "; is it a camera, and is it still there?";
    case ErrorKind::LinkLost:
        return "; wait_for_link() waits until it is there again";
    case ErrorKind::Camera:
        return error.code() != 0 ? "; flight() of the camera tells what went before" : "";
    case ErrorKind::Incomplete:
        return "; .frame of this error is what came, another grab() a whole one";
    case ErrorKind::Aborted:
        return endsWith(text, "the camera is closed") ? "; open it anew" : "";
    case ErrorKind::File:
        return error.code() == EEXIST && endsWith(text, "exists already")
                   ? "; give another name, or overwrite=True"
                   : "";
    case ErrorKind::Usage:
        break;
    }
    return "";
}

python::object raised(const Error& error)
{
    const python::str text = textToPython(error.what() + adviceFor(error));
    if (error.kind() == ErrorKind::File) {
        const python::object type = python::module_::import("builtins").attr("OSError");
        return error.code() != 0 ? type(error.code(), text) : type(text);
    }
    const python::module_ errors = python::module_::import("vxcam._errors");
    const auto* plan = dynamic_cast<const SequenceError*>(&error);
    const char* const type = plan != nullptr                                     ? "PlanError"
                             : dynamic_cast<const HookError*>(&error) != nullptr ? "HookError"
                             : dynamic_cast<const WrongType*>(&error) != nullptr
                                 ? "WrongTypeError"
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

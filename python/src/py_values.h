// Values of properties, texts and times as Python has them.
#ifndef VXCAM_PY_VALUES_H
#define VXCAM_PY_VALUES_H

#include <vxcamkit/frame_times.h>
#include <vxcamkit/value.h>

#include <pybind11/pybind11.h>

#include <chrono>
#include <optional>
#include <string>

namespace vxcam::py {

// Bytes that are no UTF-8 become lone surrogates, and are the same bytes again on the way back.
pybind11::str textToPython(const std::string& text);
std::string textFromPython(const pybind11::handle& text);

// Times are seconds, lists tuples, nothing is None.
pybind11::object valueToPython(const Value& value);

// A bool, a number, a text, bytes, a timedelta, None, or a sequence of such. Throws Error{Usage}
// for anything else; the text begins with `name`.
Value valueFromPython(const std::string& name, const pybind11::handle& value);

// Seconds as a number, or a timedelta. Throws Error{Usage} likewise, also for negative ones.
std::chrono::nanoseconds timeFromPython(const std::string& name, const pybind11::handle& value);
std::optional<std::chrono::milliseconds> patienceFromPython(const std::string& name,
                                                            const pybind11::handle& value);

// A copy, made without the interpreter lock where it takes long.
pybind11::bytes bytesToPython(const void* data, size_t size);
void copyPixels(void* to, const void* from, size_t size);

pybind11::int_ nanoseconds(UtcTime time); // since the beginning of 1970

} // namespace vxcam::py

#endif

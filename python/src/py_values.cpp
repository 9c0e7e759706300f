#include "py_values.h"

#include "py_errors.h"

#include <vxcamkit/error.h>

#include <cmath>
#include <cstring>

namespace vxcam::py {

namespace python = pybind11;

namespace {

constexpr double kNanoseconds = 1e9;      // in a second
constexpr double kMostSeconds = 4.0e9;    // of a wait or an exposure: more than a century
constexpr size_t kLongCopy = 64UL * 1024; // bytes: a copy of more lets others run
constexpr int kDeepest = 8;               // lists within lists; a property has two

const char* const kWantedValue = "a number, a text, bytes, or a tuple of such";

std::string refusal(const std::string& name, const python::handle& value, const std::string& wanted)
{
    const auto text = python::repr(value).cast<std::string>();
    return name + ": " + text + " is not possible, give " + wanted;
}

[[noreturn]] void refuse(const std::string& name, const python::handle& value,
                         const std::string& wanted)
{
    throw Error(ErrorKind::Usage, refusal(name, value, wanted));
}

[[noreturn]] void refuseType(const std::string& name, const python::handle& value,
                             const std::string& wanted)
{
    throw WrongType(refusal(name, value, wanted));
}

// What Python takes for a number; it is infinite where it is too large.
double numberOf(const std::string& name, const python::handle& value, const std::string& wanted)
{
    const double number = PyFloat_AsDouble(value.ptr());
    if (PyErr_Occurred() == nullptr) return number;
    const bool isLarge = PyErr_ExceptionMatches(PyExc_OverflowError) != 0;
    PyErr_Clear();
    if (!isLarge) refuseType(name, value, wanted);
    return HUGE_VAL;
}

// A number with a unit: whose unit would count for nothing.
bool isQuantity(const python::handle& value)
{
    return python::hasattr(value, "to_value") && python::hasattr(value, "unit");
}

bool isTimedelta(const python::handle& value)
{
    static const python::object& type = // not let go when the interpreter has gone
        *new python::object(python::module_::import("datetime").attr("timedelta"));
    return python::isinstance(value, type);
}

double secondsOf(const python::handle& timedelta)
{
    return timedelta.attr("total_seconds")().cast<double>();
}

Value bytesOf(const python::handle& buffer)
{
    const python::bytes bytes = python::reinterpret_steal<python::bytes>(
        PyBytes_FromObject(python::reinterpret_borrow<python::object>(buffer).ptr()));
    if (!bytes) throw python::error_already_set();
    const std::string_view view(bytes);
    return Value::Bytes(view.begin(), view.end());
}

Value wholeOf(const std::string& name, const python::handle& number)
{
    const auto index = python::reinterpret_steal<python::object>(PyNumber_Index(number.ptr()));
    if (!index) throw python::error_already_set();
    int overflow = 0;
    const long long whole = PyLong_AsLongLongAndOverflow(index.ptr(), &overflow);
    if (overflow != 0) refuse(name, number, "a smaller number");
    return static_cast<int64_t>(whole);
}

Value realOf(const std::string& name, const python::handle& value)
{
    const double number = numberOf(name, value, kWantedValue);
    if (!std::isfinite(number)) refuse(name, value, kWantedValue);
    return number;
}

Value nestedFromPython(const std::string& name, const python::handle& value, int depth);

Value sequenceOf(const std::string& name, const python::handle& value, int depth)
{
    if (depth >= kDeepest) refuse(name, value, kWantedValue);
    if (python::hasattr(value, "dtype") &&
        value.attr("dtype").attr("str").cast<std::string>() == "|u1") {
        return bytesOf(value.attr("tobytes")());
    }
    if (python::hasattr(value, "tolist")) { // also numbers of NumPy
        return nestedFromPython(name, value.attr("tolist")(), depth + 1);
    }
    Value::List items;
    for (const python::handle item : python::reinterpret_borrow<python::sequence>(value)) {
        items.push_back(nestedFromPython(name, item, depth + 1));
    }
    return Value::list(std::move(items));
}

Value nestedFromPython(const std::string& name, const python::handle& value, int depth)
{
    PyObject* const object = value.ptr();
    if (value.is_none()) return {};
    if (PyBool_Check(object)) return object == Py_True;
    if (PyUnicode_Check(object)) return textFromPython(value);
    if (isTimedelta(value)) return std::chrono::duration<double>(secondsOf(value));
    if (PyFloat_Check(object)) return realOf(name, value);
    if (isQuantity(value)) refuseType(name, value, std::string(kWantedValue) + ", without a unit");
    if (PyIndex_Check(object) && !PySequence_Check(object)) return wholeOf(name, value);
    if (PyObject_CheckBuffer(object) && !PyNumber_Check(object)) return bytesOf(value);
    if (PySequence_Check(object)) return sequenceOf(name, value, depth);
    return realOf(name, value);
}

} // namespace

python::str textToPython(const std::string& text)
{
    PyObject* const made =
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (made == nullptr) throw python::error_already_set();
    return python::reinterpret_steal<python::str>(made);
}

std::string textFromPython(const python::handle& text)
{
    const auto bytes = python::reinterpret_steal<python::bytes>(
        PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw python::error_already_set();
    return bytes;
}

python::object valueToPython(const Value& value)
{
    switch (value.kind()) {
    case Value::Kind::Nothing:
        break;
    case Value::Kind::Switch:
        return python::bool_(value.toBool());
    case Value::Kind::Whole:
        return python::int_(value.toInt());
    case Value::Kind::Real:
    case Value::Kind::Time:
        return python::float_(value.toDouble());
    case Value::Kind::Text:
        return textToPython(value.toText());
    case Value::Kind::Bytes: {
        const Value::Bytes& bytes = value.toBytes();
        return python::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    case Value::Kind::List: {
        python::tuple items(value.size());
        for (size_t i = 0; i < value.size(); ++i) {
            items[i] = valueToPython(value[i]);
        }
        return std::move(items);
    }
    }
    return python::none();
}

Value valueFromPython(const std::string& name, const python::handle& value)
{
    return nestedFromPython(name, value, 0);
}

std::chrono::nanoseconds timeFromPython(const std::string& name, const python::handle& value)
{
    const char* const wanted = "seconds from 0 on, as a number or a timedelta";
    if (PyBool_Check(value.ptr()) || isQuantity(value)) refuseType(name, value, wanted);
    const double seconds = isTimedelta(value) ? secondsOf(value) : numberOf(name, value, wanted);
    if (!(seconds >= 0 && seconds <= kMostSeconds)) refuse(name, value, wanted);
    return std::chrono::nanoseconds(std::llround(seconds * kNanoseconds));
}

std::optional<std::chrono::milliseconds> patienceFromPython(const std::string& name,
                                                            const python::handle& value)
{
    if (value.is_none()) return std::nullopt;
    return std::chrono::ceil<std::chrono::milliseconds>(timeFromPython(name, value));
}

python::bytes bytesToPython(const void* data, size_t size)
{
    PyObject* const made = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(size));
    if (made == nullptr) throw python::error_already_set();
    auto bytes = python::reinterpret_steal<python::bytes>(made);
    copyPixels(PyBytes_AS_STRING(made), data, size); // nobody else has it yet
    return bytes;
}

void copyPixels(void* to, const void* from, size_t size)
{
    if (size < kLongCopy) {
        std::memcpy(to, from, size);
        return;
    }
    const python::gil_scoped_release released;
    std::memcpy(to, from, size);
}

python::int_ nanoseconds(UtcTime time)
{
    return python::int_(time.time_since_epoch().count());
}

} // namespace vxcam::py

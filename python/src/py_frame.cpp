#include "py_frame.h"

#include "py_package.h"
#include "py_pickle.h"
#include "py_values.h"

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

python::dtype typeOfPixels(int bits)
{
    if (bits == 8) return python::dtype::of<uint8_t>();
    if (bits == 16) return python::dtype::of<uint16_t>();
    return python::dtype::of<int32_t>();
}

python::tuple areaOf(const Area& area)
{
    return python::make_tuple(area.column, area.row, area.columns, area.rows);
}

python::object momentOf(const Moment& moment)
{
    if (!moment.known) return python::none();
    return nanoseconds(moment.utc);
}

python::dict timesOf(const FrameFacts& facts)
{
    const FrameTimes& times = facts.times;
    python::dict result;
    result["begin_ns"] = nanoseconds(times.begin);
    result["middle_ns"] = nanoseconds(times.middle);
    result["end_ns"] = nanoseconds(times.end);
    result["uncertainty_ns"] = times.uncertainty.count();
    result["how"] = nameOf(times.how);
    result["command_sent_ns"] = momentOf(times.commandSent);
    result["first_packet_ns"] = momentOf(times.firstPacket);
    result["last_packet_ns"] = momentOf(times.lastPacket);
    result["clock_synchronised"] = times.clock.synchronised;
    result["clock_maximum_error_us"] = times.clock.maximumError.count();
    return result;
}

python::tuple settingsOf(const FrameFacts& facts)
{
    python::list settings;
    for (const Snapshot::Entry& entry : facts.settings) {
        settings.append(
            python::make_tuple(entry.name, valueToPython(entry.value), textToPython(entry.text)));
    }
    return python::tuple(settings);
}

python::tuple complaintsOf(const FrameFacts& facts)
{
    python::list complaints;
    for (const Complaint& complaint : facts.complaints) {
        complaints.append(
            python::make_tuple(complaint.code, complaint.subCode, textToPython(complaint.text)));
    }
    return python::tuple(complaints);
}

python::tuple regionsOf(const FrameFacts& facts)
{
    python::tuple regions(facts.regions.size());
    for (size_t i = 0; i < facts.regions.size(); ++i) {
        regions[i] = areaOf(facts.regions[i]);
    }
    return regions;
}

python::dict factsOf(const FrameFacts& facts)
{
    python::dict result;
    result["number"] = facts.number;
    result["readout"] = facts.readout;
    result["frames"] = facts.frames;
    result["bits"] = facts.bits;
    result["rows"] = facts.rows;
    result["columns"] = facts.columns;
    result["kind"] = nameOf(facts.kind);
    result["type"] = nameOf(facts.type);
    result["area"] = areaOf(facts.area);
    result["regions"] = regionsOf(facts);
    result["binning"] = python::make_tuple(facts.binningX, facts.binningY);
    result["sensor"] = python::make_tuple(facts.sensor.columns, facts.sensor.rows);
    result["camera_name"] = textToPython(facts.cameraName);
    result["serial"] = textToPython(facts.serial);
    result["target"] = textToPython(facts.target);
    result["exposure"] = std::chrono::duration<double>(facts.exposure).count();
    result["ccd_temp"] = facts.sensorTemperature;
    result["board_temp"] = facts.boardTemperature;
    result["target_temp"] = facts.targetTemperature;
    result["image_type"] = facts.imageType;
    result["statistic"] = facts.statistic;
    result["packets_expected"] = facts.packetsExpected;
    result["packets_missing"] = facts.packetsMissing;
    result["packets_misplaced"] = facts.packetsMisplaced;
    result["packets_damaged"] = facts.packetsDamaged;
    result["missing_rows"] = python::tuple(python::cast(facts.missingRows));
    result["missing_rows_known"] = facts.missingRowsKnown;
    result["complaints"] = complaintsOf(facts);
    result["dropped"] = facts.dropped;
    result["true_sum"] = facts.trueSum;
    return result;
}

uint64_t sumOfFrame(const CoreFrame& self)
{
    const Frame& frame = self.frame();
    const python::gil_scoped_release released;
    return frame.sum();
}

// The properties of vxcam.Frame that each frame of a fast stream is asked for.

python::object arrayOf(const python::object& frame)
{
    static const FieldName core("_core"), kept("_kept");
    static PyObject* const name = PyUnicode_InternFromString("array");
    const auto known = kept.of(frame).cast<python::dict>();
    if (PyObject* const made = PyDict_GetItemWithError(known.ptr(), name)) {
        return python::reinterpret_borrow<python::object>(made);
    }
    if (PyErr_Occurred() != nullptr) throw python::error_already_set();
    python::object array = core.of(frame).cast<const CoreFrame&>().array();
    if (PyDict_SetItem(known.ptr(), name, array.ptr()) != 0) throw python::error_already_set();
    return array;
}

bool isComplete(const python::object& frame)
{
    static const FieldName core("_core");
    return core.of(frame).cast<const CoreFrame&>().facts().complete();
}

// A class of the package, whose slots are set and read without code of Python's.
class PackageClass
{
public:
    PackageClass(const char* module, const char* name)
        : type_(python::module_::import(module).attr(name))
    {}

    python::object make() const
    {
        auto* const type = reinterpret_cast<PyTypeObject*>(type_.ptr());
        PyObject* const made = type->tp_alloc(type, 0);
        if (made == nullptr) throw python::error_already_set();
        return python::reinterpret_steal<python::object>(made);
    }
    python::object slot(const char* name) const { return type_.attr(name); }

private:
    const python::object type_;
};

void setSlot(const python::object& slot, const python::object& of, const python::object& value)
{
    if (Py_TYPE(slot.ptr())->tp_descr_set(slot.ptr(), of.ptr(), value.ptr()) != 0) {
        throw python::error_already_set();
    }
}

} // namespace

python::object frameToPython(CoreFrame core)
{
    struct FrameClass : PackageClass {
        FrameClass() : PackageClass("vxcam._frame", "Frame") {}
        python::object core = slot("_core"), kept = slot("_kept");
    };
    static const FrameClass& frames = *new FrameClass; // not let go when the interpreter has gone
    python::object frame = frames.make();
    setSlot(frames.core, frame, python::cast(std::move(core)));
    setSlot(frames.kept, frame, python::dict());
    return frame;
}

python::array CoreFrame::array() const
{
    const Frame& pixels = frame();
    const auto letGo = [](void* held) { delete static_cast<CoreFrame*>(held); };
    const python::capsule owner(new CoreFrame(*this), letGo);
    python::array array(typeOfPixels(pixels.bits()), {pixels.rows(), pixels.columns()},
                        pixels.data(), owner);
    python::detail::array_proxy(array.ptr())->flags &=
        ~python::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

void addFrame(python::module_& module)
{
    python::class_<CoreFrame> frame(module, "Frame");
    frame.def("array", &CoreFrame::array)
        .def("facts", [](const CoreFrame& self) { return factsOf(self.facts()); })
        .def("times", [](const CoreFrame& self) { return timesOf(self.facts()); })
        .def("settings", [](const CoreFrame& self) { return settingsOf(self.facts()); })
        .def("sum", &sumOfFrame)
        .def_property_readonly("rows", [](const CoreFrame& self) { return self.facts().rows; })
        .def_property_readonly("columns",
                               [](const CoreFrame& self) { return self.facts().columns; })
        .def_property_readonly("bits", [](const CoreFrame& self) { return self.facts().bits; });
    module.def("array_of", &arrayOf);
    module.def("is_complete", &isComplete);
    addFigures(module, frame);
    addFiles(frame);
    addPickle(frame);
}

} // namespace vxcam::py

#include "py_pickle.h"

#include "py_values.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property.h>

#include <pybind11/stl.h>

#include <initializer_list>
#include <string_view>
#include <tuple>
#include <utility>

namespace vxcam::py {

namespace python = pybind11;

namespace {

template <class Enum>
Enum named(const std::string& name, std::initializer_list<Enum> all)
{
    for (const Enum one : all) {
        if (name == nameOf(one)) return one;
    }
    throw Error(ErrorKind::Usage, "a frame: '" + name + "' is not known");
}

UtcTime timeOf(const python::handle& nanoseconds)
{
    return UtcTime(std::chrono::nanoseconds(nanoseconds.cast<int64_t>()));
}

Moment momentOf(const python::handle& nanoseconds)
{
    Moment moment;
    moment.known = !nanoseconds.is_none();
    if (moment.known) moment.utc = timeOf(nanoseconds);
    return moment;
}

FrameTimes timesOf(const python::dict& told)
{
    using How = FrameTimes::How;
    FrameTimes times;
    times.begin = timeOf(told["begin_ns"]);
    times.middle = timeOf(told["middle_ns"]);
    times.end = timeOf(told["end_ns"]);
    times.uncertainty = std::chrono::nanoseconds(told["uncertainty_ns"].cast<int64_t>());
    times.how = named(told["how"].cast<std::string>(),
                      {How::Commanded, How::Interval, How::Triggered, How::Bounded});
    times.commandSent = momentOf(told["command_sent_ns"]);
    times.firstPacket = momentOf(told["first_packet_ns"]);
    times.lastPacket = momentOf(told["last_packet_ns"]);
    times.clock.synchronised = told["clock_synchronised"].cast<bool>();
    times.clock.maximumError =
        std::chrono::microseconds(told["clock_maximum_error_us"].cast<int64_t>());
    return times;
}

Area areaOf(const python::handle& told)
{
    const auto [column, row, columns, rows] = told.cast<std::tuple<int, int, int, int>>();
    return {column, row, columns, rows};
}

template <class Number>
void take(Number* to, const python::dict& told, const char* name)
{
    *to = told[name].cast<Number>();
}

void takeGeometry(FrameFacts* facts, const python::dict& told)
{
    facts->kind = named(told["kind"].cast<std::string>(),
                        {ReadoutKind::Area, ReadoutKind::Binned, ReadoutKind::MaskBinned});
    facts->type = named(told["type"].cast<std::string>(),
                        {FrameType::Light, FrameType::Dark, FrameType::Bias, FrameType::Flat});
    take(&facts->bits, told, "bits");
    take(&facts->rows, told, "rows");
    take(&facts->columns, told, "columns");
    facts->area = areaOf(told["area"]);
    for (const python::handle region : told["regions"]) {
        facts->regions.push_back(areaOf(region));
    }
    std::tie(facts->binningX, facts->binningY) = told["binning"].cast<std::pair<int, int>>();
    std::tie(facts->sensor.columns, facts->sensor.rows) =
        told["sensor"].cast<std::pair<int, int>>();
}

void takeCondition(FrameFacts* facts, const python::dict& told)
{
    take(&facts->packetsExpected, told, "packets_expected");
    take(&facts->packetsMissing, told, "packets_missing");
    take(&facts->packetsMisplaced, told, "packets_misplaced");
    take(&facts->packetsDamaged, told, "packets_damaged");
    take(&facts->missingRows, told, "missing_rows");
    take(&facts->missingRowsKnown, told, "missing_rows_known");
    take(&facts->dropped, told, "dropped");
    take(&facts->trueSum, told, "true_sum");
    for (const python::handle complaint : told["complaints"]) {
        const auto parts = complaint.cast<python::tuple>();
        facts->complaints.push_back(
            {parts[0].cast<int>(), parts[1].cast<int>(), textFromPython(parts[2])});
    }
}

FrameFacts factsOf(const python::dict& told)
{
    FrameFacts facts;
    take(&facts.number, told, "number");
    take(&facts.readout, told, "readout");
    take(&facts.frames, told, "frames");
    takeGeometry(&facts, told);
    facts.cameraName = textFromPython(told["camera_name"]);
    facts.serial = textFromPython(told["serial"]);
    facts.target = textFromPython(told["target"]);
    facts.exposure = std::chrono::duration_cast<std::chrono::microseconds>(
        timeFromPython("exposure", told["exposure"]));
    take(&facts.sensorTemperature, told, "ccd_temp");
    take(&facts.boardTemperature, told, "board_temp");
    take(&facts.targetTemperature, told, "target_temp");
    take(&facts.imageType, told, "image_type");
    take(&facts.statistic, told, "statistic");
    takeCondition(&facts, told);
    return facts;
}

// What a camera tells may be beyond what can be set.
Value settingOf(const std::string& name, const python::tuple& parts)
{
    if (parts[1].is_none()) return {};
    const std::string text = textFromPython(parts[2]);
    const Shape& shape = findProperty(name).property->shape;
    try {
        return parsedText(name, shape, text);
    } catch (const Error&) {
    }
    try {
        return valueFromPython(name, parts[1]);
    } catch (const Error&) {
        return Value(text); // a number that is not finite
    }
}

CoreFrame frameOf(const python::bytes& pixels, const python::dict& facts, const python::dict& times,
                  const python::tuple& settings)
{
    FrameFacts known = factsOf(facts);
    known.times = timesOf(times);
    for (const python::handle entry : settings) {
        const auto parts = entry.cast<python::tuple>();
        const auto name = parts[0].cast<std::string>();
        known.settings.set(name, settingOf(name, parts));
    }
    const std::string_view bytes(pixels);
    Frame frame(std::move(known));
    if (frame.bytes() != bytes.size()) {
        throw Error(ErrorKind::Usage, "a frame: its pixels are of another size");
    }
    copyPixels(frame.mutableData(), bytes.data(), bytes.size());
    return CoreFrame(std::move(frame));
}

} // namespace

void addPickle(python::class_<CoreFrame>& frame)
{
    frame.def_static("of", &frameOf).def("pixels", [](const CoreFrame& self) {
        return bytesToPython(self.frame().data(), self.frame().bytes());
    });
}

} // namespace vxcam::py

#include "py_camera.h"

#include "py_errors.h"
#include "py_values.h"
#include "py_waits.h"
#include "wire/py_wire.h"

#include <vxcamkit/error.h>

#include <pybind11/stl.h>

#include <climits>

namespace vxcam::py {

namespace python = pybind11;

namespace {

std::atomic<int> openings{0};

class Opening
{
public:
    Opening() { ++openings; }
    ~Opening() { --openings; }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
};

CoreCamera open(const std::string& target, const std::string& restore, const std::string& flight,
                const CoreCapture* recording)
{
    OpenOptions options;
    options.flightFile = flight;
    if (restore == "none") options.restore = Restore::None;
    if (restore == "ask") options.restore = Restore::Ask;
    const std::shared_ptr<WireCapture> capture = recording != nullptr ? recording->use() : nullptr;
    return CoreCamera(interruptible([target, options, capture] {
        const Opening counted;
        const Target place = Target::parse(target);
        return std::make_shared<Camera>(capture ? Camera::open(place, options, *capture)
                                                : Camera::open(place, options));
    }));
}

ReadoutKind kindNamed(const std::string& name)
{
    for (const ReadoutKind kind :
         {ReadoutKind::Area, ReadoutKind::Binned, ReadoutKind::MaskBinned, ReadoutKind::AsSet}) {
        if (name == nameOf(kind)) return kind;
    }
    throw Error(ErrorKind::Usage,
                "kind: '" + name + "' is none of area, binned, mask-binned and as-set");
}

FrameType typeNamed(const std::string& name)
{
    for (const FrameType type :
         {FrameType::Light, FrameType::Dark, FrameType::Bias, FrameType::Flat}) {
        if (name == nameOf(type)) return type;
    }
    throw Error(ErrorKind::Usage, "type: '" + name + "' is none of light, dark, bias and flat");
}

WhenFull whenFullNamed(const std::string& name)
{
    if (name == "wait") return WhenFull::Wait;
    if (name == "drop") return WhenFull::DropNewest;
    throw Error(ErrorKind::Usage, "when_full: '" + name + "' is none of wait and drop");
}

int numberOf(const char* name, const python::handle& value)
{
    int overflow = 0;
    const long number = PyLong_AsLongAndOverflow(value.ptr(), &overflow);
    if (number == -1 && PyErr_Occurred() != nullptr) throw python::error_already_set();
    if (overflow != 0 || number > INT_MAX || number < INT_MIN) {
        throw Error(ErrorKind::Usage, std::string(name) + ": that number is out of range");
    }
    return static_cast<int>(number);
}

Area areaOf(const python::handle& given)
{
    const auto numbers = given.cast<python::tuple>();
    if (numbers.size() != 4) {
        throw Error(ErrorKind::Usage, "area: give four numbers: column, row, columns, rows");
    }
    return {numberOf("area", numbers[0]), numberOf("area", numbers[1]),
            numberOf("area", numbers[2]), numberOf("area", numbers[3])};
}

Plan planFrom(const python::dict& given)
{
    Plan plan;
    const auto take = [&given](const char* name, auto&& use) {
        if (given.contains(name) && !given[name].is_none()) use(given[name]);
    };
    take("exposure", [&](const python::handle& value) {
        plan.exposure =
            std::chrono::ceil<std::chrono::microseconds>(timeFromPython("exposure", value));
    });
    take("frames", [&](const python::handle& value) { plan.frames = numberOf("frames", value); });
    take("bits", [&](const python::handle& value) { plan.bits = numberOf("bits", value); });
    take("kind",
         [&](const python::handle& value) { plan.kind = kindNamed(value.cast<std::string>()); });
    take("type",
         [&](const python::handle& value) { plan.type = typeNamed(value.cast<std::string>()); });
    take("area", [&](const python::handle& value) { plan.area = areaOf(value); });
    take("regions", [&](const python::handle& value) {
        for (const python::handle region : value) {
            plan.regions.push_back(areaOf(region));
        }
    });
    take("binning", [&](const python::handle& value) {
        const auto numbers = value.cast<python::tuple>();
        plan.binningX = numberOf("binning", numbers[0]);
        plan.binningY = numberOf("binning", numbers[1]);
    });
    take("mode", [&](const python::handle& value) { plan.mode = numberOf("mode", value); });
    take("buffers",
         [&](const python::handle& value) { plan.buffers = numberOf("buffers", value); });
    take("when_full", [&](const python::handle& value) {
        plan.whenFull = whenFullNamed(value.cast<std::string>());
    });
    take("settings", [&](const python::handle& value) { plan.settings = value.cast<bool>(); });
    take("end_on_camera_error",
         [&](const python::handle& value) { plan.endOnCameraError = value.cast<bool>(); });
    return plan;
}

} // namespace

Plan planOf(const CoreCamera& camera, const python::dict& given)
{
    try {
        return planFrom(given);
    } catch (const WrongType& error) {
        throw WrongType(camera.target() + ": " + error.what());
    } catch (const Error& error) {
        throw Error(error.kind(), camera.target() + ": " + error.what());
    }
}

std::unique_ptr<CoreStream, LetGo> startReadout(const CoreCamera& self, const Plan& plan,
                                                std::optional<std::chrono::milliseconds> patience)
{
    const std::shared_ptr<Camera>& camera = self.use();
    const Limit limit{std::min(patience.value_or(kUsualPatience), kUsualPatience), [&self] {
                          return self.target() + ": the readout could not be started: the camera "
                                                 "does not answer. Is it still there?";
                      }};
    Stream stream = interruptible([camera, plan] { return camera->stream(plan); }, limit);
    return std::unique_ptr<CoreStream, LetGo>(new CoreStream(camera, std::move(stream)));
}

namespace {

// As Camera::grab().
CoreFrame grab(const CoreCamera& self, const python::dict& given, const python::object& timeout)
{
    const auto begin = std::chrono::steady_clock::now();
    const auto patience = patienceFromPython("timeout", timeout);
    const auto stream = startReadout(self, planOf(self, given), patience);
    std::optional<CoreFrame> frame =
        stream->next(patience, {}, std::chrono::steady_clock::now() - begin);
    if (!frame) throw Error(ErrorKind::Incomplete, self.target() + ": the frame never came");
    if (!frame->facts().complete()) throw IncompleteFrame(frame->frame());
    return std::move(*frame);
}

python::dict statisticsOf(const Statistics& figures)
{
    python::dict result;
    result["bytes_received"] = figures.bytesReceived;
    result["bytes_sent"] = figures.bytesSent;
    result["messages_received"] = figures.messagesReceived;
    result["messages_bad"] = figures.messagesBad;
    result["messages_sent"] = figures.messagesSent;
    result["bytes_skipped"] = figures.bytesSkipped;
    result["connections_lost"] = figures.connectionsLost;
    result["reconnects"] = figures.reconnects;
    result["heartbeats"] = figures.heartbeats;
    result["camera_errors"] = figures.cameraErrors;
    result["requests_sent"] = figures.requestsSent;
    result["requests_answered"] = figures.requestsAnswered;
    result["requests_timed_out"] = figures.requestsTimedOut;
    result["frames_complete"] = figures.framesComplete;
    result["frames_incomplete"] = figures.framesIncomplete;
    result["frames_failed"] = figures.framesFailed;
    result["frames_aborted"] = figures.framesAborted;
    result["packets_received"] = figures.packetsReceived;
    result["packets_missing"] = figures.packetsMissing;
    result["packets_duplicate"] = figures.packetsDuplicate;
    return result;
}

python::tuple identityOf(const CoreCamera& self)
{
    const Identity& identity = self.use()->identity();
    return python::make_tuple(textToPython(identity.name), textToPython(identity.serial),
                              textToPython(identity.version), identity.bits);
}

} // namespace

int openingsUnderWay()
{
    return openings;
}

void addCamera(python::module_& module)
{
    CameraClass camera(module, "Camera");
    camera.def(python::init(&open))
        .def("start",
             [](const CoreCamera& self, const python::dict& given, const python::object& timeout) {
                 return startReadout(self, planOf(self, given),
                                     patienceFromPython("timeout", timeout));
             })
        .def("grab", &grab)
        .def("abort",
             [](const CoreCamera& self) {
                 interruptible([camera = self.use()] { camera->abort(); });
             })
        .def("close",
             [](const CoreCamera& self) {
                 interruptible([camera = self.use()] { camera->close(); });
             })
        .def("wait_for_link",
             [](const CoreCamera& self, const python::object& timeout) {
                 const auto most = std::chrono::ceil<std::chrono::milliseconds>(
                     timeFromPython("timeout", timeout));
                 return interruptible(
                     [camera = self.use(), most] { return camera->waitForLink(most); });
             })
        .def("flight", [](const CoreCamera& self) { return textToPython(self.use()->flight()); })
        .def("check_link",
             [](const CoreCamera& self, int messages) {
                 const LinkCheck check = interruptible(
                     [camera = self.use(), messages] { return camera->checkLink(messages); });
                 return python::make_tuple(check.messages, check.damaged, check.megabytesPerSecond);
             })
        .def("statistics",
             [](const CoreCamera& self) { return statisticsOf(self.use()->statistics()); })
        .def("identity", &identityOf)
        .def("sensor",
             [](const CoreCamera& self) {
                 const Size size = self.use()->sensor();
                 return python::make_tuple(size.columns, size.rows);
             })
        .def("time_scale", [](const CoreCamera& self) { return self.use()->timeScale(); })
        .def("address", [](const CoreCamera& self) { return self.use()->address(); })
        .def("handle", [](const CoreCamera& self) { return self.use()->handle(); })
        .def("own", [](const CoreCamera& self) { self.use(); })
        .def("is_foreign", &CoreCamera::isForeign)
        .def("target", &CoreCamera::target);
    addSettings(camera);
    addCooler(camera);
    addMeasures(camera);
    addEvents(module, camera);
}

} // namespace vxcam::py

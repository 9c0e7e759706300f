#include "py_camera.h"
#include "py_package.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>

#include <pybind11/stl.h>

#include <algorithm>

namespace vxcam::py {

namespace python = pybind11;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr milliseconds kUsualSilence(10000); // beyond the moment when something is due

// Notices that the camera says nothing though something is due: no trigger is waited for, and the
// exposure is over.
class Silence
{
public:
    bool isTooLong(const Progress& progress)
    {
        const bool isDue = progress.phase == Progress::Phase::Exposed ||
                           progress.phase == Progress::Phase::Reading;
        const auto now = steady_clock::now();
        if (!isDue || progress.frame != frame_ || progress.done != done_) since_ = now;
        frame_ = progress.frame;
        done_ = progress.done;
        return now - since_ >= kUsualSilence;
    }

private:
    steady_clock::time_point since_ = steady_clock::now();
    int frame_ = 0;
    double done_ = -1;
};

// Whoever takes frames, alone.
class Taking
{
public:
    explicit Taking(std::atomic<bool>* isTaken) : isTaken_(isTaken)
    {
        if (isTaken_->exchange(true)) {
            throw Error(ErrorKind::Usage, "another thread waits for the next frame of this "
                                          "stream: one thread takes its frames");
        }
    }
    ~Taking() { *isTaken_ = false; }
    Taking(const Taking&) = delete;
    Taking& operator=(const Taking&) = delete;

private:
    std::atomic<bool>* isTaken_;
};

std::string secondsText(milliseconds time)
{
    std::string text = std::to_string(std::chrono::duration<double>(time).count());
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text + " s";
}

[[noreturn]] void giveUp(const Camera& camera, const std::string& why)
{
    throw Error(ErrorKind::Timeout, camera.target() + ": no frame: " + why +
                                        "; the readout was ended. Is the camera still there?");
}

// The method __next__ of vxcam.Stream.
python::object nextFrame(const python::object& stream)
{
    static const FieldName core("_core"), timeout("_timeout");
    auto& readout = core.of(stream).cast<CoreStream&>();
    std::optional<CoreFrame> frame =
        readout.next(patienceFromPython("timeout", timeout.of(stream)));
    if (!frame) throw python::stop_iteration();
    return frameToPython(std::move(*frame));
}

} // namespace

CoreStream::CoreStream(std::shared_ptr<Camera> camera, Stream stream)
    : held_(std::make_shared<Held>(std::move(camera), std::move(stream)))
{}

CoreStream::~CoreStream()
{
    if (!held_.isForeign()) stream().stop();
}

std::optional<CoreFrame> CoreStream::next(std::optional<milliseconds> patience,
                                          std::optional<milliseconds> most,
                                          steady_clock::duration passed)
{
    const std::shared_ptr<Held> held = held_.use("the readout");
    Stream& stream = held->stream;
    const Taking taking(&held->isTaken);
    const auto start = steady_clock::now();
    Silence silence;
    const auto nextSlice = [&]() -> std::optional<Frame> {
        const auto waited = std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
        const python::gil_scoped_release released;
        return stream.next(
            std::clamp(most.value_or(milliseconds::max()) - waited, milliseconds(0), kSlice));
    };
    for (;;) {
        // Of a readout that had ended before, what is thrown is how; else it may end meanwhile.
        const bool hasEnded = stream.end() != ReadoutEnd::Running;
        try {
            std::optional<Frame> frame = nextSlice();
            if (!frame) return std::nullopt;
            return CoreFrame(std::move(*frame));
        } catch (const Error& error) {
            if (hasEnded || error.kind() != ErrorKind::Timeout) throw;
        }
        try {
            checkSignals();
            if (most && steady_clock::now() - start >= *most) return std::nullopt;
            if (patience && passed + (steady_clock::now() - start) >= *patience) {
                giveUp(*held->camera, "none came within " + secondsText(*patience));
            }
            if (!patience && silence.isTooLong(stream.progress())) {
                giveUp(*held->camera, "the camera was silent for " + secondsText(kUsualSilence));
            }
        } catch (...) {
            stop();
            throw;
        }
    }
}

void CoreStream::stop()
{
    if (held_.isForeign()) return;
    const std::shared_ptr<Held> held = held_.use("the readout");
    const python::gil_scoped_release released;
    held->stream.stop();
}

void addStream(python::module_& module)
{
    python::class_<CoreStream, std::unique_ptr<CoreStream, LetGo>>(module, "Stream")
        .def("next",
             [](CoreStream& self, const python::object& timeout, const python::object& most) {
                 return self.next(patienceFromPython("timeout", timeout),
                                  patienceFromPython("seconds", most));
             })
        .def("stop", &CoreStream::stop)
        .def("end", [](const CoreStream& self) { return nameOf(self.stream().end()); })
        .def("end_text", [](const CoreStream& self) { return self.stream().endText(); })
        .def("books",
             [](const CoreStream& self) {
                 const StreamBooks books = self.stream().books();
                 return python::make_tuple(books.complete, books.incomplete, books.dropped,
                                           books.taken);
             })
        .def("progress", [](const CoreStream& self) {
            static const char* const phases[] = {"waiting", "exposing", "exposed", "reading",
                                                 "ended"};
            const Progress progress = self.stream().progress();
            using Seconds = std::chrono::duration<double>;
            return python::make_tuple(phases[static_cast<int>(progress.phase)], progress.frame,
                                      progress.done, Seconds(progress.elapsed).count(),
                                      Seconds(progress.exposure).count());
        });
    const python::cpp_function next(&nextFrame, python::name("__next__"));
    module.attr("next_frame") =
        python::reinterpret_steal<python::object>(PyInstanceMethod_New(next.ptr()));
}

} // namespace vxcam::py

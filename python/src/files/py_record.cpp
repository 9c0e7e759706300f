// Records of many frames: written, and looked at.
#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/recorder.h>
#include <vxcamkit/verify.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

Compression compressionNamed(const std::string& name)
{
    for (const Compression one : {Compression::None, Compression::Gzip, Compression::Rice}) {
        if (name == nameOf(one)) return one;
    }
    throw Error(ErrorKind::Usage, "compress: '" + name + "' is none of none, gzip and rice");
}

// A record, and what it hears of a camera.
class CoreRecorder
{
public:
    CoreRecorder(const python::object& path, const std::string& compression, bool overwrite,
                 uint64_t split, size_t most, uint64_t reserve, bool isMeasured,
                 const std::string& software, const std::vector<std::string>& cards)
        : held_(make(textFromPython(path), compression, overwrite, split, most, reserve,
                     headerOf(software, cards, false)))
    {
        if (isMeasured) use()->recorder.measure();
    }

    void listen(const CoreCamera& camera) const
    {
        const std::shared_ptr<Held> held = use();
        held->listening = camera.use()->onEvent([recorder = &held->recorder](const Event& event) {
            if (event.kind != EventKind::Heartbeat) recorder->note(event);
        });
    }

    bool write(const CoreFrame& frame) const
    {
        return interruptible([held = use(), frame] { return held->recorder.write(frame.frame()); });
    }

    void finish(const std::string& how, std::optional<uint64_t> dropped) const
    {
        interruptible([held = use(), how, dropped] {
            held->listening.reset();
            held->recorder.finish(how, dropped);
        });
    }

    void throwFailure() const { use()->recorder.throwFailure(); }

    python::tuple books() const
    {
        const RecordBooks books = use()->recorder.books();
        python::list files;
        for (const RecordedFile& file : books.files) {
            files.append(python::make_tuple(textToPython(file.path), file.frames, file.bytes));
        }
        return python::make_tuple(books.frames, books.incomplete, books.dropped, books.pixelBytes,
                                  python::tuple(files));
    }

private:
    struct Held {
        Recorder recorder;
        std::optional<Subscription> listening; // ends before it

        Held(const std::string& path, RecordOptions options) : recorder(path, std::move(options)) {}
    };

    static std::shared_ptr<Held> make(const std::string& path, const std::string& compression,
                                      bool overwrite, uint64_t split, size_t most, uint64_t reserve,
                                      HeaderOptions header)
    {
        RecordOptions options;
        options.header = std::move(header);
        options.compression = compressionNamed(compression);
        options.force = overwrite;
        options.split = split;
        options.most = most;
        options.reserve = reserve;
        return interruptible([path, options] { return std::make_shared<Held>(path, options); });
    }
    const std::shared_ptr<Held>& use() const { return held_.use("the record"); }

    Owned<Held> held_;
};

python::tuple verify(const python::object& given, const std::string& truth)
{
    const std::string path = textFromPython(given);
    const Verdict verdict =
        interruptible([path, truth] { return verifyRecord(path, VerifyOptions{truth}); });
    python::list findings;
    for (const Finding& finding : verdict.findings) {
        findings.append(python::make_tuple(
            finding.check,
            finding.frame >= 0 ? python::object(python::int_(finding.frame)) : python::none(),
            textToPython(finding.text)));
    }
    return python::make_tuple(textToPython(verdict.path), verdict.format, verdict.frames,
                              textToPython(verdict.ended), python::tuple(findings),
                              verdict.incomplete);
}

} // namespace

void addRecords(python::module_& module)
{
    using Texts = std::vector<std::string>;
    python::class_<CoreRecorder, std::unique_ptr<CoreRecorder, LetGo>>(module, "Recorder")
        .def(python::init<const python::object&, const std::string&, bool, uint64_t, size_t,
                          uint64_t, bool, const std::string&, const Texts&>())
        .def("listen", &CoreRecorder::listen)
        .def("write", &CoreRecorder::write)
        .def("finish", &CoreRecorder::finish)
        .def("throw_failure", &CoreRecorder::throwFailure)
        .def("books", &CoreRecorder::books);
    module.def("verify", &verify);
}

} // namespace vxcam::py

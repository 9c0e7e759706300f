// Sequences: plans that are read, and runs of them.
#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/sequence.h>

#include <pybind11/stl.h>

#include <cerrno>
#include <mutex>
#include <utility>
#include <vector>

namespace vxcam::py {

namespace python = pybind11;

namespace {

constexpr std::chrono::milliseconds kEnd(60); // of a run that is told to stop

double seconds(std::chrono::duration<double> time)
{
    return time.count();
}

const char* kindOf(const SequenceStep& step)
{
    using Kind = SequenceStep::Kind;
    switch (step.kind) {
    case Kind::Frames:
        return step.plan.type == FrameType::Light  ? "lights"
               : step.plan.type == FrameType::Dark ? "darks"
               : step.plan.type == FrameType::Bias ? "bias"
                                                   : "flats";
    case Kind::Set:
        return "set";
    case Kind::Cool:
        return "temperature";
    case Kind::WarmUp:
        return "warm-up";
    case Kind::Delay:
        return "wait";
    case Kind::Hook:
        return "run";
    case Kind::Repeat:
        break;
    }
    return "repeat";
}

python::tuple stepsOf(const std::vector<SequenceStep>& steps)
{
    using Kind = SequenceStep::Kind;
    python::list result;
    for (const SequenceStep& step : steps) {
        python::dict one, settings;
        one["kind"] = kindOf(step);
        one["line"] = step.line;
        one["number"] = step.count;
        one["name"] = textToPython(step.name);
        if (step.plan.exposure) one["exposure"] = seconds(*step.plan.exposure);
        for (const auto& [name, value] : step.settings) {
            settings[python::str(name)] = valueToPython(value);
        }
        one["settings"] = settings;
        if (step.kind == Kind::Cool || step.kind == Kind::WarmUp) {
            one["temperature"] = step.cooling.target;
            one["ramp"] = step.cooling.ramp;
        }
        one["delay"] = seconds(step.delay);
        one["command"] =
            textToPython(step.kind == Kind::Hook ? step.hook.command : step.dither.command);
        one["steps"] = stepsOf(step.steps);
        result.append(one);
    }
    return python::tuple(result);
}

python::object sizeOf(const std::optional<Size>& size)
{
    if (!size) return python::none();
    return python::make_tuple(size->columns, size->rows);
}

python::tuple toPython(const SequenceProgress& progress)
{
    return python::make_tuple(progress.taken, progress.frames, progress.done,
                              seconds(progress.left), textToPython(progress.doing),
                              progress.file.empty() ? python::object(python::none())
                                                    : textToPython(progress.file));
}

python::tuple toPython(const SequenceNeeds& needs)
{
    return python::make_tuple(needs.frames, needs.hooks, seconds(needs.exposure),
                              seconds(needs.duration), needs.bytes);
}

python::tuple toPython(const SequenceReport& report)
{
    python::list files, failures;
    for (const SequenceFile& file : report.files) {
        files.append(python::make_tuple(textToPython(file.path), file.bytes));
    }
    for (const SequenceFailure& failure : report.failures) {
        failures.append(python::make_tuple(failure.utc, textToPython(failure.text)));
    }
    return python::make_tuple(textToPython(report.journal), report.runs, report.frames,
                              report.before, report.complete, python::tuple(files),
                              python::tuple(failures));
}

// One run, and what it tells on the way to the thread that waits for it.
//
// Threads: run() on one that nobody else uses; the rest on any.
class Run
{
public:
    Run(const SequencePlan& plan, const SequenceOptions& options)
        : sequence_(plan, with(options, this))
    {}

    bool isComplete() const { return sequence_.isComplete(); }
    SequenceReport report() const { return sequence_.report(); } // not while it runs
    void run(Camera& camera) { sequence_.run(camera); }
    void stop(SequenceStop when) { sequence_.stop(when); }

    // What was told since the last time: each file, and what is the case now.
    std::vector<SequenceProgress> news()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        return std::exchange(news_, {});
    }

private:
    static SequenceOptions with(SequenceOptions options, Run* run)
    {
        options.onProgress = [run](const SequenceProgress& progress) { run->tell(progress); };
        return options;
    }
    void tell(const SequenceProgress& progress)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (!news_.empty() && news_.back().file.empty()) news_.pop_back();
        news_.push_back(progress);
    }

    Sequence sequence_;
    std::mutex lock_;
    std::vector<SequenceProgress> news_;
};

class CoreRun
{
public:
    explicit CoreRun(std::shared_ptr<Run> run) : run_(std::make_unique<Owned<Run>>(std::move(run)))
    {}

    bool isComplete() const
    {
        return interruptible([run = use()] { return run->isComplete(); });
    }

    // `listener` is called on this thread; when it raises, or a signal's handler does, the run is
    // stopped, and waited for as far as that takes no longer than a signal may take.
    void run(const CoreCamera& camera, const python::object& listener) const
    {
        const std::shared_ptr<Run> run = use();
        const auto look = [&] {
            for (const SequenceProgress& progress : run->news()) {
                if (!listener.is_none()) listener(*toPython(progress));
            }
        };
        const auto work = [run, camera = camera.use()] { run->run(*camera); };
        const auto job = std::make_shared<JobOf<decltype(work)>>(work);
        runAside(job, {}, {look, [run] {
                               run->stop(SequenceStop::Now);
                               return kEnd;
                           }});
        look();
        job->take();
    }

    python::tuple report() const { return toPython(use()->report()); }

    void stop(bool behindFrame) const
    {
        if (run_) use()->stop(behindFrame ? SequenceStop::BehindFrame : SequenceStop::Now);
    }

    // Somebody else may have the journal then, as soon as a run that goes on has ended.
    void close() { LetGo()(run_.release()); }

private:
    const std::shared_ptr<Run>& use() const
    {
        if (!run_) throw Error(ErrorKind::Usage, "the run is over");
        return run_->use("the sequence");
    }

    std::unique_ptr<Owned<Run>> run_;
};

// A plan that was read.
class CoreSequence
{
public:
    explicit CoreSequence(const python::object& path)
        : plan_(interruptible([path = textFromPython(path)] { return readSequence(path); }))
    {}

    const SequencePlan& plan() const { return plan_; }

    python::tuple needs() const { return toPython(needsOf(plan_)); }
    python::tuple check(const CoreCamera& camera) const
    {
        return toPython(interruptible(
            [plan = plan_, used = camera.use()] { return checkSequence(plan, *used); }));
    }

    std::unique_ptr<CoreRun, LetGo> begin(const python::object& folder, bool mayGoOn,
                                          const std::string& software) const
    {
        SequenceOptions options;
        options.software = software;
        auto run = interruptible([plan = in(folder), options, mayGoOn] {
            auto made = std::make_shared<Run>(plan, options);
            if (!mayGoOn && made->report().runs > 0) {
                throw Error(ErrorKind::File,
                            plan.folder + ": the sequence was begun there; choose another folder, "
                                          "or go on with it by resume=True",
                            EEXIST);
            }
            return made;
        });
        return std::unique_ptr<CoreRun, LetGo>(new CoreRun(std::move(run)));
    }

    python::object report(const python::object& folder) const
    {
        const std::optional<SequenceReport> report =
            interruptible([plan = in(folder)] { return reportOf(plan); });
        if (!report) return python::none();
        return toPython(*report);
    }

private:
    SequencePlan in(const python::object& folder) const
    {
        SequencePlan plan = plan_;
        if (!folder.is_none()) plan.folder = textFromPython(folder);
        return plan;
    }

    SequencePlan plan_;
};

} // namespace

void addSequences(python::module_& module)
{
    python::class_<CoreRun, std::unique_ptr<CoreRun, LetGo>>(module, "SequenceRun")
        .def("complete", &CoreRun::isComplete)
        .def("run", &CoreRun::run)
        .def("report", &CoreRun::report)
        .def("stop", &CoreRun::stop)
        .def("close", &CoreRun::close);
    python::class_<CoreSequence>(module, "Sequence")
        .def(python::init<const python::object&>())
        .def("target", [](const CoreSequence& self) { return textToPython(self.plan().target); })
        .def("folder", [](const CoreSequence& self) { return textToPython(self.plan().folder); })
        .def("sensor", [](const CoreSequence& self) { return sizeOf(self.plan().sensor); })
        .def("steps", [](const CoreSequence& self) { return stepsOf(self.plan().steps); })
        .def("needs", &CoreSequence::needs)
        .def("check", &CoreSequence::check)
        .def("begin", &CoreSequence::begin)
        .def("report", &CoreSequence::report);
}

} // namespace vxcam::py

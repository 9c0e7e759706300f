// vxcam sequence: takes frames by a plan, and goes on where it was.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/sequence.h>

#include <nlohmann/json.hpp>

#include <cerrno>

const char* const gsSequenceExamples =
    R"(  vxcam sequence night.yaml --dry-run              what it comes to; nothing is done
  vxcam sequence night.yaml 192.168.1.20:2000      the same again goes on where it was
  vxcam sequence night.yaml -o /data/night --json  for scripts)";

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

class tcSequence : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void ReadPlan();
    std::optional<vxcam::Size> KnownSensor() const;
    void DescribePlan(const vxcam::SequenceNeeds& needs);
    void PrintPlan(const vxcam::SequenceNeeds& needs) const;
    void Take();
    void RunWith(vxcam::Sequence& sequence);
    vxcam::SequenceOptions Options();
    void Tell(const vxcam::SequenceProgress& progress);
    void Describe(const vxcam::SequenceReport& report);
    void Print(const vxcam::SequenceReport& report) const;

    tsCommonOptions mtCommon;
    std::string msFile, msFolder, msInstrument;
    bool mbDryRun = false;
    vxcam::SequencePlan mtPlan;
    tpClock::time_point mBegin = tpClock::now();
    std::unique_ptr<tcProgress> mpProgress;
    nlohmann::ordered_json mDocument = nlohmann::ordered_json::object();
};

double Seconds(std::chrono::duration<double> time)
{
    return time.count();
}

void tcSequence::Declare(tcCommandLine& line)
{
    line.Operand("FILE", &msFile, "the plan, in YAML").Required();
    mtCommon.target.clear(); // as the plan says
    DeclareTarget(line, &mtCommon);
    line.Flag("--dry-run", &mbDryRun, "check the plan and tell what it comes to, nothing else");
    line.Option("-o,--output", &msFolder, "FOLDER", "where the frames go; else as the plan says");
    line.Option("--instrument", &msInstrument, "NAME", "the camera's name in the files");
    line.Flag("--json", &mbJson, "print one JSON document");
    DeclareCameraOptions(line, &mtCommon);
}

void tcSequence::ReadPlan()
{
    mtPlan = vxcam::readSequence(msFile);
    if (!msFolder.empty()) mtPlan.folder = msFolder;
    if (mtCommon.target.empty()) mtCommon.target = mtPlan.target;
    const tsCommonOptions usual;
    if (mtCommon.target.empty()) mtCommon.target = usual.target;
    if (mtPlan.sensor && mtCommon.simSensor == usual.simSensor) {
        mtCommon.simSensor =
            std::to_string(mtPlan.sensor->columns) + "x" + std::to_string(mtPlan.sensor->rows);
    }
}

// Of a camera that need not be asked.
std::optional<vxcam::Size> tcSequence::KnownSensor() const
{
    const vxcam::Target target = TargetOf(mtCommon);
    if (target.kind == vxcam::Target::Kind::Simulator) return target.simulator.sensor;
    return mtPlan.sensor;
}

void tcSequence::DescribePlan(const vxcam::SequenceNeeds& needs)
{
    mDocument["plan"] = msFile;
    mDocument["target"] = mtCommon.target;
    mDocument["folder"] = mtPlan.folder;
    mDocument["frames"] = needs.frames;
    mDocument["hooks"] = needs.hooks;
    mDocument["exposure_s"] = Seconds(needs.exposure);
    mDocument["duration_s"] = Seconds(needs.duration);
    mDocument["bytes"] = nullptr;
    if (needs.bytes) mDocument["bytes"] = *needs.bytes;
}

void tcSequence::PrintPlan(const vxcam::SequenceNeeds& needs) const
{
    std::string text = msFile + ": " + CountText(needs.frames, "frame") + " to " + mtPlan.folder;
    if (needs.frames > 0) text += ", " + DurationText(needs.exposure) + " exposed";
    if (needs.duration.count() > 0) text += ", about " + DurationText(needs.duration) + " in all";
    if (needs.frames > 0) {
        text += needs.bytes ? ", " + BytesText(*needs.bytes)
                            : ", of the disk as much as the camera's sensor needs";
    }
    if (needs.hooks > 0) text += "; " + CountText(needs.hooks, "command") + ", not counted";
    PrintLine(text);
}

void tcSequence::Tell(const vxcam::SequenceProgress& progress)
{
    ThrowIfInterrupted();
    const std::string count =
        std::to_string(progress.taken) + " of " + std::to_string(progress.frames);
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(progress.left);
    const std::string left = DurationText(seconds) + " left";
    if (!progress.file.empty() && !mbJson && !mtCommon.quiet) {
        mpProgress->Clear();
        PrintLine(progress.file + ": " + count + ", " + left);
    }
    mpProgress->Show(progress.doing, progress.done, count + ", " + left);
}

vxcam::SequenceOptions tcSequence::Options()
{
    vxcam::SequenceOptions options;
    options.software = "vxcam " VXCAM_VERSION;
    options.instrument = msInstrument;
    options.onProgress = [this](const vxcam::SequenceProgress& progress) { Tell(progress); };
    return options;
}

void tcSequence::Describe(const vxcam::SequenceReport& report)
{
    mDocument["journal"] = report.journal;
    mDocument["runs"] = report.runs;
    mDocument["taken"] = report.files.size();
    mDocument["taken_before"] = report.before;
    mDocument["complete"] = report.complete;
    mDocument["seconds"] = Seconds(tpClock::now() - mBegin);
    mDocument["files"] = nlohmann::ordered_json::array();
    for (const vxcam::SequenceFile& file : report.files) {
        mDocument["files"].push_back({{"file", file.path}, {"bytes", file.bytes}});
    }
    mDocument["failures"] = nlohmann::ordered_json::array();
    for (const vxcam::SequenceFailure& failure : report.failures) {
        mDocument["failures"].push_back({{"time", failure.utc}, {"text", failure.text}});
    }
}

void tcSequence::Print(const vxcam::SequenceReport& report) const
{
    uint64_t bytes = 0;
    for (const vxcam::SequenceFile& file : report.files) {
        bytes += file.bytes;
    }
    PrintLine(std::string(report.complete ? "complete" : "not complete") + ": " +
              std::to_string(report.files.size()) + " of " + CountText(report.frames, "frame") +
              " taken, " + std::to_string(report.before) + " of them in earlier runs, " +
              BytesText(bytes) + "; " + CountText(report.failures.size(), "failure"));
    for (const vxcam::SequenceFailure& failure : report.failures) {
        PrintLine("  " + failure.utc + " " + failure.text);
    }
}

void tcSequence::RunWith(vxcam::Sequence& sequence)
{
    vxcam::Camera camera = OpenCamera(mtCommon);
    sequence.run(camera);
    camera.close();
}

void tcSequence::Take()
{
    vxcam::Sequence sequence(mtPlan, Options());
    std::exception_ptr failure;
    try {
        if (!sequence.isComplete()) RunWith(sequence);
    } catch (...) {
        failure = std::current_exception();
    }
    mpProgress->Clear();
    const vxcam::SequenceReport report = sequence.report();
    Describe(report);
    if (!mbJson && !mtCommon.quiet) Print(report);
    try {
        if (failure) std::rethrow_exception(failure);
    } catch (const vxcam::HookError& error) {
        throw tcFailure(eExitHook, error.what());
    } catch (const vxcam::Error& error) {
        if (error.code() != EEXIST) throw;
        throw tcFailure(error.row().exitCode,
                        std::string(error.what()) + "; move it away, or choose another folder");
    }
}

void tcSequence::Run()
{
    ReadPlan();
    const vxcam::SequenceNeeds needs = vxcam::needsOf(mtPlan, KnownSensor());
    DescribePlan(needs);
    if (!mbDryRun) {
        mpProgress = std::make_unique<tcProgress>(!mtCommon.quiet);
        Take();
    } else if (!mbJson && !mtCommon.quiet) {
        PrintPlan(needs);
    }
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeSequence()
{
    return std::make_unique<tcSequence>();
}

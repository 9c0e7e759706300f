// vxcam grab: expose, read out and save.
#include "arguments.h"
#include "complaints.h"
#include "failure.h"
#include "headeroptions.h"
#include "interrupt.h"
#include "planoptions.h"
#include "program.h"
#include "readout.h"
#include "report.h"
#include "tcTriggerHook.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cmath>
#include <set>

const char* const gsGrabExamples =
    R"(  vxcam grab                                    one frame, simulated, to frame.fits
  vxcam grab sim -e 5s --preview frame.png      with a picture to look at
  vxcam grab 192.168.1.20:2000 -e 500ms --frames 10 -o run7-%04d.fits
  vxcam grab --area 512,512,256,256 -o part.fits --force
  vxcam grab serial:1207 --dark -e 5min --header 'OBSERVER=Anna/who did it'
  vxcam grab --target-temp -20 --wait-cool --sim-time-scale 100 -e 1min
  vxcam grab --measure --json                   noise, stars and their width, too
  vxcam grab -q -o - | gzip > frame.fits.gz     the file goes to standard output)";

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

constexpr int gnMostFrames = 32767;
constexpr double gnCoolEnough = 0.5; // degrees Celsius
constexpr double gnTenths = 10.0;    // what a camera is told
constexpr std::chrono::hours gnNoLimit(1000000);
constexpr tpMilliseconds gnPoll(100);

double Seconds(tpClock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

class tcGrab : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void DeclareCooling(tcCommandLine& line);
    void DeclareFiles(tcCommandLine& line);
    void CheckArguments();
    void NameFiles();
    void CheckFiles() const;
    void CheckEndings() const;
    void Cool(vxcam::Camera& camera, tcProgress& progress);
    void WaitCool(vxcam::Camera& camera, tcProgress& progress);
    void ReadOut(vxcam::Camera& camera, tcProgress& progress);
    tsReadoutOptions ReadoutOptions(const vxcam::Camera& camera) const;
    void Describe(const vxcam::Camera& camera, const tcReadout& readout);
    void DescribeFrames(const std::vector<tsGrabbed>& written);
    void PrintFrames(const std::vector<tsGrabbed>& written) const;
    void RequireComplete(const std::vector<tsGrabbed>& written) const;

    tsCommonOptions mtCommon;
    tcPlanOptions mPlanOptions;
    tcHeaderOptions mHeaderOptions;
    std::string msCoolTimeout = "10min";
    std::string msOutput = "frame.fits", msPreview;
    int mnFrames = 1;
    bool mbWaitCool = false, mbAllowIncomplete = false, mbMeasure = false;
    std::optional<double> mTarget; // degrees Celsius

    vxcam::Plan mtPlan;
    vxcam::HeaderOptions mtHeader;
    tpMilliseconds mCoolTimeout{0};
    std::vector<std::string> maFiles, maPreviews;
    bool mbToOutput = false; // to standard output, instead of a file
    tpClock::time_point mBegin, mOpened, mReading;
    nlohmann::ordered_json mDocument = nlohmann::ordered_json::object();
};

void tcGrab::DeclareCooling(tcCommandLine& line)
{
    line.Option("--target-temp", &mTarget, "DEGREES", "cool the sensor to so many degrees Celsius");
    line.Flag("--wait-cool", &mbWaitCool, "wait until the sensor is within 0.5 degrees of it");
    line.Option("--cool-timeout", &msCoolTimeout, "TIME", "wait no longer than this");
}

void tcGrab::DeclareFiles(tcCommandLine& line)
{
    line.Option("-o,--output", &msOutput, "FILE",
                "FITS file; %04d in it stands for the frame's number; - is standard output");
    line.Option("--preview", &msPreview, "FILE", "PNG picture of each frame, named likewise");
    mHeaderOptions.Declare(line);
}

void tcGrab::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    mPlanOptions.DeclareExposure(line);
    line.Option("--frames", &mnFrames, "NUMBER", "frames to take in one readout")
        .Within(1, gnMostFrames);
    mPlanOptions.DeclareReadout(line);
    line.Flag("--allow-incomplete", &mbAllowIncomplete,
              "frames of which packets are missing are no failure");
    DeclareCooling(line);
    DeclareFiles(line);
    line.Flag("--measure", &mbMeasure, "tell level, noise and stars of each frame");
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcGrab::NameFiles()
{
    mbToOutput = msOutput == "-";
    if (mbToOutput && mnFrames != 1) {
        throw tcFailure(eExitUsage, "--output -: standard output takes one frame");
    }
    if (mbToOutput && mbJson) {
        throw tcFailure(eExitUsage, "--output -: standard output is where --json prints");
    }
    if (mbToOutput && ::isatty(STDOUT_FILENO) == 1) {
        throw tcFailure(eExitUsage, "--output -: standard output is a terminal");
    }
    if (msPreview == "-") {
        throw tcFailure(eExitUsage, "--preview -: standard output takes FITS files alone");
    }
    maFiles = FileNames(mbToOutput ? "standard output" : msOutput, mnFrames);
    if (!msPreview.empty()) maPreviews = FileNames(msPreview, mnFrames);
}

void tcGrab::CheckArguments()
{
    mtPlan = mPlanOptions.Plan();
    mtPlan.frames = mnFrames;
    mCoolTimeout = ParseDuration(msCoolTimeout);
    if (mTarget && !(std::abs(*mTarget) <= 273.0)) {
        throw tcFailure(eExitUsage, "target temperature: -273 to 273 degrees Celsius");
    }
    if (mTarget) mTarget = std::round(*mTarget * gnTenths) / gnTenths;
    NameFiles();
    mtHeader = mHeaderOptions.Header(mbMeasure);
    TargetOf(mtCommon); // before any file is looked at
    CheckEndings();
}

// A name that says what is not in the file misleads programs that go by it.
void tcGrab::CheckEndings() const
{
    using vxcam::FileFormat;
    const std::string output = vxcam::otherKindOf(msOutput, FileFormat::Fits);
    if (!output.empty()) {
        throw tcFailure(eExitUsage, msOutput + ": it would be a FITS file, and no " + output +
                                        "; --preview makes a PNG");
    }
    for (const char* packed : {".gz", ".fz"}) {
        if (msOutput.size() > 3 && msOutput.compare(msOutput.size() - 3, 3, packed) == 0) {
            throw tcFailure(eExitUsage, msOutput + ": files are not compressed here");
        }
    }
    const std::string preview = vxcam::otherKindOf(msPreview, FileFormat::Preview);
    if (!preview.empty()) {
        throw tcFailure(eExitUsage, msPreview + ": it would be a PNG, and no " + preview + " file");
    }
}

void tcGrab::CheckFiles() const
{
    std::set<std::string> names;
    for (const auto* list : {&maFiles, &maPreviews}) {
        if (list == &maFiles && mbToOutput) continue;
        for (const std::string& name : *list) {
            if (!names.insert(name).second) {
                throw tcFailure(eExitUsage, name + ": would be written twice");
            }
            vxcam::checkNewFile(name, mHeaderOptions.Force());
        }
    }
}

void tcGrab::Cool(vxcam::Camera& camera, tcProgress& progress)
{
    if (!mTarget && !mbWaitCool) return;
    if (!mTarget) mTarget = camera.get("target-temp").toDouble();
    camera.set("target-temp", *mTarget);
    camera.set("cooling", true);
    if (mbWaitCool) WaitCool(camera, progress);
}

void tcGrab::WaitCool(vxcam::Camera& camera, tcProgress& progress)
{
    const auto deadline = tpClock::now() + mCoolTimeout;
    const tcComplaints complaints(camera);
    vxcam::Cooling cooling;
    cooling.target = *mTarget;
    cooling.tolerance = gnCoolEnough;
    cooling.settle = tpMilliseconds(0);
    cooling.patience = gnNoLimit;
    camera.cooler().cool(cooling);
    while (true) {
        ThrowIfInterrupted();
        if (const auto complaint = complaints.First()) throw tcFailure(eExitCamera, *complaint);
        const vxcam::CoolingState state = camera.cooler().state();
        if (state.phase == vxcam::CoolingPhase::Settled) break;
        if (state.phase == vxcam::CoolingPhase::Failed) {
            throw tcFailure(eExitTimeout, "cooling: " + Told(state.text));
        }
        if (tpClock::now() >= deadline) {
            throw tcFailure(eExitTimeout,
                            "cooling: " + state.text + " after " + DurationText(mCoolTimeout));
        }
        progress.Show("cooling", state.done, state.text);
        camera.cooler().wait(gnPoll);
    }
    camera.cooler().stop();
    progress.Clear();
}

tsReadoutOptions tcGrab::ReadoutOptions(const vxcam::Camera& camera) const
{
    tsReadoutOptions options;
    options.files = maFiles;
    options.previews = maPreviews;
    options.force = mHeaderOptions.Force();
    options.toOutput = mbToOutput;
    options.measure = mbMeasure;
    options.header = mtHeader;
    options.header.instrument = mHeaderOptions.InstrumentOf(camera);
    return options;
}

void tcGrab::ReadOut(vxcam::Camera& camera, tcProgress& progress)
{
    mReading = tpClock::now();
    const tcComplaints complaints(camera);
    tcReadout readout(camera, mtPlan, ReadoutOptions(camera));
    try {
        const tcTriggerHook hook(camera.target(),
                                 [&camera](bool active) { camera.set("trigger", int{active}); });
        readout.Run(progress);
    } catch (...) {
        progress.Clear();
        Describe(camera, readout);
        throw;
    }
    Describe(camera, readout);
    const std::vector<tsGrabbed> written = readout.Written();
    if (!mbJson) PrintFrames(written);
    RequireComplete(written);
    if (const auto complaint = complaints.FirstOfReadout()) {
        throw tcFailure(eExitCamera, *complaint);
    }
}

void tcGrab::DescribeFrames(const std::vector<tsGrabbed>& written)
{
    uint64_t sum = 0, simulatorSum = 0;
    bool isSimulated = !written.empty();
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    nlohmann::ordered_json frames = nlohmann::ordered_json::array();
    for (const tsGrabbed& one : written) {
        files.push_back(one.file);
        frames.push_back(FrameDocument(one));
        sum += one.figures.sum;
        isSimulated = isSimulated && one.facts.trueSum.has_value();
        simulatorSum += one.facts.trueSum.value_or(0);
    }
    mDocument["files"] = files;
    mDocument["sum"] = sum;
    if (isSimulated) mDocument["sim_sum"] = simulatorSum;
    mDocument["frames"] = frames;
}

void tcGrab::Describe(const vxcam::Camera& camera, const tcReadout& readout)
{
    const auto now = tpClock::now();
    mDocument["target"] = NameOf(camera);
    mDocument["sensor"] = {{"columns", camera.sensor().columns}, {"rows", camera.sensor().rows}};
    mDocument["exposure_s"] = std::chrono::duration<double>(readout.Exposure()).count();
    mDocument["target_temperature_c"] = nullptr;
    if (mTarget) mDocument["target_temperature_c"] = *mTarget;
    DescribeFrames(readout.Written());
    mDocument["timing_s"] = {{"open", Seconds(mOpened - mBegin)},
                             {"prepare", Seconds(mReading - mOpened)},
                             {"expose_and_read", Seconds(now - mReading)},
                             {"total", Seconds(now - mBegin)}};
}

void tcGrab::PrintFrames(const std::vector<tsGrabbed>& written) const
{
    for (const tsGrabbed& one : written) {
        if (!mtCommon.quiet && !mbToOutput) PrintLine(FrameText(one));
        for (const std::string& warning : one.warnings) {
            PrintWarning(one.file + ": " + warning);
        }
    }
}

void tcGrab::RequireComplete(const std::vector<tsGrabbed>& written) const
{
    if (mbAllowIncomplete) return;
    for (const tsGrabbed& one : written) {
        if (one.facts.complete()) continue;
        throw tcFailure(eExitCamera,
                        one.file + ": the frame is incomplete: " + MissingText(one.facts));
    }
}

void tcGrab::Run()
{
    mBegin = tpClock::now();
    CheckArguments();
    CheckFiles();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mOpened = tpClock::now();
    mPlanOptions.CheckAreas(mtPlan, camera.sensor());
    tcProgress progress(!mtCommon.quiet);
    Cool(camera, progress);
    ReadOut(camera, progress);
    camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeGrab()
{
    return std::make_unique<tcGrab>();
}

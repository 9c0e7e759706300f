// vxcam flat: flat frames of a level.
#include "arguments.h"
#include "failure.h"
#include "headeroptions.h"
#include "planoptions.h"
#include "program.h"
#include "readout.h"
#include "report.h"
#include "shots.h"

#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <cstdio>

const char* const gsFlatExamples =
    R"(  vxcam flat 192.168.1.20:2000                     which exposure fills half of the scale?
  vxcam flat 192.168.1.20:2000 --frames 20 -o flat-%02d.fits
  vxcam flat serial:1207 --level 30000 --longest 20s -n 5 --force
  vxcam flat sim --sim-time-scale 10000 --longest 10min --json   simulated, for scripts)";

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr int gnMostFrames = 32767;
constexpr double gnHighest = 0.95; // of full scale
constexpr double gnPercent = 100;

class tcFlat : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void CheckArguments();
    void CheckFiles() const;
    double Level() const;
    void Expose(vxcam::Camera& camera, tcProgress& progress);
    void Take(vxcam::Camera& camera, tcProgress& progress);
    void Keep(const std::vector<tsGrabbed>& written);

    tsCommonOptions mtCommon;
    tcPartOptions mPartOptions;
    tcHeaderOptions mHeaderOptions;
    std::string msLevel = "50%", msTolerance = "2%", msLongest = "1min", msFirst = "1s";
    std::string msOutput = "flat.fits";
    int mnFrames = 0, mnBits = 16;

    vxcam::Plan mtPlan;
    vxcam::ExposureGoal mtGoal;
    vxcam::HeaderOptions mtHeader;
    std::vector<std::string> maFiles;
    nlohmann::ordered_json mDocument;
};

// "2%" is 0.02.
double ParsePercent(const std::string& what, const std::string& text)
{
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    const bool isPercent = parsed.ec == std::errc() && std::string(parsed.ptr, end) == "%";
    if (!isPercent || !(value > 0) || value > gnPercent) {
        throw tcFailure(eExitUsage, what + " '" + text + "': write a percentage, like 50%");
    }
    return value / gnPercent;
}

void tcFlat::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("--level", &msLevel, "LEVEL",
                "median of the pixels: part of full scale, or a number of ADU");
    line.Option("--tolerance", &msTolerance, "PERCENT", "of the light that is near enough");
    line.Option("--first", &msFirst, "TIME", "exposure that is tried first");
    line.Option("--longest", &msLongest, "TIME", "and the longest one");
    line.Option("-n,--frames", &mnFrames, "NUMBER", "flat frames to take then; 0: none")
        .Within(0, gnMostFrames);
    mPartOptions.DeclareArea(line);
    line.Option("--bits", &mnBits, "NUMBER", "bits a pixel: 8 or 16");
    mPartOptions.DeclareTimeout(line);
    line.Option("-o,--output", &msOutput, "FILE",
                "FITS file; %04d in it stands for the frame's number");
    mHeaderOptions.Declare(line);
    line.Flag("--json", &mbJson, "print one JSON document");
}

// In ADU.
double tcFlat::Level() const
{
    if (!msLevel.empty() && msLevel.back() == '%') {
        return ParsePercent("level", msLevel) * mtGoal.fullScale;
    }
    double level = 0;
    const char* const end = msLevel.data() + msLevel.size();
    const auto parsed = std::from_chars(msLevel.data(), end, level);
    if (parsed.ec != std::errc() || parsed.ptr != end || !(level > 0)) {
        throw tcFailure(eExitUsage,
                        "level '" + msLevel + "': write a percentage, like 50%, or ADU");
    }
    return level;
}

void tcFlat::CheckArguments()
{
    if (mnBits != 8 && mnBits != 16) throw tcFailure(eExitUsage, "--bits: 8 or 16");
    mtGoal.fullScale = std::ldexp(1.0, mnBits) - 1;
    mtGoal.level = Level();
    if (mtGoal.level > gnHighest * mtGoal.fullScale) {
        throw tcFailure(eExitUsage, "level '" + msLevel + "': at most 95 % of full scale");
    }
    mtGoal.tolerance = ParsePercent("tolerance", msTolerance);
    mtGoal.first = ParseDuration(msFirst);
    mtGoal.most = ParseDuration(msLongest);
    if (mtGoal.most.count() < 1) throw tcFailure(eExitUsage, "--longest: at least 1 ms");
    mtPlan.kind = vxcam::ReadoutKind::Area;
    mtPlan.type = vxcam::FrameType::Flat;
    mtPlan.bits = mnBits;
    mPartOptions.Apply(&mtPlan);
    mtHeader = mHeaderOptions.Header();
    if (!vxcam::otherKindOf(msOutput, vxcam::FileFormat::Fits).empty()) {
        throw tcFailure(eExitUsage, msOutput + ": it would be a FITS file");
    }
    if (msOutput == "-") {
        throw tcFailure(eExitUsage, "-: flat frames do not go to standard output; ./- is a file");
    }
    if (mnFrames > 0) maFiles = FileNames(msOutput, mnFrames);
    TargetOf(mtCommon); // before any file is looked at
}

void tcFlat::CheckFiles() const
{
    for (const std::string& file : maFiles) {
        vxcam::checkNewFile(file, mHeaderOptions.Force());
    }
}

void tcFlat::Expose(vxcam::Camera& camera, tcProgress& progress)
{
    mDocument["level_adu"] = mtGoal.level;
    mDocument["exposure_s"] = nullptr;
    mDocument["tries"] = nlohmann::ordered_json::array();
    tcShots shots(camera, progress);
    const auto told = [&](tpMilliseconds exposure, double median) {
        mDocument["tries"].push_back(
            {{"exposure_s", std::chrono::duration<double>(exposure).count()},
             {"median_adu", median}});
        if (mbJson || mtCommon.quiet) return;
        char text[64];
        std::snprintf(text, sizeof text, "median %.1f ADU, %.1f %%", median,
                      gnPercent * median / mtGoal.fullScale);
        PrintLine(DurationText(exposure) + ": " + text);
    };
    mtPlan.exposure = vxcam::exposureFor(mtPlan, mtGoal, shots.Taking(), told);
    mDocument["exposure_s"] = std::chrono::duration<double>(*mtPlan.exposure).count();
}

void tcFlat::Take(vxcam::Camera& camera, tcProgress& progress)
{
    mtPlan.frames = mnFrames;
    tsReadoutOptions options;
    options.files = maFiles;
    options.force = mHeaderOptions.Force();
    options.header = mtHeader;
    options.header.instrument = mHeaderOptions.InstrumentOf(camera);
    const tcComplaints complaints(camera);
    tcReadout readout(camera, mtPlan, options);
    try {
        readout.Run(progress);
    } catch (...) {
        progress.Clear();
        Keep(readout.Written());
        throw;
    }
    const std::vector<tsGrabbed> written = readout.Written();
    Keep(written);
    for (const tsGrabbed& one : written) {
        if (!mbJson && !mtCommon.quiet) PrintLine(FrameText(one));
        if (one.facts.complete()) continue;
        throw tcFailure(eExitCamera,
                        one.file + ": the frame is incomplete: " + MissingText(one.facts));
    }
    if (const auto complaint = complaints.FirstOfReadout()) {
        throw tcFailure(eExitCamera, *complaint);
    }
}

void tcFlat::Keep(const std::vector<tsGrabbed>& written)
{
    mDocument["frames"] = nlohmann::ordered_json::array();
    for (const tsGrabbed& one : written) {
        mDocument["frames"].push_back(FrameDocument(one));
    }
}

void tcFlat::Run()
{
    CheckArguments();
    CheckFiles();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mDocument["target"] = NameOf(camera);
    mPartOptions.CheckArea(mtPlan, camera.sensor());
    tcProgress progress(!mtCommon.quiet);
    Expose(camera, progress);
    if (mnFrames > 0) Take(camera, progress);
    camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeFlat()
{
    return std::make_unique<tcFlat>();
}

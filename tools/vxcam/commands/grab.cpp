// vxcam grab: expose, read out and save.
#include "failure.h"
#include "fits.h"
#include "interrupt.h"
#include "newfile.h"
#include "program.h"
#include "readout.h"
#include "report.h"
#include "tcFrameWriter.h"
#include "vxcamiface.h"

#include <vxcamkit/property.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

const char* const gsGrabExamples =
    R"(  vxcam grab                                    one frame of 1 s, simulated, to frame.fits
  vxcam grab sim -e 5s --preview frame.png      with a picture to look at
  vxcam grab 192.168.1.20:2000 -e 500ms --frames 10 -o run7-%04d.fits
  vxcam grab --area 512,512,256,256 -o part.fits --force
  vxcam grab --target-temp -20 --wait-cool --sim-time-scale 100 -e 1min)";

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

constexpr int gnMostFrames = 32767;
constexpr double gnCoolEnough = 0.5; // degrees Celsius
constexpr double gnToleranceRounding = 1e-6;
constexpr double gnTenths = 10.0;               // what a camera is told
constexpr tpMilliseconds gnHeartBeatWait(1500); // after opening, for the first one
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
    void CheckArguments();
    void CheckFiles() const;
    void Open();
    void Cool(tcProgress& progress);
    void WaitCool(tcProgress& progress);
    void SetUp();
    void ReadOut(tcProgress& progress);
    tsWriterOptions WriterOptions() const;
    void Describe(const std::vector<tsWrittenFrame>& written);
    void PrintFrames(const std::vector<tsWrittenFrame>& written) const;
    void RequireComplete(const std::vector<tsWrittenFrame>& written) const;

    tsCommonOptions mtCommon;
    std::string msExposure = "1s", msTimeout = "20s", msCoolTimeout = "10min";
    std::string msArea, msOutput = "frame.fits", msPreview, msInstrument;
    int mnFrames = 1;
    bool mbBinned = false, mbMaskBinned = false, mbWaitCool = false, mbForce = false;
    bool mbAllowIncomplete = false;
    std::optional<double> mTarget; // degrees Celsius

    tsReadoutPlan mtPlan;
    tpMilliseconds mCoolTimeout{0};
    std::vector<std::string> maFiles, maPreviews;
    std::unique_ptr<tcSession> mpSession;
    tpClock::time_point mBegin, mOpened, mReading;
    nlohmann::ordered_json mDocument = nlohmann::ordered_json::object();
};

void tcGrab::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("-e,--exposure", &msExposure, "TIME", "like 500ms, 2s, 0.5 (seconds) or 1min");
    line.Option("--frames", &mnFrames, "NUMBER", "frames to take in one readout")
        .Within(1, gnMostFrames);
    const tcOption area =
        line.Option("--area", &msArea, "AREA", "part of the sensor to read: x,y,width,height");
    const tcOption binned = line.Flag("--binned", &mbBinned, "binned readout, 32 bits a pixel");
    const tcOption mask = line.Flag("--mask-binned", &mbMaskBinned,
                                    "readout by the mask that the camera holds, 32 bits a pixel");
    area.Excludes(binned).Excludes(mask);
    binned.Excludes(mask);
    line.Option("--target-temp", &mTarget, "DEGREES", "cool the sensor to so many degrees Celsius");
    line.Flag("--wait-cool", &mbWaitCool, "wait until the sensor is within 0.5 degrees of it");
    line.Option("--cool-timeout", &msCoolTimeout, "TIME", "wait no longer than this");
    line.Option("-o,--output", &msOutput, "FILE",
                "FITS file; %04d in it stands for the frame's number");
    line.Option("--preview", &msPreview, "FILE", "PNG picture of each frame, named likewise");
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Flag("--allow-incomplete", &mbAllowIncomplete,
              "frames of which packets are missing are no failure");
    line.Option("--instrument", &msInstrument, "NAME", "the camera's name in the file");
    line.Option("--timeout", &msTimeout, "TIME",
                "silence beyond the exposure that ends the readout");
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcGrab::CheckArguments()
{
    mtPlan.exposure = ParseDuration(msExposure);
    mtPlan.timeout = ParseDuration(msTimeout);
    mCoolTimeout = ParseDuration(msCoolTimeout);
    mtPlan.frames = mnFrames;
    if (mbBinned) mtPlan.kind = teReadout::eBinned;
    if (mbMaskBinned) mtPlan.kind = teReadout::eMaskBinned;
    if (!msArea.empty()) mtPlan.area = ParseArea(msArea);
    if (mTarget && !(std::abs(*mTarget) <= 273.0)) {
        throw tcFailure(eExitUsage, "target temperature: -273 to 273 degrees Celsius");
    }
    if (mTarget) mTarget = std::round(*mTarget * gnTenths) / gnTenths;
    maFiles = FileNames(msOutput, mnFrames);
    if (!msPreview.empty()) maPreviews = FileNames(msPreview, mnFrames);
}

void tcGrab::CheckFiles() const
{
    std::set<std::string> names;
    for (const auto* list : {&maFiles, &maPreviews}) {
        for (const std::string& name : *list) {
            if (!names.insert(name).second) {
                throw tcFailure(eExitUsage, name + ": would be written twice");
            }
            CheckNewFile(name, mbForce);
        }
    }
}

void tcGrab::Open()
{
    mpSession = OpenSession(&mtCommon);
    mOpened = tpClock::now();
    const tsArea sensor = mpSession->Sensor();
    if (msArea.empty()) mtPlan.area = sensor;
    const tsArea& area = mtPlan.area;
    if (area.firstColumn + area.columns > sensor.columns ||
        area.firstRow + area.rows > sensor.rows) {
        throw tcFailure(eExitUsage, "area '" + msArea + "': reaches beyond the sensor of " +
                                        std::to_string(sensor.columns) + " x " +
                                        std::to_string(sensor.rows) + " pixels");
    }
    if (msInstrument.empty()) msInstrument = mpSession->Name();
}

void tcGrab::Cool(tcProgress& progress)
{
    if (!mTarget && !mbWaitCool) return;
    const vxcam::PropertyName target = vxcam::findProperty("target-temp");
    if (mTarget) vxcam::sendProperty(*mpSession, target, *mTarget);
    mpSession->Require(VXSetCooling(mpSession->Handle(), 1), "cooling");
    mpSession->RoundTrip();
    if (!mTarget) mTarget = vxcam::readProperty(*mpSession, target).toDouble();
    if (mbWaitCool) WaitCool(progress);
}

void tcGrab::WaitCool(tcProgress& progress)
{
    const auto deadline = tpClock::now() + mCoolTimeout;
    std::optional<double> first;
    while (true) {
        ThrowIfInterrupted();
        mpSession->ThrowCameraError();
        const std::optional<double> now = mpSession->Temperature();
        const double away = now ? std::abs(*now - *mTarget) : INFINITY;
        if (away <= gnCoolEnough + gnToleranceRounding) break;
        char text[64] = "no temperature yet";
        if (now) std::snprintf(text, sizeof text, "%.1f C, target %.1f C", *now, *mTarget);
        if (tpClock::now() >= deadline) {
            throw tcFailure(eExitTimeout, std::string("cooling: ") + text + " after " +
                                              DurationText(mCoolTimeout));
        }
        if (!first) first = now;
        progress.Show("cooling", now ? 1 - away / std::abs(*first - *mTarget) : 0, text);
        mpSession->WaitForNews(gnPoll);
    }
    progress.Clear();
}

void tcGrab::SetUp()
{
    const int handle = mpSession->Handle();
    const tsArea& area = mtPlan.area;
    mpSession->Require(VXSetExposure(handle, static_cast<long>(mtPlan.exposure.count())),
                       "exposure time");
    mpSession->Require(
        VXSetCCDArea(handle, area.firstColumn, area.firstRow, area.columns, area.rows), "area");
    mtPlan.exposure = mpSession->RoundTrip();
}

tsWriterOptions tcGrab::WriterOptions() const
{
    tsWriterOptions options;
    options.files = maFiles;
    options.previews = maPreviews;
    options.force = mbForce;
    options.facts.exposure = mtPlan.exposure;
    options.facts.instrument = msInstrument;
    options.facts.frames = mtPlan.frames;
    options.facts.sensor = mpSession->Sensor();
    if (mTarget) options.facts.targetTemperature = *mTarget;
    options.temperatureDeadline = mOpened + gnHeartBeatWait;
    return options;
}

// Frames that came whole before a failure are still written, but not after a signal.
void tcGrab::ReadOut(tcProgress& progress)
{
    tcFrameQueue queue(QueueCapacity(mtPlan));
    tcFrameWriter writer(*mpSession, queue, WriterOptions());
    mReading = tpClock::now();
    try {
        RunReadout(*mpSession, mtPlan, queue, progress, [&] { return writer.Failed(); });
    } catch (const tcFailure& failure) {
        progress.Clear();
        if (failure.Code() >= eExitSignal) writer.Stop();
        queue.Finish();
        writer.Finish();
        Describe(writer.Written());
        throw;
    }
    progress.Clear();
    while (!writer.Done()) {
        if (CaughtSignal() != 0) writer.Stop();
        mpSession->WaitForNews(gnPoll);
    }
    writer.Finish();
    Describe(writer.Written());
    ThrowIfInterrupted();
    writer.ThrowFailure();
    if (!mbJson) PrintFrames(writer.Written());
    RequireComplete(writer.Written());
    if (mbJson) PrintDocument(mDocument);
}

void tcGrab::Describe(const std::vector<tsWrittenFrame>& written)
{
    uint64_t sum = 0, simulatorSum = 0;
    bool isSimulated = !written.empty();
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    nlohmann::ordered_json frames = nlohmann::ordered_json::array();
    for (const tsWrittenFrame& one : written) {
        files.push_back(one.file);
        frames.push_back(FrameDocument(one));
        sum += one.figures.sum;
        isSimulated = isSimulated && one.simulatorSum.has_value();
        simulatorSum += one.simulatorSum.value_or(0);
    }
    const auto now = tpClock::now();
    mDocument["target"] = mpSession->Name();
    mDocument["sensor"] = {{"columns", mpSession->Sensor().columns},
                           {"rows", mpSession->Sensor().rows}};
    mDocument["exposure_s"] = static_cast<double>(mtPlan.exposure.count()) / 1000.0;
    mDocument["target_temperature_c"] = nullptr;
    if (mTarget) mDocument["target_temperature_c"] = *mTarget;
    mDocument["files"] = files;
    mDocument["sum"] = sum;
    if (isSimulated) mDocument["sim_sum"] = simulatorSum;
    mDocument["frames"] = frames;
    mDocument["timing_s"] = {{"open", Seconds(mOpened - mBegin)},
                             {"prepare", Seconds(mReading - mOpened)},
                             {"expose_and_read", Seconds(now - mReading)},
                             {"total", Seconds(now - mBegin)}};
}

void tcGrab::PrintFrames(const std::vector<tsWrittenFrame>& written) const
{
    if (mtCommon.quiet) return;
    for (const tsWrittenFrame& one : written) {
        PrintLine(FrameText(one, mtPlan.exposure));
    }
}

void tcGrab::RequireComplete(const std::vector<tsWrittenFrame>& written) const
{
    if (mbAllowIncomplete) return;
    for (const tsWrittenFrame& one : written) {
        if (!IsIncomplete(one.frame)) continue;
        throw tcFailure(eExitCamera,
                        one.file + ": the frame is incomplete: " + MissingText(one.frame));
    }
}

void tcGrab::Run()
{
    mBegin = tpClock::now();
    CheckArguments();
    CheckFiles();
    Open();
    tcProgress progress(!mtCommon.quiet);
    Cool(progress);
    SetUp();
    ReadOut(progress);
    mpSession->Close();
}

} // namespace

std::unique_ptr<tcVerb> MakeGrab()
{
    return std::make_unique<tcGrab>();
}

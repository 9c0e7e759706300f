// vxcam cool: cools the sensor slowly, and warms it up again.
#include "arguments.h"
#include "complaints.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <thread>
#include <utility>

const char* const gsCoolExamples =
    R"(  vxcam cool 192.168.1.20:2000 --to -20                at once, until it has settled
  vxcam cool 192.168.1.20:2000 --to -20 --ramp 2/min   2 degrees a minute
  vxcam cool 192.168.1.20:2000 --warm-up --ramp 3/min  warm, and then cooling is off
  vxcam cool 192.168.1.20:2000 --to -20 --hold 2h --warm-up   down, and up again then
  vxcam cool sim --to -5 --sim-time-scale 100 --json   for scripts)";

namespace {

using tpClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds gnPoll(100);

// "2/min", or "2": degrees a minute.
double ParseRamp(const std::string& text)
{
    const std::string unit = "/min";
    const size_t at = text.find('/');
    const std::string number = text.substr(0, at);
    double ramp = 0;
    const auto [rest, error] = std::from_chars(number.data(), number.data() + number.size(), ramp);
    const bool isNumber = error == std::errc() && rest == number.data() + number.size();
    const bool isUnit = at == std::string::npos || text.substr(at) == unit;
    if (!isNumber || !isUnit || !std::isfinite(ramp) || ramp < 0) {
        throw tcFailure(eExitUsage, "ramp '" + text + "': write degrees a minute, like 2/min");
    }
    return ramp;
}

std::string DegreesText(double degrees)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f C", degrees);
    return text;
}

// What lives as long as the camera is open.
struct tsCooled {
    vxcam::Camera camera;
    tcProgress progress;
    tcComplaints complaints;

    tsCooled(vxcam::Camera opened, bool isShown)
        : camera(std::move(opened)), progress(isShown), complaints(camera)
    {}
};

class tcCool : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void CheckArguments();
    bool IsToCool(vxcam::Camera& camera) const;
    vxcam::Warming Warming(vxcam::Camera& camera, bool hasCooled) const;
    vxcam::CoolingState Wait(tsCooled& cooled);
    void Look(tsCooled& cooled, const vxcam::CoolingState& state);
    void Hold(tsCooled& cooled);
    void Tell(tsCooled& cooled, const vxcam::CoolingState& state) const;
    void Describe(const vxcam::CoolingState& state);

    tsCommonOptions mtCommon;
    std::optional<double> mTarget, mWarm;
    std::string msRamp = "0/min", msSettle = "10s", msHold = "0s", msTimeout;
    double mnTolerance = vxcam::Cooling().tolerance;
    bool mbWarmUp = false;

    vxcam::Cooling mtCooling;
    std::chrono::duration<double> mHold{0}; // of the camera's time
    tpClock::time_point mBegin;
    std::optional<std::chrono::milliseconds> mTimeout;
    nlohmann::ordered_json mDocument;
};

void tcCool::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("--to", &mTarget, "DEGREES", "temperature of the sensor in degrees Celsius");
    line.Option("--ramp", &msRamp, "RATE", "degrees a minute, like 2/min; 0: at once");
    line.Flag("--warm-up", &mbWarmUp, "warm up behind that, or alone, and switch cooling off then");
    line.Option("--warm-up-to", &mWarm, "DEGREES", "the same, to this temperature; else 20");
    line.Option("--hold", &msHold, "TIME", "for so long it stays cold before it is warmed up");
    line.Option("--tolerance", &mnTolerance, "DEGREES", "from the target that are near enough")
        .Within(0.1, 100.0);
    line.Option("--settle", &msSettle, "TIME", "for so long: it has settled");
    line.Option("--timeout", &msTimeout, "TIME", "wait no longer than this");
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcCool::CheckArguments()
{
    if (mWarm) mbWarmUp = true;
    if (!mTarget && !mbWarmUp) {
        throw tcFailure(eExitUsage, "--to is missing: how cold, in degrees Celsius");
    }
    mtCooling.ramp = ParseRamp(msRamp);
    mtCooling.settle = ParseDuration(msSettle);
    mtCooling.tolerance = mnTolerance;
    mtCooling.target = mTarget.value_or(vxcam::Warming().target);
    mHold = ParseDuration(msHold);
    if (mHold.count() > 0 && !(mTarget && mbWarmUp)) {
        throw tcFailure(eExitUsage, "--hold goes with --to and --warm-up");
    }
    if (mWarm && mTarget && *mWarm < *mTarget) {
        throw tcFailure(eExitUsage, "--warm-up-to " + DegreesText(*mWarm) + ": colder than --to " +
                                        DegreesText(*mTarget));
    }
    if (!msTimeout.empty()) mTimeout = ParseDuration(msTimeout);
}

// Of a sensor that is colder than --to, --warm-up alone is meant.
bool tcCool::IsToCool(vxcam::Camera& camera) const
{
    if (!mTarget || !mbWarmUp || mWarm) return mTarget.has_value();
    return camera.get("ccd-temp").toDouble() >= *mTarget - mnTolerance;
}

vxcam::Warming tcCool::Warming(vxcam::Camera& camera, bool hasCooled) const
{
    vxcam::Warming warming;
    warming.ramp = mtCooling.ramp;
    if (mWarm || (mTarget && !hasCooled)) warming.target = mWarm ? *mWarm : *mTarget;
    if (!mWarm || hasCooled) return warming;
    const double now = camera.get("ccd-temp").toDouble();
    if (now <= warming.target + mnTolerance) return warming;
    throw tcFailure(eExitUsage, "--warm-up-to " + DegreesText(warming.target) +
                                    ": the sensor is warmer, " + DegreesText(now));
}

void tcCool::Describe(const vxcam::CoolingState& state)
{
    mDocument["phase"] = vxcam::nameOf(state.phase);
    mDocument["temperature_c"] = nullptr;
    if (state.temperature) mDocument["temperature_c"] = *state.temperature;
    mDocument["set_point_c"] = state.setPoint;
    mDocument["target_c"] = state.target;
    mDocument["seconds"] = std::chrono::duration<double>(tpClock::now() - mBegin).count();
}

// Throws where it is to end early.
void tcCool::Look(tsCooled& cooled, const vxcam::CoolingState& state)
{
    Describe(state);
    ThrowIfInterrupted();
    if (const auto complaint = cooled.complaints.First()) throw tcFailure(eExitCamera, *complaint);
    if (mTimeout && !state.isOver() && tpClock::now() - mBegin >= *mTimeout) {
        throw tcFailure(eExitTimeout,
                        "cooling: " + state.text + " after " + DurationText(*mTimeout));
    }
}

vxcam::CoolingState tcCool::Wait(tsCooled& cooled)
{
    vxcam::Cooler& cooler = cooled.camera.cooler();
    while (true) {
        vxcam::CoolingState state = cooler.state();
        Look(cooled, state);
        if (state.isOver()) return state;
        cooled.progress.Show(vxcam::nameOf(state.phase), state.done, state.text);
        cooler.wait(gnPoll);
    }
}

// Meanwhile the sensor may have to settle again, and may be found out of reach.
void tcCool::Hold(tsCooled& cooled)
{
    const auto begin = tpClock::now();
    const std::chrono::duration<double> hold = mHold / cooled.camera.timeScale();
    while (tpClock::now() - begin < hold) {
        const vxcam::CoolingState state = cooled.camera.cooler().state();
        if (state.phase == vxcam::CoolingPhase::Failed) return;
        Look(cooled, state);
        const std::chrono::duration<double> passed = tpClock::now() - begin;
        cooled.progress.Show("holding", passed / hold, state.text);
        std::this_thread::sleep_for(std::min<std::chrono::duration<double>>(gnPoll, hold));
    }
}

void tcCool::Tell(tsCooled& cooled, const vxcam::CoolingState& state) const
{
    cooled.progress.Clear();
    const bool isFailed = state.phase == vxcam::CoolingPhase::Failed;
    if (mbJson || mtCommon.quiet || isFailed) return;
    PrintLine(std::string(vxcam::nameOf(state.phase)) + ": " + state.text);
}

// A sensor that cannot be cooled so far is warmed up all the same, where that is asked for.
void tcCool::Run()
{
    CheckArguments();
    tsCooled cooled(OpenCamera(mtCommon), !mtCommon.quiet);
    vxcam::Cooler& cooler = cooled.camera.cooler();
    mBegin = tpClock::now();
    mDocument["target"] = NameOf(cooled.camera);
    const bool isToCool = IsToCool(cooled.camera);
    std::string failure;
    const auto take = [&] {
        if (cooler.state().phase == vxcam::CoolingPhase::Failed && failure.empty()) {
            failure = cooler.state().text;
        }
    };
    if (isToCool) {
        cooler.cool(mtCooling);
        Tell(cooled, Wait(cooled));
        Hold(cooled);
        take();
    }
    if (mbWarmUp) {
        cooler.warmUp(Warming(cooled.camera, isToCool));
        Tell(cooled, Wait(cooled));
        take();
    }
    cooled.progress.Clear();
    if (!failure.empty()) throw tcFailure(eExitTimeout, "cooling: " + Told(failure));
    cooled.camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeCool()
{
    return std::make_unique<tcCool>();
}

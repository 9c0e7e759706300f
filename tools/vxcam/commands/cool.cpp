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

#include <charconv>
#include <cmath>

const char* const gsCoolExamples =
    R"(  vxcam cool 192.168.1.20:2000 --to -20                at once, until it has settled
  vxcam cool 192.168.1.20:2000 --to -20 --ramp 2/min   2 degrees a minute
  vxcam cool 192.168.1.20:2000 --warm-up --ramp 3/min  warm, and then cooling is off
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

class tcCool : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void CheckArguments();
    void Start(vxcam::Cooler& cooler) const;
    vxcam::CoolingState Wait(vxcam::Camera& camera, tcProgress& progress);
    void Describe(const vxcam::CoolingState& state);

    tsCommonOptions mtCommon;
    std::optional<double> mTarget;
    std::string msRamp = "0/min", msSettle = "10s", msTimeout;
    double mnTolerance = vxcam::Cooling().tolerance;
    bool mbWarmUp = false;

    vxcam::Cooling mtCooling;
    tpClock::time_point mBegin;
    std::optional<std::chrono::milliseconds> mTimeout;
    nlohmann::ordered_json mDocument;
};

void tcCool::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("--to", &mTarget, "DEGREES",
                "temperature of the sensor in degrees Celsius; to warm up to, 20 if not given");
    line.Option("--ramp", &msRamp, "RATE", "degrees a minute, like 2/min; 0: at once");
    line.Flag("--warm-up", &mbWarmUp, "warm up instead, and switch cooling off then");
    line.Option("--tolerance", &mnTolerance, "DEGREES", "from the target that are near enough")
        .Within(0.1, 100.0);
    line.Option("--settle", &msSettle, "TIME", "for so long: it has settled");
    line.Option("--timeout", &msTimeout, "TIME", "wait no longer than this");
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcCool::CheckArguments()
{
    if (!mTarget && !mbWarmUp) {
        throw tcFailure(eExitUsage, "--to is missing: how cold, in degrees Celsius");
    }
    mtCooling.ramp = ParseRamp(msRamp);
    mtCooling.settle = ParseDuration(msSettle);
    mtCooling.tolerance = mnTolerance;
    mtCooling.target = mTarget.value_or(vxcam::Warming().target);
    if (!msTimeout.empty()) mTimeout = ParseDuration(msTimeout);
}

void tcCool::Start(vxcam::Cooler& cooler) const
{
    if (!mbWarmUp) {
        cooler.cool(mtCooling);
        return;
    }
    vxcam::Warming warming;
    warming.target = mtCooling.target;
    warming.ramp = mtCooling.ramp;
    cooler.warmUp(warming);
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

vxcam::CoolingState tcCool::Wait(vxcam::Camera& camera, tcProgress& progress)
{
    const tcComplaints complaints(camera);
    Start(camera.cooler());
    while (true) {
        vxcam::CoolingState state = camera.cooler().state();
        Describe(state);
        ThrowIfInterrupted();
        if (const auto complaint = complaints.First()) throw tcFailure(eExitCamera, *complaint);
        if (state.isOver()) return state;
        if (mTimeout && tpClock::now() - mBegin >= *mTimeout) {
            throw tcFailure(eExitTimeout,
                            "cooling: " + state.text + " after " + DurationText(*mTimeout));
        }
        progress.Show(vxcam::nameOf(state.phase), state.done, state.text);
        camera.cooler().wait(gnPoll);
    }
}

void tcCool::Run()
{
    CheckArguments();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mBegin = tpClock::now();
    mDocument["target"] = NameOf(camera);
    tcProgress progress(!mtCommon.quiet);
    const vxcam::CoolingState state = Wait(camera, progress);
    progress.Clear();
    if (state.phase == vxcam::CoolingPhase::Failed) {
        throw tcFailure(eExitTimeout, "cooling: " + Told(state.text));
    }
    camera.close();
    if (mbJson) {
        PrintDocument(mDocument);
    } else if (!mtCommon.quiet) {
        PrintLine(std::string(vxcam::nameOf(state.phase)) + ": " + state.text);
    }
}

} // namespace

std::unique_ptr<tcVerb> MakeCool()
{
    return std::make_unique<tcCool>();
}

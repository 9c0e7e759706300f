// The single things that a sequence does.
#include "sequence/sequence_hook.h"
#include "sequence/sequence_run.h"
#include "verify/fits_parts.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/figures.h>
#include <vxcamkit/fits.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/verify.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <thread>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kPoll(50);

std::string meanText(double mean)
{
    return std::to_string(std::lround(mean));
}

// Wherever a command goes to.
std::string wholePath(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(path, error);
    return path.empty() || error ? path : whole.string();
}

} // namespace

void SequenceRun::takeFrame(const SequenceUnit& unit, int number)
{
    const std::string file = fileOf(unit), path = pathOf(file);
    if (adopt(unit, number)) return;
    const SequenceStep& step = *unit.step;
    Plan plan = step.plan;
    plan.frames = 1;
    if (step.level.mean > 0) plan.exposure = exposureOf(step);
    const Frame frame = grab(plan, textOf(unit));
    if (step.level.mean > 0) {
        const double mean = figuresOf(frame).mean;
        if (!flatOf(step).accept(mean)) {
            throw Error(ErrorKind::Camera, "the mean is " + meanText(mean) + " instead of " +
                                               meanText(step.level.mean));
        }
    }
    HeaderOptions header;
    header.software = options_.software;
    header.instrument = options_.instrument;
    header.cards = plan_.cards;
    header.cards.push_back({kSequenceCard, journal_.id(), "sequence that it is of"});
    header.cards.push_back(
        {kSequenceNumberCard, int64_t{unit.frame}, "frame of the sequence, from 1"});
    const FileBytes bytes = makeFits(frame, header);
    writeNewFile(path, bytes);
    journal_.frame(number, file, bytes.size());
    last_ = path;
}

// Whether the file of a frame is there, and whole.
bool SequenceRun::isOurs(const SequenceUnit& unit) const
{
    const std::string path = pathOf(fileOf(unit));
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return false;
    try {
        const std::vector<FitsPart> parts = FitsParts(path).parts();
        return !parts.empty() && parts.front().text(kSequenceCard) == journal_.id() &&
               parts.front().number(kSequenceNumberCard) == unit.frame &&
               verifyRecord(path).isGood();
    } catch (const Error&) {
        return false;
    }
}

// Such a frame, though the run ended before the journal said so.
bool SequenceRun::adopt(const SequenceUnit& unit, int number)
{
    if (!isOurs(unit)) return false;
    clock_.drop();
    const std::string file = fileOf(unit);
    last_ = pathOf(file);
    journal_.frame(number, file, std::filesystem::file_size(last_));
    return true;
}

Frame SequenceRun::grab(const Plan& plan, const std::string& doing)
{
    using Phase = Progress::Phase;
    Stream stream = camera_.stream(plan);
    while (true) {
        throwIfOther(cameraOf(camera_));
        const Phase phase = stream.progress().phase;
        tell(doing + (phase == Phase::Waiting    ? ": waiting for a trigger"
                      : phase == Phase::Exposing ? ": exposing"
                                                 : ": reading"));
        const bool isRunning = stream.end() == ReadoutEnd::Running;
        try {
            std::optional<Frame> frame = stream.next(isRunning ? kPoll : Time(0));
            if (!frame) throw Error(ErrorKind::Incomplete, "the frame never came");
            throwIfOther(cameraOf(*frame));
            if (watch_.onFrame) watch_.onFrame(*frame);
            if (!frame->complete()) throw IncompleteFrame(*std::move(frame));
            return *std::move(frame);
        } catch (const Error& error) {
            if (error.kind() != ErrorKind::Timeout || !isRunning) throw;
        }
    }
}

SequenceRun::Time SequenceRun::exposureOf(const SequenceStep& step)
{
    return flatOf(step).find([&](std::optional<Time> exposure) {
        Plan plan = step.plan;
        plan.frames = 1;
        plan.type = exposure ? step.plan.type : FrameType::Bias;
        plan.exposure = exposure.value_or(Time(0));
        return figuresOf(grab(plan, step.name + ": looking for the exposure")).mean;
    });
}

FlatExposure& SequenceRun::flatOf(const SequenceStep& step)
{
    const auto first = std::chrono::duration_cast<Time>(step.plan.exposure.value_or(Time(0)));
    return flats_.try_emplace(&step, step.level, first).first->second;
}

void SequenceRun::set(const SequenceStep& step)
{
    for (const auto& [name, value] : step.settings) {
        tell("settings");
        setOne(name, value);
    }
}

void SequenceRun::setOne(const std::string& name, const Value& value)
{
    const Value taken = camera_.set(name, value);
    if (watch_.onSetting) watch_.onSetting(name, taken);
}

void SequenceRun::cool(const SequenceUnit& unit)
{
    const SequenceStep& step = *unit.step;
    Cooler& cooler = camera_.cooler();
    hasCooled_ = true;
    if (unit.kind == SequenceUnit::Kind::Cool) {
        cooler.cool(step.cooling);
    } else {
        Warming warming;
        warming.target = step.cooling.target;
        warming.ramp = step.cooling.ramp;
        cooler.warmUp(warming);
    }
    if (step.waits) awaitTemperature(step);
}

void SequenceRun::awaitTemperature(const SequenceStep& step)
{
    Cooler& cooler = camera_.cooler();
    const auto deadline = Clock::now() + step.patience;
    while (true) {
        throwIfOther(cameraOf(camera_));
        const std::optional<CoolingState> end = cooler.wait(kPoll); // the camera has taken it, too
        if (hasLostLink()) {
            cooler.stop(); // gives no order to whatever comes back, before that is known
            throw Error(ErrorKind::LinkLost,
                        camera_.target() +
                            ": the connection was lost before the temperature was reached");
        }
        const CoolingState state = end.value_or(cooler.state());
        tell(std::string(nameOf(state.phase)) + ": " + state.text);
        const bool isLate = Clock::now() >= deadline;
        if (state.phase == CoolingPhase::Failed || (isLate && !end)) {
            cooler.stop();
            throw CoolingFailure(state.text);
        }
        if (end) break;
    }
    cooler.stop();
}

void SequenceRun::delay(const SequenceUnit& unit)
{
    const std::chrono::duration<double, std::milli> wanted =
        std::chrono::duration<double, std::milli>(unit.step->delay) / camera_.timeScale();
    const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(wanted);
    while (Clock::now() < until) {
        throwIfOther(cameraOf(camera_));
        tell(textOf(unit));
        std::this_thread::sleep_until(std::min(until, Clock::now() + kPoll));
    }
}

void SequenceRun::runHook(const SequenceUnit& unit)
{
    const std::vector<std::string> variables = {
        "VXCAM_PLAN=" + wholePath(plan_.path), "VXCAM_FOLDER=" + wholePath(plan_.folder),
        "VXCAM_FILE=" + wholePath(last_), "VXCAM_TAKEN=" + std::to_string(journal_.frames().size()),
        "VXCAM_FRAMES=" + std::to_string(frames_)};
    try {
        vxcam::runHook(*unit.hook, variables, [&] { tell(textOf(unit)); });
    } catch (const HookError& error) {
        if (!unit.hook->mayFail) throw;
        failed(textOf(unit) + ": " + error.what());
    }
}

} // namespace vxcam

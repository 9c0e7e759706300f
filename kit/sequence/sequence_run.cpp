// A run as a whole: what is left to do, and what becomes of failures.
#include "sequence/sequence_run.h"

#include <vxcamkit/new_file.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <set>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kPoll(50);
constexpr uint64_t kReserve = uint64_t{1} << 20U; // bytes, for the journal and the folder

bool isOfLink(ErrorKind kind)
{
    return kind == ErrorKind::LinkLost || kind == ErrorKind::Timeout;
}

std::set<std::string> namesIn(const std::string& folder)
{
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

} // namespace

SequenceNeeds checkSequence(const SequencePlan& plan, Camera& camera)
{
    const Size sensor = camera.sensor();
    if (plan.sensor && *plan.sensor != sensor) {
        throw Error(ErrorKind::Usage,
                    plan.path + ": the plan is for a sensor of " +
                        std::to_string(plan.sensor->columns) + " x " +
                        std::to_string(plan.sensor->rows) + " pixels, and the camera has " +
                        std::to_string(sensor.columns) + " x " + std::to_string(sensor.rows));
    }
    const SequenceNeeds needs = needsOf(plan, sensor);
    forEachStep(plan.steps, [&](const SequenceStep& step, int) {
        for (const auto& [name, value] : step.settings) {
            camera.checked(name, value);
        }
    });
    return needs;
}

SequenceRun::SequenceRun(Camera& camera, const SequenceOrders& orders,
                         const std::vector<SequenceUnit>& units, SequenceJournal& journal)
    : camera_(camera), plan_(orders.plan), options_(orders.options), watch_(orders.watch),
      hold_(orders.hold), units_(units), journal_(journal),
      clock_(camera.sensor(), camera.timeScale())
{}

void SequenceRun::run()
{
    throwIfStopped();
    check();
    const int first = firstLeft();
    countAll(first);
    removeRemains();
    journal_.begin();
    losses_ = camera_.statistics().connectionsLost;
    const SequenceCamera camera = cameraOf(camera_);
    if (!journal_.camera() || !isSame(*journal_.camera(), camera)) journal_.camera(camera);
    try {
        doUnits(first);
    } catch (...) {
        if (hasCooled_) camera_.cooler().stop();
        throw;
    }
    journal_.ended();
}

void SequenceRun::doUnits(int first)
{
    for (int unit = first; unit < static_cast<int>(units_.size()); ++unit) {
        if (!journal_.isDone(unit)) doUnit(unit, unit == first);
    }
}

// The first unit behind all that is done. Of settings and temperatures the journal says nothing:
// those in front of it are restored, those behind it done.
int SequenceRun::firstLeft() const
{
    int behindDone = 0;
    for (int unit = 0; unit < static_cast<int>(units_.size()); ++unit) {
        if (!units_[static_cast<size_t>(unit)].isKept()) continue;
        if (!journal_.isDone(unit)) break;
        behindDone = unit + 1;
    }
    return behindDone;
}

// Whatever this camera or this disk cannot do is known before anything is done.
void SequenceRun::check()
{
    checkSequence(plan_, camera_);
    const bool hasFrames = checkFiles();
    if (hasFrames) throwIfOther(cameraOf(camera_), ErrorKind::Usage);
    checkRoom();
}

void SequenceRun::checkRoom() const
{
    uint64_t needed = kReserve;
    for (size_t i = 0; i < units_.size(); ++i) {
        const bool isLeft =
            units_[i].kind == SequenceUnit::Kind::Frame && !journal_.isDone(static_cast<int>(i));
        if (isLeft) needed += bytesOf(*units_[i].step, camera_.sensor()).value_or(0);
    }
    std::error_code error;
    const auto space = std::filesystem::space(plan_.folder, error);
    if (error || space.available >= needed) return;
    throw Error(ErrorKind::File,
                plan_.folder + ": the frames need " + std::to_string(needed >> 20U) +
                    " MiB, and the disk has " + std::to_string(space.available >> 20U) +
                    " MiB left",
                ENOSPC);
}

// Those that are taken have the bytes that were written; what is there of the others was written
// by a run that ended before the journal said so. Those that the folder does not name are not
// looked for one by one.
bool SequenceRun::checkFiles() const
{
    bool isOneLeft = false; // by a run that ended before the journal said so
    const std::set<std::string> there = namesIn(plan_.folder);
    std::set<const SequenceStep*> seen;
    for (size_t i = 0; i < units_.size(); ++i) {
        throwIfStopped();
        const SequenceUnit& unit = units_[i];
        if (unit.kind != SequenceUnit::Kind::Frame) continue;
        const auto number = static_cast<int>(i);
        const auto taken = journal_.frames().find(number);
        if (taken != journal_.frames().end()) {
            checkTaken(number, taken->second.bytes);
        } else if (seen.insert(unit.step).second || there.count(fileOf(unit)) != 0) {
            if (isOurs(unit)) {
                isOneLeft = true;
            } else {
                checkNewFile(pathOf(fileOf(unit)), false);
            }
        }
    }
    return isOneLeft || !journal_.frames().empty();
}

void SequenceRun::checkTaken(int number, uint64_t wanted) const
{
    const std::string path = pathOf(fileOf(units_[static_cast<size_t>(number)]));
    std::error_code error;
    const uint64_t bytes = std::filesystem::file_size(path, error);
    if (error) return journal_.again(number);
    if (bytes == wanted) return;
    throw Error(ErrorKind::File, path + ": was changed: it has " + std::to_string(bytes) +
                                     " bytes, and had " + std::to_string(wanted) +
                                     "; move it away to have the frame taken again");
}

// Of files that were being written when a run was killed.
void SequenceRun::removeRemains() const
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(plan_.folder, error)) {
        const std::string name = entry.path().filename().string();
        const bool isOurs =
            std::any_of(journal_.processes().begin(), journal_.processes().end(), [&](int process) {
                const bool isGone =
                    process == ::getpid() || (::kill(process, 0) != 0 && errno == ESRCH);
                return isGone && name.rfind(".vxcam-" + std::to_string(process) + "-", 0) == 0;
            });
        std::error_code ignored;
        if (isOurs) std::filesystem::remove(entry.path(), ignored);
    }
}

void SequenceRun::doUnit(int number, bool isRestoreDue)
{
    const SequenceUnit& unit = units_[static_cast<size_t>(number)];
    begin(unit);
    for (int failures = 1;; ++failures) {
        try {
            while (isRestoreDue || hasLostLink()) {
                isRestoreDue = true;
                losses_ = camera_.statistics().connectionsLost;
                askCamera();
                restore(number);
                isRestoreDue = false;
            }
            throwIfStopped();
            throwIfOther(cameraOf(camera_));
            isInFrame_ = unit.kind == SequenceUnit::Kind::Frame;
            clock_.begin(unit);
            tryUnit(unit, number);
            isInFrame_ = false;
            break;
        } catch (const SequenceStopped&) {
            throw;
        } catch (const Error& error) {
            isInFrame_ = false;
            clock_.drop();
            if (!mayGoOn(error, unit, failures)) {
                tell(textOf(unit) + ": failed");
                throw;
            }
            if (isOfLink(error.kind())) {
                isRestoreDue = true;
                awaitLink(error);
            }
        }
    }
    clock_.end(unit);
    tell(textOf(unit) + ": done",
         unit.kind == SequenceUnit::Kind::Frame ? pathOf(fileOf(unit)) : "");
}

void SequenceRun::tryUnit(const SequenceUnit& unit, int number)
{
    switch (unit.kind) {
    case SequenceUnit::Kind::Frame:
        return takeFrame(unit, number);
    case SequenceUnit::Kind::Set:
        return set(*unit.step);
    case SequenceUnit::Kind::Cool:
    case SequenceUnit::Kind::WarmUp:
        return cool(unit);
    case SequenceUnit::Kind::Delay:
        delay(unit);
        break;
    case SequenceUnit::Kind::Hook:
        runHook(unit);
        break;
    }
    journal_.done(number);
}

// What failed is written down; so is why the run ends, if the journal takes it.
bool SequenceRun::mayGoOn(const Error& error, const SequenceUnit& unit, int failures)
{
    const bool isFinal = dynamic_cast<const HookError*>(&error) != nullptr ||
                         dynamic_cast<const OtherCamera*>(&error) != nullptr ||
                         failures > plan_.retries;
    const bool isOfFrame =
        unit.kind == SequenceUnit::Kind::Frame &&
        dynamic_cast<const CoolingFailure*>(&error) == nullptr &&
        (error.kind() == ErrorKind::Camera || error.kind() == ErrorKind::Incomplete ||
         error.kind() == ErrorKind::Timeout);
    const bool isLost = error.kind() == ErrorKind::LinkLost || hasLostLink();
    const bool mayGoOn = !isFinal && (isLost || isOfFrame);
    try {
        failed(textOf(unit) + ": " + error.what());
    } catch (const Error&) {
        if (mayGoOn) throw;
    }
    return mayGoOn;
}

void SequenceRun::awaitLink(const Error& error)
{
    const auto deadline = Clock::now() + plan_.link;
    while (!isCameraThere()) {
        if (Clock::now() >= deadline) throw error;
        tell("waiting for the camera");
    }
}

// A connection that ends at once, as with a forwarder whose camera is off, is none.
bool SequenceRun::isCameraThere()
{
    if (!camera_.waitForLink(kPoll)) return false;
    try {
        camera_.get("exposure");
    } catch (const Error& error) {
        return error.kind() != ErrorKind::LinkLost;
    }
    return true;
}

bool SequenceRun::hasLostLink() const
{
    return camera_.statistics().connectionsLost != losses_;
}

// What it answers is behind the first question on a connection that was made anew, which tells of
// another camera.
void SequenceRun::askCamera()
{
    camera_.get("exposure");
    throwIfOther(cameraOf(camera_));
}

void SequenceRun::throwIfOther(const SequenceCamera& camera, ErrorKind kind) const
{
    const std::optional<SequenceCamera>& before = journal_.camera();
    if (before && !isSame(*before, camera))
        throw OtherCamera(kind, journal_.path(), *before, camera);
}

void SequenceRun::countAll(int first)
{
    for (size_t i = 0; i < units_.size(); ++i) {
        const auto number = static_cast<int>(i);
        frames_ += units_[i].kind == SequenceUnit::Kind::Frame;
        if (journal_.isDone(number)) {
            clock_.wasDone(units_[i]);
        } else if (number >= first) {
            clock_.isLeft(units_[i]);
        }
    }
}

// What the units in front of this one had put into force.
void SequenceRun::restore(int before)
{
    std::map<std::string, Value> last;
    std::vector<std::string> order;
    const SequenceUnit* cooling = nullptr;
    for (int i = 0; i < before; ++i) {
        const SequenceUnit& unit = units_[static_cast<size_t>(i)];
        if (unit.isCooling()) cooling = &unit;
        if (unit.kind != SequenceUnit::Kind::Set) continue;
        for (const auto& [name, value] : unit.step->settings) {
            order.erase(std::remove(order.begin(), order.end(), name), order.end());
            order.push_back(name);
            last[name] = value;
        }
    }
    for (const std::string& name : order) {
        tell("settings");
        setOne(name, last[name]);
    }
    if (cooling == nullptr || isCooledAnew(before)) return;
    clock_.beginAgain(*cooling);
    cool(*cooling);
    clock_.endAgain();
}

// Whether another temperature comes before anything that needs the one before.
bool SequenceRun::isCooledAnew(int from) const
{
    const auto next =
        std::find_if(units_.begin() + from, units_.end(),
                     [](const SequenceUnit& unit) { return unit.isKept() || unit.isCooling(); });
    return next != units_.end() && next->isCooling();
}

bool SequenceRun::isStopped() const
{
    const SequenceHold hold = hold_;
    return hold == SequenceHold::Now || (hold == SequenceHold::BehindFrame && !isInFrame_);
}

void SequenceRun::throwIfStopped() const
{
    if (isStopped()) throw SequenceStopped();
}

void SequenceRun::begin(const SequenceUnit& unit)
{
    if (unit.step == step_) return;
    step_ = unit.step;
    if (watch_.onStep) watch_.onStep(step_->line);
    tell(textOf(unit));
}

void SequenceRun::failed(const std::string& text)
{
    journal_.failed(text);
    if (watch_.onFailure) watch_.onFailure(journal_.failures().back());
}

// Of what is under way when it is stopped, nothing is done.
void SequenceRun::tell(const std::string& doing, const std::string& file)
{
    const bool isLast = isStopped();
    if (isLast) clock_.drop();
    if (options_.onProgress) {
        SequenceProgress progress = clock_.progress();
        progress.frames = frames_;
        progress.taken = static_cast<int>(journal_.frames().size());
        progress.doing = doing;
        progress.file = file;
        options_.onProgress(progress);
    }
    if (isLast) throw SequenceStopped();
}

} // namespace vxcam

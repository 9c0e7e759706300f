#include "station.h"

#include <sstream>
#include <tuple>

namespace vxcam {

namespace {

using std::chrono::milliseconds;

// Enough for a camera that answers; a client waits three seconds by itself.
constexpr milliseconds kPatience(1000);
constexpr milliseconds kLongPatience(20000); // of what takes many questions
constexpr size_t kMostBuffers = 1024;

milliseconds patienceFor(const PropertyName& name)
{
    return name.property->cost == Cost::Many ? kLongPatience : kPatience;
}

std::string secondsText(milliseconds time)
{
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " s";
    return text.str();
}

} // namespace

// ---- State ----------------------------------------------------------------------------------

StationReport Station::report() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const bool isRunning = acquisition_ && acquisition_->isRunning();
    StationReport report;
    std::tie(report.state, report.status) = presentState(isRunning);
    report.end = isRunning ? ReadoutEnd::Running : lastEnd_;
    return report;
}

// With the lock held, as what follows.
std::pair<StationState, std::string> Station::presentState(bool isRunning) const
{
    const std::string& target = options_.target;
    if (target.empty()) {
        return {StationState::Off,
                "No camera is named: set the device property Target to HOST:PORT, serial:NUMBER or "
                "sim, then call Init."};
    }
    if (!camera_ && !obstacle_) return {StationState::Opening, "Opening " + target + "."};
    if (!camera_ && obstacle_->kind() == ErrorKind::Usage) {
        return {StationState::Fault, std::string(obstacle_->what()) +
                                         ". Set the device property Target, then call Init."};
    }
    if (!camera_) {
        const bool isThere = obstacle_->kind() != ErrorKind::NotFound;
        return {isThere ? StationState::Fault : StationState::Off,
                std::string(obstacle_->what()) + ". It is tried again every " +
                    secondsText(options_.retry) + "."};
    }
    if (isRunning) return {StationState::Running, "An acquisition of " + target + " runs."};
    if (!isLinkUp()) {
        return {StationState::Fault, "The connection to " + target +
                                         " is lost; it is made anew as soon as the camera "
                                         "answers."};
    }
    const std::string link = linkText_.empty() ? "" : " " + linkText_;
    if (!trouble_) return {StationState::On, target + " is ready." + link};
    return {StationState::Fault,
            std::string(trouble_->what()) + "." + link + " Start, Grab and Reset end this fault."};
}

// The last acquisition ends behind the camera.
bool Station::isLinkUp() const
{
    try {
        return isAnswering_ && camera_->waitForLink(milliseconds(0));
    } catch (const Error&) {
        return false; // it is closed
    }
}

LastError Station::lastError() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return lastError_;
}

void Station::complain(const Error& error)
{
    const std::lock_guard<std::mutex> guard(lock_);
    lastError_.kind = error.kind();
    lastError_.text = error.what();
    lastError_.time = std::chrono::system_clock::now();
}

void Station::trouble(const Error& error)
{
    complain(error);
    {
        const std::lock_guard<std::mutex> guard(lock_);
        trouble_ = error;
    }
    changed();
}

void Station::changed()
{
    const std::lock_guard<std::mutex> guard(changeLock_);
    StationReport now = report();
    if (now == told_) return;
    told_ = std::move(now);
    if (listener_.change) listener_.change(told_);
}

void Station::reset()
{
    abort();
    {
        const std::lock_guard<std::mutex> guard(lock_);
        trouble_.reset();
        missed_.clear();
        linkText_.clear();
        lastError_ = {};
    }
    changed();
}

// ---- Properties -----------------------------------------------------------------------------

std::shared_ptr<Camera> Station::camera() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return camera_;
}

std::shared_ptr<Camera> Station::requireCamera() const
{
    if (std::shared_ptr<Camera> open = camera()) return open;
    throw Error(ErrorKind::NotFound, "the camera is not open: " + report().status);
}

void Station::requireLink() const
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (isLinkUp()) return;
    }
    throw Error(ErrorKind::LinkLost, report().status);
}

// What the camera does not do is the last error; what was asked for wrongly is not.
void Station::ask(std::function<void()> work, milliseconds patience)
{
    requireCamera();
    try {
        requireLink();
        try {
            asker_.run(std::move(work), patience);
        } catch (const Error& error) {
            // What was asked while the connection was being lost has no answer.
            if (error.kind() == ErrorKind::Timeout) requireLink();
            throw;
        }
    } catch (const Error& error) {
        if (error.kind() != ErrorKind::Usage) {
            complain(error);
            changed();
        }
        throw;
    }
}

Value Station::get(const std::string& name)
{
    const PropertyName property = findProperty(name);
    const auto open = requireCamera();
    const auto told = std::make_shared<Value>();
    ask([open, name, told] { *told = open->get(name); }, patienceFor(property));
    return *told;
}

Value Station::set(const std::string& name, const Value& value)
{
    const PropertyName property = findProperty(name);
    Value fittedValue = fitted(name, property.property->shape, value);
    if (keepForLater(property, fittedValue)) return fittedValue;
    const auto open = requireCamera();
    const auto told = std::make_shared<Value>();
    ask([open, name, value, told] { *told = open->set(name, value); }, patienceFor(property));
    const std::lock_guard<std::mutex> guard(lock_);
    made_.set(property, fittedValue);
    return *told;
}

bool Station::keepForLater(const PropertyName& name, const Value& fittedValue)
{
    const std::lock_guard<std::mutex> guard(lock_);
    if (camera_ || options_.target.empty() || !pending_.set(name, fittedValue)) return false;
    made_.set(name, fittedValue);
    return true;
}

Settings Station::made() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return made_;
}

// ---- Acquisitions ---------------------------------------------------------------------------

// As many buffers as it takes that no frame in the ring is a copy: of these the kit lends out half.
Plan Station::withBuffers(Plan plan, const Camera& camera) const
{
    const size_t bytes = 4 * static_cast<size_t>(camera.sensor().columns) *
                         static_cast<size_t>(camera.sensor().rows); // of a frame, at most
    const size_t buffers = 2 * (options_.ringFrames + 1);
    if (buffers <= kMostBuffers && buffers * bytes <= 4 * options_.ringBytes) {
        plan.buffers = static_cast<int>(buffers);
    }
    return plan;
}

void Station::requireIdle() const
{
    requireCamera();
    if (acquisition_->isRunning()) {
        throw Error(ErrorKind::Usage, "an acquisition runs: Stop or Abort ends it");
    }
}

void Station::forgetLastAcquisition()
{
    const std::lock_guard<std::mutex> guard(lock_);
    trouble_.reset();
    missed_.clear();
    linkText_.clear();
    lastEnd_.reset();
}

// A camera that answers a question begins to read out without delay. One whose connection is lost
// is in trouble for as long as that is so; whoever asked knows of it.
void Station::start(const Plan& plan)
{
    requireIdle();
    forgetLastAcquisition();
    const auto open = requireCamera();
    try {
        ask([open] { open->get("exposure"); }, kPatience);
        acquisition_->start(withBuffers(plan, *open));
    } catch (const Error& error) {
        if (error.kind() == ErrorKind::LinkLost) {
            forgetLastAcquisition();
            changed();
        } else if (error.kind() != ErrorKind::Usage) {
            trouble(error);
        }
        throw;
    }
}

void Station::prepare()
{
    requireIdle();
    ring_.clear();
}

void Station::stop()
{
    if (camera()) acquisition_->stop();
}

void Station::abort()
{
    if (camera()) acquisition_->abort();
}

StreamBooks Station::books() const
{
    return camera() ? acquisition_->books() : StreamBooks{};
}

Progress Station::progress() const
{
    return camera() ? acquisition_->progress() : Progress{};
}

// ---- Cooling --------------------------------------------------------------------------------

void Station::cool(const Cooling& cooling)
{
    const auto open = requireCamera();
    ask([open, cooling] { open->cooler().cool(cooling); }, kPatience);
}

void Station::warmUp(const Warming& warming)
{
    const auto open = requireCamera();
    ask([open, warming] { open->cooler().warmUp(warming); }, kPatience);
}

CoolingState Station::cooling() const
{
    const auto open = camera();
    return open ? open->cooler().state() : CoolingState{};
}

} // namespace vxcam

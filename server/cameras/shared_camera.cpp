#include "cameras/shared_camera.h"

#include "cameras/outage.h"

#include <vxcamkit/property.h>

#include <cstdio>
#include <exception>
#include <iterator>
#include <utility>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kBetweenAttempts{2};

void print(const std::string& line)
{
    if (!line.empty()) std::fprintf(stderr, "vxcamd: %s\n", line.c_str());
}

} // namespace

SharedCamera::SharedCamera(int number, const Target& target, const SharingOptions& options)
    : number_(number), target_(target), lease_(events_, options.leaseTime),
      trouble_(Error(ErrorKind::NotFound, target.text() + ": not opened yet")),
      exposures_([this] { return camera(); }, events_, feed_, options.keptBytes),
      sequences_(surroundings()), looker_([this] { look(); })
{}

SharedCamera::~SharedCamera()
{
    end();
}

SequenceSurroundings SharedCamera::surroundings()
{
    return {[this] { return camera(); },
            exposures_,
            events_,
            feed_,
            lease_,
            [this](const std::string& name, const Value& value) { wasSet(name, value); },
            [this] {
                std::lock_guard<std::mutex> guard(mutex_);
                forgetTold();
            }};
}

void SharedCamera::look()
{
    Outage outage("camera " + std::to_string(number_) + " (" + target_.text() + ")");
    while (!openOnce()) {
        std::unique_lock<std::mutex> guard(mutex_);
        std::string why = trouble_->what();
        guard.unlock();
        const std::string name = target_.text() + ": ";
        if (why.rfind(name, 0) == 0) why.erase(0, name.size());
        print(outage.isMissing(why, SteadyClock::now()));
        guard.lock();
        if (changed_.wait_for(guard, kBetweenAttempts, [this] { return isEnding_; })) return;
    }
    for (bool isUp = true;; isUp = awaitLink(isUp, outage.due())) {
        if (isUp) {
            print(outage.isThere(SteadyClock::now()));
        } else {
            print(outage.isMissing("the connection is lost", SteadyClock::now()));
        }
        std::lock_guard<std::mutex> guard(mutex_);
        if (isEnding_) return;
    }
}

// Until that changes, the time comes, or the server ends.
bool SharedCamera::awaitLink(bool isUp, SteadyClock::time_point until)
{
    std::unique_lock<std::mutex> guard(mutex_);
    const auto isNews = [&] { return isEnding_ || isLinkUp_ != isUp; };
    if (isUp) {
        changed_.wait(guard, isNews);
    } else {
        changed_.wait_until(guard, until, isNews);
    }
    return isLinkUp_;
}

// False: it cannot be, for now.
bool SharedCamera::openOnce()
{
    std::shared_ptr<Camera> opened;
    std::optional<Error> trouble;
    Subscription subscription;
    try {
        opened = std::make_shared<Camera>(Camera::open(target_));
        subscription = opened->onEvent([this](const Event& event) { heard(event); });
    } catch (const Error& error) {
        trouble = error;
    } catch (const std::exception& failure) { // no thread, or no memory
        trouble = Error(ErrorKind::NotFound, target_.text() + ": " + failure.what());
    }
    if (trouble) opened.reset();
    std::unique_lock<std::mutex> guard(mutex_);
    if (opened) {
        camera_ = opened;
        subscription_ = std::move(subscription);
        isLinkUp_ = true;
        trouble_.reset();
        guard.unlock();
        changed_.notify_all();
        events_.post("opened", {{"address", opened->address()}});
        return true;
    }
    const bool isNews = !trouble_ || std::string(trouble_->what()) != trouble->what();
    trouble_ = trouble;
    if (isNews) events_.post("not-open", {{"text", trouble->what()}});
    changed_.notify_all();
    return false;
}

void SharedCamera::heard(const Event& event)
{
    Json facts = Json::object();
    {
        std::lock_guard<std::mutex> guard(mutex_);
        switch (event.kind) {
        case EventKind::Heartbeat:
            heartbeatInterval_.reset();
            if (temperatures_) heartbeatInterval_ = SteadyClock::now() - heartAt_;
            temperatures_ = ToldTemperatures{event.sensorTemperature, event.boardTemperature};
            heartAt_ = SteadyClock::now();
            facts = {{"sensor_temperature", event.sensorTemperature},
                     {"board_temperature", event.boardTemperature}};
            break;
        case EventKind::LinkLost:
            isLinkUp_ = false;
            temperatures_.reset();
            forgetTold();
            break;
        case EventKind::LinkRestored:
            isLinkUp_ = true;
            break;
        case EventKind::SettingsRestored:
        case EventKind::CameraChanged:
        case EventKind::CameraError:
            forgetTold();
            break;
        case EventKind::RestoreAsked:
        case EventKind::ReadoutEnded:
        case EventKind::Message:
            break;
        }
    }
    changed_.notify_all();
    if (event.code != 0) facts["code"] = event.code;
    if (event.subCode != 0) facts["sub_code"] = event.subCode;
    if (event.readout != 0) facts["readout"] = event.readout;
    if (!event.text.empty()) facts["text"] = event.text;
    events_.post(nameOf(event.kind), facts);
}

std::shared_ptr<Camera> SharedCamera::camera() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isEnding_) throw Error(ErrorKind::Aborted, target_.text() + ": the server ends");
    if (!camera_) throw Error(*trouble_);
    return camera_;
}

bool SharedCamera::waitUntilOpen(std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, most, [this] { return camera_ != nullptr; });
}

bool SharedCamera::isLinkUp() const
{
    std::shared_ptr<Camera> open;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (isLinkUp_) open = camera_;
    }
    try { // that it is lost is known a little before it is heard
        return open && open->waitForLink(std::chrono::milliseconds(0));
    } catch (const Error&) { // it is being closed
        return false;
    }
}

std::optional<ToldTemperatures> SharedCamera::temperatures() const
{
    const auto age = heartbeatAge();
    std::lock_guard<std::mutex> guard(mutex_);
    return age && *age <= kTemperaturesLast ? temperatures_ : std::nullopt;
}

std::optional<std::chrono::duration<double>> SharedCamera::heartbeatAge() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!temperatures_) return std::nullopt;
    return SteadyClock::now() - heartAt_;
}

std::optional<std::chrono::duration<double>> SharedCamera::heartbeatInterval() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!temperatures_) return std::nullopt;
    return heartbeatInterval_;
}

void SharedCamera::tell(const std::string& name, const Value& value)
{
    const Property& property = *findProperty(name).property;
    if (property.nature != Nature::Setting) return;
    std::lock_guard<std::mutex> guard(mutex_);
    told_[name] = value;
}

Value SharedCamera::get(const std::string& name)
{
    Value value = camera()->get(name);
    tell(name, value);
    return value;
}

std::optional<Value> SharedCamera::told(const std::string& name) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    const auto found = told_.find(name);
    if (found == told_.end()) return {};
    return found->second;
}

Value SharedCamera::known(const std::string& name)
{
    const std::optional<Value> value = told(name);
    return value ? *value : get(name);
}

Value SharedCamera::set(const std::string& name, const Value& value)
{
    sequences_.refuseIfRunning();
    Value taken = camera()->set(name, value);
    wasSet(name, taken);
    return taken;
}

void SharedCamera::wasSet(const std::string& name, const Value& value)
{
    tell(name, value);
    events_.post("property",
                 {{"name", name}, {"value", Json::parse(value.json())}, {"text", value.text()}});
}

// What can be asked for is asked for again; the rest is what was set last, which the kit sends
// again by itself.
void SharedCamera::forgetTold()
{
    for (auto entry = told_.begin(); entry != told_.end();) {
        const bool isAsked = findProperty(entry->first).property->isReadable();
        entry = isAsked ? told_.erase(entry) : std::next(entry);
    }
}

void SharedCamera::end()
{
    sequences_.end();
    exposures_.end();
    std::shared_ptr<Camera> open;
    Subscription subscription;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isEnding_ = true;
        open = camera_;
        std::swap(subscription, subscription_);
    }
    changed_.notify_all();
    events_.end();
    if (looker_.joinable()) looker_.join();
    subscription.end();
    if (open) open->close();
}

} // namespace vxcam

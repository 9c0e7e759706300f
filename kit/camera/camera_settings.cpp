// What the camera is set to, what the application made of that, and how that is restored.
#include "camera/camera_core.h"
#include "readout/host_clock.h"

#include "vxcamiface.h"

#include <algorithm>

namespace vxcam {

namespace {

// Settings that frames carry: what the camera can be asked for at little cost.
bool isSurveyedWith(const Property& property)
{
    return property.nature == Nature::Setting && property.isReadable() && property.isListed &&
           property.key == nullptr && property.cost != Cost::Many &&
           property.field().kind != FieldKind::Bytes;
}

bool isTrigger(const PropertyName& name)
{
    return name.property->name == std::string("trigger");
}

// One setting in two forms.
bool isSameAs(const Property& one, const Property& other)
{
    return (one.sameAs != nullptr && one.sameAs == std::string(other.name)) ||
           (other.sameAs != nullptr && other.sameAs == std::string(one.name));
}

} // namespace

Value CameraCore::get(const std::string& name)
{
    const PropertyName property = findProperty(name);
    const Command command(*this);
    try {
        return readProperty(*this, property);
    } catch (const Error& error) {
        throw named(error);
    }
}

Value CameraCore::set(const std::string& name, const Value& value)
{
    const PropertyName property = findProperty(name);
    checkedValue(*this, property, value);
    const Command command(*this);
    try {
        const Value asked = isTrigger(property) ? sendTrigger(property, value)
                                                : sendProperty(*this, property, value);
        const bool isTold = property.property->isReadable();
        const Value told = isTold ? readProperty(*this, property) : asked;
        keep(property, asked, told);
        return told;
    } catch (const Error& error) {
        throw named(error);
    }
}

// Frames that come of it know by this when they were exposed.
Value CameraCore::sendTrigger(const PropertyName& name, const Value& value)
{
    const std::shared_ptr<StreamCore> stream = present();
    if (!stream) return sendProperty(*this, name, value);
    const bool isActive = checkedValue(*this, name, value).toInt() != 0;
    const uint64_t number = stream->clock().triggerBegins(isActive, presentMoment().steady);
    const Value asked = sendProperty(*this, name, value);
    stream->clock().triggerEnds(number, presentMoment().steady);
    return asked;
}

// The same error, which names the camera as well.
Error CameraCore::named(const Error& error) const
{
    const std::string camera = target_.text() + ": ", text = error.what();
    return Error(error.kind(), (text.rfind(camera, 0) == 0 ? "" : camera) + text, error.code(),
                 error.subCode());
}

// Remembers a setting that was made.
void CameraCore::keep(const PropertyName& name, const Value& asked, const Value& told)
{
    const Property& property = *name.property;
    if (!made_.set(name, asked) || !isSurveyed_) return;
    settings_.set(name.text, told);
    for (const Property& other : properties()) {
        if (!isSameAs(other, property) || !isSurveyedWith(other)) continue;
        if (const auto value = learn(other.name)) settings_.set(other.name, *value);
    }
}

// What the camera says; nothing when it does not answer to this, now or before.
std::optional<Value> CameraCore::learn(const std::string& name)
{
    if (unanswered_.count(name) != 0) return std::nullopt;
    try {
        return readProperty(*this, findProperty(name));
    } catch (const Error& error) {
        if (error.kind() == ErrorKind::LinkLost || error.kind() == ErrorKind::Aborted) throw;
        unanswered_.insert(name);
    }
    return std::nullopt;
}

// Asks for all that frames carry, once. A camera that lets one question go unanswered is not held
// up with more of them now.
void CameraCore::survey()
{
    if (isSurveyed_) return;
    settings_ = {};
    const size_t before = unanswered_.size();
    for (const Property& property : properties()) {
        if (isSurveyedWith(property) && unanswered_.size() == before) {
            if (const auto value = learn(property.name)) settings_.set(property.name, *value);
        }
        const Setting* const made = made_.find(property.name);
        if (made != nullptr && !property.isReadable()) settings_.set(property.name, made->value);
    }
    isSurveyed_ = unanswered_.size() == before;
}

Snapshot CameraCore::snapshot()
{
    const Command command(*this);
    do {
        isSurveyed_ = false;
        const size_t before = unanswered_.size();
        survey();
        if (unanswered_.size() == before) break;
    } while (true);
    return settings_;
}

std::string CameraCore::restore()
{
    const Command command(*this);
    return sendAgain();
}

// Sends the settings that the application made, in the order of the table.
std::string CameraCore::sendAgain()
{
    isRestoring_ = true;
    const std::unique_ptr<bool, void (*)(bool*)> done(&isRestoring_,
                                                      [](bool* flag) { *flag = false; });
    std::string failures;
    for (const Outcome& outcome : made_.applyTo(*this)) {
        if (outcome.isRestored()) continue;
        failures += (failures.empty() ? "" : "; ") + outcome.name + ": " + outcome.why;
    }
    return failures;
}

// Called with commands_, before anything else is sent on a connection that was made anew.
void CameraCore::restoreIfLost()
{
    {
        std::lock_guard<std::mutex> guard(state_);
        if (!isRestoreDue_ || !isLinkUp_ || isRestoring_ || isClearing_) return;
        isRestoreDue_ = false;
    }
    isSurveyed_ = false;
    Event event;
    event.time = presentMoment();
    try {
        event.kind = EventKind::RestoreAsked;
        if (options_.restore == Restore::All) {
            event.kind = EventKind::SettingsRestored;
            event.text = sendAgain();
        }
    } catch (const Error&) { // lost again, or closed
        std::lock_guard<std::mutex> guard(state_);
        isRestoreDue_ = true;
        throw;
    }
    if (options_.restore != Restore::None) events_.post(std::move(event));
}

} // namespace vxcam

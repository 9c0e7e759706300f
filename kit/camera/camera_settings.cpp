// What the camera is set to, what the application made of that, and how that is restored.
#include "camera/camera_core.h"
#include "readout/host_clock.h"

#include "vxcamiface.h"

#include <algorithm>

namespace vxcam {

namespace {

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

// Blocks of bytes are no matter of frames.
bool goesWithFrames(const Property& property)
{
    return property.field().kind != FieldKind::Bytes;
}

} // namespace

Value CameraCore::get(const std::string& name)
{
    const PropertyName property = findProperty(name);
    const Command command(*this, name);
    const SteadyTime asked = std::chrono::steady_clock::now();
    try {
        Value told = readProperty(*this, property);
        if (property.property->cost == Cost::Answer) noteAnswer(asked);
        return told;
    } catch (const Error& error) {
        throw named(error);
    }
}

Value CameraCore::set(const std::string& name, const Value& value)
{
    const PropertyName property = findProperty(name);
    checkedValue(*this, property, value);
    const Command command(*this, name);
    try {
        const Value asked = isTrigger(property) ? sendTrigger(property, value)
                                                : sendProperty(*this, property, value);
        const bool isTold = property.property->isReadable();
        Value told = isTold ? readProperty(*this, property) : asked;
        keep(property, asked, told);
        return told;
    } catch (const Error& error) {
        throw named(error);
    }
}

std::optional<Value> CameraCore::tryGet(const std::string& name, std::string* why)
{
    const PropertyName property = findProperty(name);
    const Command command(*this, name);
    try {
        return tryProperty(*this, property, why);
    } catch (const Error& error) {
        throw named(error);
    }
}

Value CameraCore::checked(const std::string& name, const Value& value)
{
    return checkedValue(*this, findProperty(name), value);
}

// Frames that come of it know by this when they were exposed.
Value CameraCore::sendTrigger(const PropertyName& name, const Value& value)
{
    const std::shared_ptr<StreamCore> stream = present();
    if (!stream) return sendProperty(*this, name, value);
    const bool isActive = checkedValue(*this, name, value).toInt() != 0;
    const uint64_t number = stream->clock().triggerBegins(isActive, presentMoment().steady);
    Value asked = sendProperty(*this, name, value);
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
    if (!made_.set(name, asked) || !goesWithFrames(property)) return;
    settings_.set(name.text, told);
    for (const Property& other : properties()) {
        const Snapshot::Entry* const entry = settings_.entry(other.name);
        const bool isKnown = entry != nullptr && entry->isAsked;
        if (isKnown && isSameAs(other, property)) settings_ = settings_.again(*this, other.name);
    }
}

// One of the settings that frames carry, asked for now; nothing when the camera does not answer to
// it, now or before.
std::optional<Value> CameraCore::learn(const std::string& name)
{
    settings_ = settings_.again(*this, name);
    const Snapshot::Entry* const entry = settings_.entry(name);
    if (entry == nullptr || !entry->trouble.empty()) return std::nullopt;
    return entry->value;
}

// Asks for what frames carry and is not known yet.
void CameraCore::survey(Snapshot::Again which)
{
    settings_ = settings_.again(*this, which);
    for (const Setting& made : made_) {
        const bool isKnown = settings_.entry(made.name.text) != nullptr;
        if (!isKnown && goesWithFrames(*made.name.property)) {
            settings_.set(made.name.text, made.value);
        }
    }
}

Snapshot CameraCore::snapshot()
{
    const Command command(*this, "settings");
    survey(Snapshot::Again::All);
    return settings_;
}

Profile CameraCore::profile(bool withMask)
{
    const Command command(*this, "settings");
    Profile profile = Profile::of(*this, made_, withMask);
    profile.setCamera(target_.text());
    return profile;
}

// What was put into force counts as made by the application.
std::vector<Outcome> CameraCore::apply(const Profile& profile)
{
    const Command command(*this, "settings");
    std::vector<Outcome> outcomes = profile.applyTo(*this);
    for (const Outcome& outcome : outcomes) {
        if (outcome.isRestored()) made_.set(findProperty(outcome.name), outcome.asked);
    }
    settings_ = settings_.forgotten();
    return outcomes;
}

std::string CameraCore::restore()
{
    const Command command(*this, "settings");
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
    settings_ = settings_.forgotten();
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

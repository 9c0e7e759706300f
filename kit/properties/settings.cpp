#include <vxcamkit/settings.h>

#include "properties/property_access.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

// The property that stands for all that set the same thing.
const char* familyOf(const Property& property)
{
    return property.sameAs != nullptr ? property.sameAs : property.name;
}

bool setTheSame(const PropertyName& one, const PropertyName& other)
{
    return one.key == other.key &&
           std::strcmp(familyOf(*one.property), familyOf(*other.property)) == 0;
}

bool comesBefore(const Setting& one, const Setting& other)
{
    if (one.name.property != other.name.property) {
        return one.name.property < other.name.property; // of one table
    }
    return one.name.key < other.name.key;
}

// Whether the camera may go on answering after this.
bool isLocal(const Error& error)
{
    return error.kind() == ErrorKind::Usage || error.kind() == ErrorKind::Camera;
}

// Runs one step of one outcome. False when the camera does not answer any more.
template <class Step>
bool attempt(Outcome* outcome, const Step& step)
{
    try {
        step();
        return true;
    } catch (const Error& error) {
        outcome->why = error.what();
        if (isLocal(error)) outcome->how = Outcome::How::Refused;
        return isLocal(error);
    }
}

void send(Access& access, const Setting& setting, Outcome* outcome)
{
    sendProperty(access, setting.name, setting.value);
    outcome->how = Outcome::How::Sent;
}

// What a camera without an area reads, told as the area that it is.
bool isWholeSensor(const Access& access, const Value& told)
{
    const Size sensor = access.sensor();
    return told.text() ==
           "0,0," + std::to_string(sensor.columns) + "," + std::to_string(sensor.rows);
}

void verify(Access& access, const Setting& setting, Outcome* outcome)
{
    outcome->told = readProperty(access, setting.name);
    const bool isTaken = isAsAsked(outcome->asked, outcome->told) ||
                         (outcome->asked.isNothing() && isWholeSensor(access, outcome->told));
    outcome->how = isTaken ? Outcome::How::Confirmed : Outcome::How::Different;
    if (!isTaken) outcome->why = "the camera tells " + outcome->told.shown();
}

} // namespace

const char* nameOf(Outcome::How how)
{
    switch (how) {
    case Outcome::How::Confirmed:
        return "confirmed";
    case Outcome::How::Sent:
        return "sent";
    case Outcome::How::Different:
        return "different";
    case Outcome::How::Refused:
        return "refused";
    case Outcome::How::Unanswered:
        break;
    }
    return "unanswered";
}

bool Settings::set(const PropertyName& name, const Value& value)
{
    if (name.property->nature != Nature::Setting || !name.property->isWritable()) return false;
    remove(name);
    const Setting setting{name, value};
    settings_.insert(std::upper_bound(settings_.begin(), settings_.end(), setting, comesBefore),
                     setting);
    return true;
}

void Settings::remove(const PropertyName& name)
{
    const auto isSame = [&](const Setting& one) { return setTheSame(one.name, name); };
    settings_.erase(std::remove_if(settings_.begin(), settings_.end(), isSame), settings_.end());
}

bool Settings::has(const PropertyName& name) const
{
    return std::any_of(settings_.begin(), settings_.end(),
                       [&](const Setting& one) { return setTheSame(one.name, name); });
}

const Setting* Settings::find(const std::string& name) const
{
    const PropertyName wanted = findProperty(name);
    const auto found = std::find_if(settings_.begin(), settings_.end(),
                                    [&](const Setting& one) { return one.name == wanted; });
    return found != settings_.end() ? &*found : nullptr;
}

std::vector<Outcome> Settings::applyTo(Access& access) const
{
    std::vector<Outcome> outcomes;
    std::string trouble; // why the camera is asked no more
    for (const Setting& setting : settings_) {
        Outcome outcome;
        outcome.name = setting.name.text;
        outcome.asked = setting.value;
        outcome.why = trouble;
        const bool goesOn =
            trouble.empty() && attempt(&outcome, [&] { send(access, setting, &outcome); });
        if (!goesOn) trouble = outcome.why;
        outcomes.push_back(std::move(outcome));
    }
    for (size_t i = 0; i < outcomes.size() && trouble.empty(); ++i) {
        Outcome& outcome = outcomes[i];
        const bool canTell = settings_[i].name.property->isReadable();
        if (outcome.how != Outcome::How::Sent || !canTell) continue;
        outcome.how = Outcome::How::Unanswered;
        const bool goesOn = attempt(&outcome, [&] { verify(access, settings_[i], &outcome); });
        if (!goesOn) trouble = outcome.why;
    }
    return outcomes;
}

} // namespace vxcam

// What properties are called, here and elsewhere.
#include <vxcamkit/property.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vxcam {

namespace {

std::string replaced(std::string text, char what, char by)
{
    std::replace(text.begin(), text.end(), what, by);
    return text;
}

char upper(char character)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return upper(c); });
    return text;
}

std::string camelCase(const std::string& name)
{
    std::string text;
    bool isStart = true;
    for (const char character : name) {
        if (character != '-') text += isStart ? upper(character) : character;
        isStart = character == '-';
    }
    return text;
}

std::string orElse(const char* special, const std::string& derived)
{
    return *special != '\0' ? special : derived;
}

} // namespace

const char* nameOf(Group group)
{
    switch (group) {
    case Group::Exposure:
        return "exposure";
    case Group::Area:
        return "area";
    case Group::Image:
        return "image";
    case Group::Binning:
        return "binning";
    case Group::Cooling:
        return "cooling";
    case Group::Trigger:
        return "trigger";
    case Group::Signal:
        return "signal";
    case Group::Cis:
        return "cis";
    case Group::Service:
        break;
    }
    return "service";
}

const char* nameOf(Nature nature)
{
    switch (nature) {
    case Nature::Setting:
        return "setting";
    case Nature::Action:
        return "action";
    case Nature::State:
        return "state";
    case Nature::Derived:
        return "derived";
    case Nature::Identity:
        break;
    }
    return "identity";
}

const char* nameOf(Cost cost)
{
    switch (cost) {
    case Cost::None:
        return "none";
    case Cost::Answer:
        return "answer";
    case Cost::Many:
        break;
    }
    return "many";
}

std::string Property::fullName() const
{
    return key != nullptr ? std::string(name) + ":" + key : name;
}

const char* Property::accessText() const
{
    if (write == nullptr) return "read only";
    return read == nullptr ? "set only" : "read and set";
}

std::string Property::pythonName() const
{
    return orElse(names.python, replaced(name, '-', '_'));
}

std::string Property::tangoName() const
{
    return orElse(names.tango, camelCase(name));
}

std::string Property::indiName() const
{
    return orElse(names.indi, upper(replaced(name, '-', '_')));
}

std::string Property::fitsName() const
{
    return orElse(names.fits, "HIERARCH VX " + upper(name));
}

std::string Property::alpacaName() const
{
    return names.alpaca;
}

std::string Property::label() const
{
    std::string text = replaced(name, '-', ' ');
    text[0] = upper(text[0]);
    return text;
}

} // namespace vxcam

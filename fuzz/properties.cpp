// Values of properties: as texts, as JSON, as a camera tells them; and profiles.
//
// Input: a kind, the number of a property, then the text, or the fields as the camera tells them.
#include "tcFuzzInput.h"
#include "values/field_values.h"

#include <vxcamkit/error.h>
#include <vxcamkit/profile.h>
#include <vxcamkit/property.h>

namespace {

using vxcam::Property;
using vxcam::Value;

constexpr const char* kName = "thing";

bool isPrintable(const std::string& text)
{
    return std::none_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < ' ' || character == 0x7F;
    });
}

// What was taken is written so that it is taken again, as the same.
void checkValue(const Property& property, const Value& value)
{
    const vxcam::Shape& shape = property.shape;
    Require(isPrintable(value.text()) && isPrintable(value.shown()), "a value can be shown");
    Require(vxcam::fitted(kName, shape, value) == value, "a value fits its property");
    Require(vxcam::parsedText(kName, shape, value.text()) == value, "a text says it all");
    Require(vxcam::parsedJson(kName, shape, value.json()) == value, "JSON says it all");
}

void checkText(const Property& property, const std::string& text)
{
    checkValue(property, vxcam::parsedText(kName, property.shape, text));
}

void checkJson(const Property& property, const std::string& text)
{
    checkValue(property, vxcam::parsedJson(kName, property.shape, text));
}

// A camera may tell anything; what set would take, it takes as it is told.
void checkTold(const Property& property, tcFuzzInput* input)
{
    vxcam::FieldValues fields;
    for (const vxcam::Field& field : property.shape.fields) {
        if (field.isBlock()) continue;
        const bool isReal = field.kind == vxcam::FieldKind::Real;
        const double number = isReal ? static_cast<double>(input->F32()) : input->U32();
        fields.numbers.push_back(number);
    }
    if (property.shape.fields.back().isBlock()) fields.bytes = input->Rest();
    const Value told = vxcam::valueOf(property.shape, fields);
    Require(isPrintable(told.text()) && !told.json().empty(), "what is told can be shown");
    checkValue(property, vxcam::fitted(kName, property.shape, told));
}

void checkProfile(const std::string& text)
{
    const vxcam::Profile profile = vxcam::Profile::parse(text);
    const vxcam::Profile again = vxcam::Profile::parse(profile.json());
    Require(again.gaps().empty(), "what was taken is taken again");
    Require(again.settings().size() == profile.settings().size(), "and all of it");
    for (const vxcam::Setting& setting : profile.settings()) {
        const vxcam::Setting* const same = again.settings().find(setting.name.text);
        Require(same != nullptr && same->value == setting.value, "as the same");
    }
}

void check(tcFuzzInput* input)
{
    const unsigned kind = input->U8() % 5;
    const std::vector<Property>& all = vxcam::properties();
    const Property& property = all[input->U8() % all.size()];
    if (kind == 0) return checkTold(property, input);
    const std::string text = input->Text(input->Left());
    if (kind == 1) return checkText(property, text);
    if (kind == 2) return checkJson(property, text);
    if (kind == 3) return checkProfile(text);
    Require(vxcam::findProperty(text).property != nullptr, "a name is one of the table");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    try {
        check(&input);
    } catch (const vxcam::Error& error) {
        Require(isPrintable(error.what()), "a refusal can be shown");
    }
    return 0;
}

// Attributes made from the table of properties.
#include "attributes.h"
#include "called.h"

#include <vxcamkit/property.h>

#include <algorithm>
#include <limits>

namespace vxcam {

namespace {

// How a property's value travels.
enum class Form { Long, ULong, Double, Boolean, Enum, Text, Doubles, Bytes };

constexpr double kMostBytes = 1 << 28; // what one message of Tango holds

bool isNumber(const Field& field)
{
    return field.kind == FieldKind::Whole || field.kind == FieldKind::Hex ||
           field.kind == FieldKind::Real || field.kind == FieldKind::Time;
}

Form scalarForm(const Field& field)
{
    switch (field.kind) {
    case FieldKind::Whole:
        return field.most > std::numeric_limits<Tango::DevLong>::max() ? Form::ULong : Form::Long;
    case FieldKind::Hex:
        return Form::ULong;
    case FieldKind::Real:
    case FieldKind::Time:
        return Form::Double;
    case FieldKind::Switch:
        return Form::Boolean;
    case FieldKind::Choice:
        return Form::Enum;
    case FieldKind::Bytes:
        return Form::Bytes;
    case FieldKind::Text:
        break;
    }
    return Form::Text;
}

// A list of numbers cannot be memorised: what can be set and has several fields is a text.
Form formOf(const Property& property)
{
    const Shape& shape = property.shape;
    if (shape.isScalar() && !shape.mayBeNone && shape.fields[0].repeats == 1) {
        return scalarForm(shape.fields[0]);
    }
    const bool isNumbers = shape.groups == 1 && !property.isWritable() &&
                           std::all_of(shape.fields.begin(), shape.fields.end(), isNumber);
    return isNumbers ? Form::Doubles : Form::Text;
}

// ---- From the kit to Tango ------------------------------------------------------------------

int64_t labelOf(const Property& property, const std::string& word)
{
    const std::vector<Choice>& choices = property.field().choices;
    const auto found = std::find_if(choices.begin(), choices.end(),
                                    [&](const Choice& choice) { return choice.word == word; });
    return found - choices.begin();
}

template <class Number>
void giveSet(Tango::Attribute& attribute, Number number)
{
    give(attribute, number);
    auto* const writable = dynamic_cast<Tango::WAttribute*>(&attribute);
    if (writable != nullptr) writable->set_write_value(number);
}

void giveText(Tango::Attribute& attribute, std::string text)
{
    give(attribute, text);
    auto* const writable = dynamic_cast<Tango::WAttribute*>(&attribute);
    if (writable != nullptr) writable->set_write_value(text);
}

std::vector<double> doublesOf(const Value& value)
{
    std::vector<double> numbers;
    for (size_t i = 0; i < value.size(); ++i) {
        numbers.push_back(value[i].toDouble());
    }
    return numbers;
}

void giveValue(Tango::Attribute& attribute, const Property& property, Form form, const Value& value)
{
    if (form == Form::Text) {
        const bool isPlain = value.kind() == Value::Kind::Text;
        return giveText(attribute, isPlain ? value.toText() : value.text());
    }
    if (value.isNothing()) return giveNothing(attribute);
    switch (form) {
    case Form::Long:
        return giveSet(attribute, static_cast<Tango::DevLong>(value.toInt()));
    case Form::ULong:
        return giveSet(attribute, static_cast<Tango::DevULong>(value.toInt()));
    case Form::Double:
        return giveSet(attribute, Tango::DevDouble{value.toDouble()});
    case Form::Boolean:
        return giveSet(attribute, Tango::DevBoolean{value.toBool()});
    case Form::Enum:
        return giveSet(attribute, static_cast<Tango::DevShort>(labelOf(property, value.toText())));
    case Form::Doubles:
        return giveList<Tango::DevDouble>(attribute, doublesOf(value));
    case Form::Bytes:
    case Form::Text:
        return giveList<Tango::DevUChar>(attribute, value.toBytes());
    }
}

// ---- From Tango to the kit ------------------------------------------------------------------

Value writtenBytes(Tango::WAttribute& attribute)
{
    const Tango::DevUChar* bytes = nullptr;
    attribute.get_write_value(bytes);
    return Value::Bytes(bytes, bytes + attribute.get_write_value_length());
}

Value writtenLabel(Tango::WAttribute& attribute, const Property& property)
{
    const auto& choices = property.field().choices;
    const auto label = static_cast<size_t>(written<Tango::DevShort>(attribute));
    if (label < choices.size()) return choices[label].word;
    throw Error(ErrorKind::Usage, std::string(property.name) + ": " + choiceText(property.field()));
}

Value writtenValue(Tango::WAttribute& attribute, const Property& property, Form form)
{
    switch (form) {
    case Form::Long:
        return written<Tango::DevLong>(attribute);
    case Form::ULong:
        return written<Tango::DevULong>(attribute);
    case Form::Double:
        return written<Tango::DevDouble>(attribute);
    case Form::Boolean:
        return written<Tango::DevBoolean>(attribute);
    case Form::Enum:
        return writtenLabel(attribute, property);
    case Form::Text:
        return std::string(written<Tango::DevString>(attribute));
    case Form::Doubles:
    case Form::Bytes:
        break;
    }
    return writtenBytes(attribute);
}

// ---- The attributes -------------------------------------------------------------------------

std::string numberOf(const Field& field, double number)
{
    const bool isWhole = field.kind == FieldKind::Whole || field.kind == FieldKind::Hex;
    if (field.kind == FieldKind::Time) number /= 1000; // from ms to s
    return isWhole ? std::to_string(static_cast<int64_t>(number)) : std::to_string(number);
}

std::string helpOf(const Property& property, Form form, const std::string& name)
{
    std::string help = property.help;
    if (form == Form::Text) help += "; written as " + syntaxText(property.shape);
    const std::string range = form == Form::Enum ? "" : rangeText(property.shape);
    if (!range.empty()) help += "; " + range;
    return help + " (property " + name + ")";
}

About aboutProperty(const Property& property, Form form, const std::string& name)
{
    About about;
    const Field& field = property.field();
    const bool isSingle = form != Form::Text && form != Form::Doubles;
    about.help = helpOf(property, form, name);
    about.unit = field.kind == FieldKind::Time ? "s" : isSingle ? field.unit : "";
    if (form == Form::Double) about.format = field.kind == FieldKind::Time ? "%.3f" : "%.2f";
    const bool isLimited = form == Form::Long || form == Form::ULong || form == Form::Double;
    if (isLimited && !rangeText(property.shape).empty()) {
        about.least = numberOf(field, field.least);
        about.most = numberOf(field, field.most);
    }
    for (const Choice& choice : field.choices) {
        if (form == Form::Enum) about.labels.emplace_back(choice.word);
    }
    const bool isSpecial = property.group == Group::Service || property.group == Group::Cis ||
                           property.cost == Cost::Many || property.key != nullptr;
    about.level = isSpecial ? Tango::EXPERT : Tango::OPERATOR;
    // Of what sets the same thing one is enough: the database cannot tell which was written last.
    const bool isSecond = property.sameAs != nullptr && property.key == nullptr;
    about.isMemorised = property.isWritable() && property.nature == Nature::Setting &&
                        form != Form::Bytes && !isSecond;
    return about;
}

long typeOf(Form form)
{
    static const long types[] = {Tango::DEV_LONG,    Tango::DEV_ULONG, Tango::DEV_DOUBLE,
                                 Tango::DEV_BOOLEAN, Tango::DEV_ENUM,  Tango::DEV_STRING,
                                 Tango::DEV_DOUBLE,  Tango::DEV_UCHAR};
    return types[static_cast<size_t>(form)];
}

long mostItems(const Property& property)
{
    const Field& last = property.shape.fields.back();
    if (last.kind == FieldKind::Bytes) return static_cast<long>(std::min(last.most, kMostBytes));
    return static_cast<long>(property.shape.fields.size()) - 1 + last.repeats;
}

// `name` is the property's, with its key: "register:16".
Tango::Attr* propertyAttribute(const Property& property, const std::string& name,
                               const std::string& called)
{
    const Form form = formOf(property);
    const auto access = !property.isWritable()  ? Tango::READ
                        : property.isReadable() ? Tango::READ_WRITE
                                                : Tango::WRITE;
    const AttributeReader reader = [&property, form, name](VxCamera& device,
                                                           Tango::Attribute& attribute) {
        giveValue(attribute, property, form, device.station().get(name));
    };
    const AttributeWriter writer = [&property, form, name](VxCamera& device,
                                                           Tango::WAttribute& attribute) {
        device.station().set(name, writtenValue(attribute, property, form));
    };
    Tango::Attr* attribute = nullptr;
    if (form == Form::Doubles || form == Form::Bytes) {
        attribute = new CalledAttribute<Tango::SpectrumAttr>(
            reader, writer, called.c_str(), typeOf(form), access, mostItems(property));
    } else {
        attribute =
            new CalledAttribute<Tango::Attr>(reader, writer, called.c_str(), typeOf(form), access);
    }
    About about = aboutProperty(property, form, name);
    if (called == property.names.tangoAlias) about.isMemorised = false; // once is enough
    describe(*attribute, about);
    return attribute;
}

} // namespace

void addPropertyAttributes(Attributes* attributes)
{
    for (const Property& property : properties()) {
        if (property.key == nullptr) {
            attributes->push_back(propertyAttribute(property, property.name, property.tangoName()));
        }
        for (uint32_t key = 0; property.hasFewKeys && key <= property.mostKey; ++key) {
            const std::string number = std::to_string(key);
            attributes->push_back(propertyAttribute(property,
                                                    std::string(property.name) + ":" + number,
                                                    property.tangoName() + number));
        }
        const std::string alias = property.names.tangoAlias;
        if (!alias.empty()) {
            attributes->push_back(propertyAttribute(property, property.name, alias));
        }
    }
}

void VxCamera::addKeyed(const std::vector<std::string>& names)
{
    std::string wrong;
    for (const std::string& text : names) {
        try {
            const PropertyName name = findProperty(text);
            if (name.property->key == nullptr || name.property->hasFewKeys) continue;
            const std::string key = std::to_string(name.key);
            add_attribute(propertyAttribute(*name.property,
                                            std::string(name.property->name) + ":" + key,
                                            name.property->tangoName() + key));
        } catch (const Error& error) {
            wrong += (wrong.empty() ? "" : "; ") + std::string(error.what());
        }
    }
    if (wrong.empty()) return;
    station_->complain(Error(ErrorKind::Usage, "device property Keyed: " + wrong));
}

} // namespace vxcam

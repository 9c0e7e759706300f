#include "tab_property.h"

#include <vxcamkit/error.h>

#include <indipropertynumber.h>
#include <indipropertyswitch.h>
#include <indipropertytext.h>

#include <algorithm>
#include <cctype>

namespace vxcam {

namespace {

constexpr const char* kSettings = "Camera";
constexpr const char* kStates = "Camera state";
constexpr const char* kOn = "INDI_ENABLED";
constexpr const char* kOff = "INDI_DISABLED";
constexpr const char* kValue = "VALUE";
constexpr double kMilliseconds = 1000;

std::string elementName(const std::string& word)
{
    std::string name = word;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) {
        return c == '-' ? '_' : static_cast<char>(std::toupper(c));
    });
    return name;
}

// Labels have 63 characters, and begin with a capital.
std::string label(std::string text)
{
    if (!text.empty())
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text.substr(0, MAXINDILABEL - 1);
}

std::string fieldLabel(const Field& field)
{
    const std::string range = field.kind == FieldKind::Time ? "" : rangeText(field);
    const std::string unit = field.kind == FieldKind::Time ? "s" : field.unit;
    std::string text = field.name;
    if (!range.empty()) return label(text + ": " + range);
    return label(unit.empty() ? text : text + " (" + unit + ")");
}

bool isNumber(const Field& field)
{
    return field.kind == FieldKind::Whole || field.kind == FieldKind::Hex ||
           field.kind == FieldKind::Real || field.kind == FieldKind::Time;
}

bool isSwitch(const Field& field)
{
    return field.kind == FieldKind::Switch;
}

const char* formatOf(const Field& field)
{
    switch (field.kind) {
    case FieldKind::Time:
        return "%.3f";
    case FieldKind::Real:
        return "%.9g";
    default:
        return "%.f";
    }
}

} // namespace

TabProperty::Form TabProperty::formOf(const Property& row)
{
    const Shape& shape = row.shape;
    if (row.key != nullptr) return Form::Keyed;
    if (!row.isWritable() || shape.groups > 1 || shape.mayBeNone) return Form::Text;
    if (shape.fields.back().repeats > 1) return Form::Text;
    if (shape.isScalar() && row.field().kind == FieldKind::Choice) return Form::Words;
    if (shape.isScalar() && isSwitch(row.field())) return Form::OnOff;
    const auto all = [&](auto kind) {
        return std::all_of(shape.fields.begin(), shape.fields.end(), kind);
    };
    if (all(isNumber)) return Form::Numbers;
    return all(isSwitch) ? Form::Flags : Form::Text;
}

TabProperty::TabProperty(const Property& row, const char* device)
    : row_(row), device_(device), form_(formOf(row))
{
    switch (form_) {
    case Form::Numbers:
        makeNumbers();
        break;
    case Form::OnOff:
    case Form::Flags:
    case Form::Words:
        makeSwitches();
        break;
    case Form::Text:
    case Form::Keyed:
        makeTexts();
        break;
    }
}

std::string TabProperty::name() const
{
    // A state may be called as what it is the state of.
    const auto& rows = properties();
    const bool isTaken =
        !row_.isWritable() && std::any_of(rows.begin(), rows.end(), [this](const Property& other) {
            return &other != &row_ && other.indiName() == row_.indiName();
        });
    return row_.indiName() + (isTaken ? "_STATE" : "");
}

void TabProperty::makeNumbers()
{
    INDI::PropertyNumber property(row_.shape.fields.size());
    for (size_t i = 0; i < row_.shape.fields.size(); ++i) {
        const Field& field = row_.shape.fields[i];
        const double scale = field.kind == FieldKind::Time ? kMilliseconds : 1;
        property[i].fill(elementName(field.name).c_str(), fieldLabel(field).c_str(),
                         formatOf(field), field.least / scale, field.most / scale, 0,
                         field.absent.value_or(std::max(field.least, 0.0)) / scale);
    }
    property.fill(device_.c_str(), name().c_str(), label(row_.help).c_str(), kSettings, IP_RW, 60,
                  IPS_IDLE);
    indi_ = property;
}

void TabProperty::makeSwitches()
{
    std::vector<std::pair<std::string, std::string>> elements; // name and label
    if (form_ == Form::OnOff) {
        elements = {{kOn, "On"}, {kOff, "Off"}};
    } else if (form_ == Form::Words) {
        for (const Choice& choice : row_.field().choices) {
            elements.emplace_back(elementName(choice.word), choice.word);
        }
    } else {
        for (const Field& field : row_.shape.fields) {
            elements.emplace_back(elementName(field.name), field.name);
        }
    }
    INDI::PropertySwitch property(elements.size());
    for (size_t i = 0; i < elements.size(); ++i) {
        property[i].fill(elements[i].first.c_str(), label(elements[i].second).c_str(), ISS_OFF);
    }
    property.fill(device_.c_str(), name().c_str(), label(row_.help).c_str(), kSettings, IP_RW,
                  form_ == Form::Flags ? ISR_NOFMANY : ISR_ATMOST1, 60, IPS_IDLE);
    indi_ = property;
}

void TabProperty::makeTexts()
{
    const bool isKeyed = form_ == Form::Keyed;
    INDI::PropertyText property(isKeyed ? 2 : 1);
    std::string syntax = syntaxText(row_.shape);
    const std::string range = rangeText(row_.shape);
    if (!range.empty()) syntax += ": " + range;
    if (isKeyed) {
        property[0].fill(
            row_.key,
            label(std::string(row_.key) + ": 0 to " + std::to_string(row_.mostKey)).c_str(), "");
    }
    property[isKeyed ? 1 : 0].fill(kValue, syntax.substr(0, MAXINDILABEL - 1).c_str(), "");
    property.fill(device_.c_str(), name().c_str(), label(row_.help).c_str(),
                  row_.isWritable() ? kSettings : kStates, row_.isWritable() ? IP_RW : IP_RO, 60,
                  IPS_IDLE);
    indi_ = property;
}

Wish TabProperty::wishOf(const Given& given) const
{
    const auto isOn = [&](const std::string& element, bool otherwise) {
        const auto found = given.find(element);
        return found == given.end() ? otherwise : found->second.toBool();
    };
    const std::string name = row_.name;
    Value::List items;
    switch (form_) {
    case Form::Numbers:
        for (const auto& element : INDI::PropertyNumber(indi_)) {
            const auto found = given.find(element.getName());
            items.push_back(found == given.end() ? Value(element.getValue()) : found->second);
        }
        return {name, items.size() == 1 ? items.front() : Value::list(items)};
    case Form::Flags:
        for (const auto& element : INDI::PropertySwitch(indi_)) {
            items.emplace_back(isOn(element.getName(), element.getState() == ISS_ON));
        }
        return {name, Value::list(items)};
    case Form::OnOff:
        return {name, Value(isOn(kOn, !isOn(kOff, false)))};
    case Form::Words:
        for (const Choice& choice : row_.field().choices) {
            if (isOn(elementName(choice.word), false)) return {name, Value(choice.word)};
        }
        throw Error(ErrorKind::Usage, name + ": one of " + choiceText(row_.field()));
    case Form::Text:
        return {name, parsedText(name, row_.shape, given.at(kValue).toText())};
    case Form::Keyed:
        break;
    }
    const auto key = given.find(row_.key);
    const std::string shown = INDI::PropertyText(indi_)[0].getText();
    const std::string full = name + ":" + (key == given.end() ? shown : key->second.toText());
    const auto value = given.find(kValue);
    findProperty(full);
    if (value == given.end()) return {full, std::nullopt};
    return {full, parsedText(full, row_.shape, value->second.toText())};
}

void TabProperty::show(const std::string& name, const Value& value)
{
    isKnown_ = !value.isNothing() || row_.shape.mayBeNone;
    if (form_ == Form::Numbers) {
        if (isKnown_) showNumbers(value);
    } else if (form_ == Form::Text || form_ == Form::Keyed) {
        INDI::PropertyText property(indi_);
        const std::string text = isKnown_ ? value.text() : "";
        if (form_ == Form::Keyed) property[0].setText(name.substr(name.find(':') + 1));
        property[form_ == Form::Keyed ? 1 : 0].setText(text);
    } else {
        showSwitches(value);
    }
    indi_.setState(isKnown_ ? IPS_OK : IPS_IDLE);
    indi_.apply();
}

void TabProperty::showNumbers(const Value& value)
{
    INDI::PropertyNumber property(indi_);
    for (size_t i = 0; i < property.size() && i < value.size(); ++i) {
        property[i].setValue(value[i].toDouble());
    }
}

void TabProperty::showSwitches(const Value& value)
{
    INDI::PropertySwitch property(indi_);
    for (size_t i = 0; i < property.size(); ++i) {
        bool isOn = false;
        if (isKnown_ && form_ == Form::OnOff) {
            isOn = value.toBool() == (i == 0);
        } else if (isKnown_ && form_ == Form::Words) {
            isOn = value.toText() == row_.field().choices[i].word;
        } else if (isKnown_ && i < value.size()) {
            isOn = value[i].toBool();
        }
        property[i].setState(isOn ? ISS_ON : ISS_OFF);
    }
}

} // namespace vxcam

// From texts to values.
#include "values/escapes.h"
#include "values/field_values.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/error.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vxcam {

namespace {

constexpr size_t kShownText = 64; // of what is refused

// The whole of the text, in decimal digits or behind 0x in hexadecimal ones.
bool parseWhole(std::string text, double* number)
{
    const bool isNegative = !text.empty() && text[0] == '-';
    if (isNegative) text.erase(0, 1);
    const bool isHex = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint64_t value = 0;
    const auto [rest, error] = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (error != std::errc() || rest != end) return false;
    *number = isNegative ? -static_cast<double>(value) : static_cast<double>(value);
    return true;
}

// The number that the camera will hold, which is a float.
bool parseReal(const std::string& text, double* number)
{
    const char* const end = text.data() + text.size();
    float value = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || !std::isfinite(value)) return false;
    *number = value;
    return true;
}

double parseSwitch(const std::string& name, const std::string& text)
{
    if (text == "on" || text == "1") return 1;
    if (text == "off" || text == "0") return 0;
    refuseValue(name, text, "write on or off");
}

double parseChoice(const std::string& name, const Field& field, const std::string& text)
{
    for (const Choice& choice : field.choices) {
        if (text == choice.word) return static_cast<double>(choice.number);
    }
    refuseValue(name, text, "write one of " + choiceText(field));
}

std::string withoutUnit(const std::string& text, const std::string& unit)
{
    const bool hasUnit = !unit.empty() && text.size() > unit.size() &&
                         text.compare(text.size() - unit.size(), unit.size(), unit) == 0;
    return hasUnit ? text.substr(0, text.size() - unit.size()) : text;
}

double parseNumber(const std::string& name, const Field& field, const std::string& text)
{
    const std::string digits = withoutUnit(text, field.unit);
    const bool isReal = field.kind == FieldKind::Real;
    double number = 0;
    if (!(isReal ? parseReal(digits, &number) : parseWhole(digits, &number))) {
        refuseNumber(name, field, text);
    }
    if (number < field.least || number > field.most) refuseRange(name, field, text);
    return number;
}

double parseTime(const std::string& name, const std::string& text)
{
    try {
        return static_cast<double>(parsedDuration(text).count());
    } catch (const Error& error) {
        throw Error(error.kind(), name + ": " + error.what());
    }
}

std::vector<uint8_t> parseBlock(const std::string& name, const Field& field,
                                const std::string& text)
{
    std::vector<uint8_t> bytes;
    if (field.kind == FieldKind::Text) {
        const std::optional<std::string> plain = unescaped(text);
        if (!plain) refuseValue(name, text, "a backslash is written \\\\");
        bytes.assign(plain->begin(), plain->end());
    } else {
        std::optional<std::vector<uint8_t>> known = bytesOfHex(text);
        if (!known) refuseValue(name, text, "write two hexadecimal digits for each byte");
        bytes = std::move(*known);
    }
    requireLength(name, field, bytes.size(), text);
    return bytes;
}

// Cuts the first part off a text, at the delimiter.
std::string cut(std::string* text, char delimiter)
{
    const size_t at = text->find(delimiter);
    std::string first = text->substr(0, at);
    text->erase(0, at == std::string::npos ? at : at + 1);
    return first;
}

void parseGroup(const std::string& name, const Shape& shape, const std::string& whole,
                FieldValues* values)
{
    std::string rest = whole;
    bool isMore = true; // a part is left, maybe an empty one
    const auto next = [&] {
        isMore = rest.find(kFieldSeparator) != std::string::npos;
        return cut(&rest, kFieldSeparator);
    };
    for (const Field& field : shape.fields) {
        if (isMore && field.isBlock()) {
            values->bytes = parseBlock(name, field, rest);
            return;
        }
        if (field.repeats > 1) {
            for (int i = 0; isMore && i < field.repeats; ++i) {
                values->numbers.push_back(numberOfText(name, field, next()));
            }
        } else if (isMore) {
            values->numbers.push_back(numberOfText(name, field, next()));
        } else if (field.absent) {
            values->numbers.push_back(*field.absent);
        } else {
            refuseValue(name, whole, "write " + syntaxText(shape));
        }
    }
    if (isMore) refuseValue(name, whole, "too many parts, write " + syntaxText(shape));
}

} // namespace

void refuseValue(const std::string& name, const std::string& text, const std::string& why)
{
    const std::string shown = text.size() > kShownText ? text.substr(0, kShownText) + "..." : text;
    throw Error(ErrorKind::Usage, name + " '" + shown + "': " + why);
}

void refuseNumber(const std::string& name, const Field& field, const std::string& text)
{
    const std::string what = field.kind == FieldKind::Real ? "number" : "whole number";
    const std::string range = rangeText(field);
    refuseValue(name, text, "write a " + what + (range.empty() ? "" : ", " + range));
}

void refuseRange(const std::string& name, const Field& field, const std::string& text)
{
    const std::string range = rangeText(field);
    refuseValue(name, text, "out of range" + (range.empty() ? "" : ", it is " + range));
}

void requireLength(const std::string& name, const Field& field, size_t bytes,
                   const std::string& shown)
{
    const auto count = static_cast<double>(bytes);
    if (count >= field.least && count <= field.most) return;
    refuseValue(name, shown,
                numberText(count) + " bytes, it takes " + numberText(field.least) + " to " +
                    numberText(field.most));
}

double numberOfText(const std::string& name, const Field& field, const std::string& text)
{
    switch (field.kind) {
    case FieldKind::Time:
        return parseTime(name, text);
    case FieldKind::Switch:
        return parseSwitch(name, text);
    case FieldKind::Choice:
        return parseChoice(name, field, text);
    default:
        return parseNumber(name, field, text);
    }
}

FieldValues fieldsOfText(const std::string& name, const Shape& shape, const std::string& text)
{
    FieldValues values;
    if (shape.mayBeNone && text == kNone) return values;
    if (shape.groups == 1) {
        parseGroup(name, shape, text, &values);
        return values;
    }
    std::string rest = text;
    if (std::count(text.begin(), text.end(), kGroupSeparator) >= shape.groups) {
        refuseValue(name, text, "at most " + std::to_string(shape.groups) + " groups");
    }
    while (rest.find(kGroupSeparator) != std::string::npos) {
        parseGroup(name, shape, cut(&rest, kGroupSeparator), &values);
    }
    parseGroup(name, shape, rest, &values);
    return values;
}

Value parsedText(const std::string& name, const Shape& shape, const std::string& text)
{
    return valueOf(shape, fieldsOfText(name, shape, text));
}

} // namespace vxcam

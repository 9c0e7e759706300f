#include <vxcamkit/shape.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

namespace vxcam {

namespace {

constexpr double kUnboundedFrom = 2147483647.0;
constexpr double kMostExact = 1e15;

std::string capital(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(character == '_' ? '-' : std::toupper(character));
    });
    return text;
}

std::string syntaxText(const Field& field)
{
    switch (field.kind) {
    case FieldKind::Time:
        return "TIME";
    case FieldKind::Switch:
        return "on|off";
    case FieldKind::Choice:
        return choiceText(field);
    case FieldKind::Bytes:
        return "HEX";
    default:
        return capital(field.name);
    }
}

// What stands in the help about one field; empty where nothing has to.
std::string boundText(const Field& field)
{
    if (!field.isBounded() || field.kind == FieldKind::Switch || field.kind == FieldKind::Choice) {
        return "";
    }
    return field.isBlock() ? "at most " + numberText(field.most) + " bytes" : rangeText(field);
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

bool Field::isBounded() const
{
    return most < kUnboundedFrom;
}

std::string numberText(double number)
{
    char text[64];
    auto end = std::to_chars(text, text + sizeof text, static_cast<float>(number)).ptr;
    if (number == std::trunc(number) && std::abs(number) < kMostExact) {
        end = std::to_chars(text, text + sizeof text, static_cast<int64_t>(number)).ptr;
    }
    return {text, end};
}

std::string rangeText(const Field& field)
{
    if (field.most >= kAnyReal) return "";
    const std::string unit = *field.unit != '\0' ? std::string(" ") + field.unit : "";
    return numberText(field.least) + " to " + numberText(field.most) + unit;
}

std::string choiceText(const Field& field)
{
    std::string words;
    for (const Choice& choice : field.choices) {
        words += (words.empty() ? "" : "|") + std::string(choice.word);
    }
    return words;
}

std::string syntaxText(const Shape& shape)
{
    std::string text, closing;
    for (const Field& field : shape.fields) {
        const bool isOptional = field.absent || field.repeats > 1;
        if (isOptional) text += "[";
        if (&field != &shape.fields.front()) text += kFieldSeparator;
        text += syntaxText(field);
        if (field.repeats > 1) text += ",...";
        if (isOptional) closing += "]";
    }
    text += closing;
    if (shape.groups > 1) text += "[/...]";
    return shape.mayBeNone ? std::string(kNone) + "|" + text : text;
}

std::string rangeText(const Shape& shape)
{
    std::string text;
    for (const Field& field : shape.fields) {
        const std::string one = boundText(field);
        if (!one.empty() && !endsWith(text, one)) text += (text.empty() ? "" : ", ") + one;
    }
    return text;
}

} // namespace vxcam

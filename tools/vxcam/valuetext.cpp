// Showing values.
#include "values.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr double gnMillisecondsInASecond = 1000.0;
constexpr double gnUnboundedFrom = 2147483647.0; // what a number holds anyway

std::string FieldText(const tsField& field, double number)
{
    char text[32];
    switch (field.kind) {
    case teField::eHex:
        std::snprintf(text, sizeof text, "0x%08llx", static_cast<unsigned long long>(number));
        return text;
    case teField::eTime:
        if (std::fmod(number, gnMillisecondsInASecond) != 0) return NumberText(number) + "ms";
        return NumberText(number / gnMillisecondsInASecond) + "s";
    case teField::eSwitch:
        return number != 0 ? "on" : "off";
    case teField::eChoice:
        for (const tsChoice& choice : field.choices) {
            if (number == static_cast<double>(choice.number)) return choice.word;
        }
        break;
    default:
        break;
    }
    return NumberText(number) + field.unit;
}

nlohmann::ordered_json FieldJson(const tsField& field, double number)
{
    switch (field.kind) {
    case teField::eSwitch:
        return number != 0;
    case teField::eChoice:
        return FieldText(field, number);
    case teField::eReal:
        return std::strtod(NumberText(number).c_str(), nullptr); // 0.1, not 0.1000000015
    default:
        return static_cast<int64_t>(number);
    }
}

nlohmann::ordered_json BlockJson(const tsField& field, const tsSetting& setting)
{
    if (field.kind == teField::eText) {
        return std::string(setting.bytes.begin(), setting.bytes.end());
    }
    return HexText(setting.bytes, setting.bytes.size());
}

bool IsNothing(const tsShape& shape, const tsSetting& setting)
{
    return setting.numbers.empty() && setting.bytes.empty() && !IsBlock(shape.fields[0]);
}

// The fields of one group, from numbers[*next] on, each handed to `tell`.
template <class Tell>
void EachField(const tsShape& shape, const tsSetting& setting, size_t* next, const Tell& tell)
{
    for (const tsField& field : shape.fields) {
        int times = field.repeats;
        while (times-- > 0 && (IsBlock(field) || *next < setting.numbers.size())) {
            tell(field, IsBlock(field) ? 0 : setting.numbers[(*next)++]);
        }
    }
}

std::string Text(const tsShape& shape, const tsSetting& setting, size_t mostBytes)
{
    if (IsNothing(shape, setting)) return "none";
    std::string text;
    size_t next = 0;
    do {
        if (!text.empty()) text += gcGroup;
        bool isFirst = true;
        EachField(shape, setting, &next, [&](const tsField& field, double number) {
            if (!isFirst) text += gcField;
            isFirst = false;
            if (field.kind == teField::eText) {
                text += std::string(setting.bytes.begin(), setting.bytes.end());
            } else if (field.kind == teField::eBytes) {
                text += HexText(setting.bytes, mostBytes);
            } else {
                text += FieldText(field, number);
            }
        });
    } while (next < setting.numbers.size());
    return text;
}

nlohmann::ordered_json GroupJson(const tsShape& shape, const tsSetting& setting, size_t* next)
{
    nlohmann::ordered_json group;
    EachField(shape, setting, next, [&](const tsField& field, double number) {
        const nlohmann::ordered_json value =
            IsBlock(field) ? BlockJson(field, setting) : FieldJson(field, number);
        if (shape.fields.size() == 1) {
            group = value;
        } else if (field.repeats > 1) {
            group[field.name].push_back(value);
        } else {
            group[field.name] = value;
        }
    });
    return group;
}

std::string Capital(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return c == '_' ? '-' : std::toupper(c); });
    return text;
}

std::string FieldSyntax(const tsField& field)
{
    switch (field.kind) {
    case teField::eTime:
        return "TIME";
    case teField::eSwitch:
        return "on|off";
    case teField::eChoice:
        return ChoiceWords(field);
    case teField::eBytes:
        return "HEX|@FILE";
    default:
        return Capital(field.name);
    }
}

} // namespace

std::string HexText(const std::vector<uint8_t>& bytes, size_t most)
{
    std::string text = "0x";
    for (size_t i = 0; i < std::min(most, bytes.size()); ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

bool IsBlock(const tsField& field)
{
    return field.kind == teField::eText || field.kind == teField::eBytes;
}

std::string NumberText(double number)
{
    char text[64];
    auto [end, error] = std::to_chars(text, text + sizeof text, static_cast<float>(number));
    if (number == std::trunc(number) && std::abs(number) < 1e15) {
        end = std::to_chars(text, text + sizeof text, static_cast<int64_t>(number)).ptr;
    }
    return std::string(text, end);
}

std::string FieldRange(const tsField& field)
{
    if (field.most >= gnAnyReal) return "";
    const std::string unit = *field.unit != '\0' ? std::string(" ") + field.unit : "";
    return NumberText(field.least) + " to " + NumberText(field.most) + unit;
}

std::string ChoiceWords(const tsField& field)
{
    std::string words;
    for (const tsChoice& choice : field.choices) {
        words += (words.empty() ? "" : "|") + std::string(choice.word);
    }
    return words;
}

std::string SettingText(const tsShape& shape, const tsSetting& setting)
{
    return Text(shape, setting, setting.bytes.size());
}

std::string ShownText(const tsShape& shape, const tsSetting& setting)
{
    std::string text = Text(shape, setting, gnShownBytes);
    if (shape.fields[0].kind == teField::eBytes && setting.bytes.size() > gnShownBytes) {
        text += "... (" + std::to_string(setting.bytes.size()) + " bytes)";
    }
    return text;
}

nlohmann::ordered_json SettingJson(const tsShape& shape, const tsSetting& setting)
{
    nlohmann::ordered_json groups = nlohmann::ordered_json::array();
    size_t next = 0;
    if (shape.groups == 1) {
        return IsNothing(shape, setting) ? nullptr : GroupJson(shape, setting, &next);
    }
    while (next < setting.numbers.size()) {
        groups.push_back(GroupJson(shape, setting, &next));
    }
    return groups;
}

std::string SyntaxText(const tsShape& shape)
{
    std::string text, closing;
    for (const tsField& field : shape.fields) {
        const bool isOptional = field.absent || field.repeats > 1;
        if (isOptional) text += "[";
        if (&field != &shape.fields.front()) text += gcField;
        text += FieldSyntax(field);
        if (field.repeats > 1) text += ",...";
        if (isOptional) closing += "]";
    }
    text += closing;
    return shape.groups > 1 ? "none|" + text + "[/...]" : text;
}

std::string RangeText(const tsShape& shape)
{
    std::string text;
    for (const tsField& field : shape.fields) {
        if (field.most >= gnUnboundedFrom) continue;
        std::string one;
        switch (field.kind) {
        case teField::eSwitch:
        case teField::eChoice:
            continue;
        case teField::eText:
        case teField::eBytes:
            one = "at most " + NumberText(field.most) + " bytes";
            break;
        default:
            one = FieldRange(field);
            break;
        }
        const bool isRepeated = text.size() >= one.size() &&
                                text.compare(text.size() - one.size(), one.size(), one) == 0;
        if (!isRepeated) text += (text.empty() ? "" : ", ") + one;
    }
    return text;
}

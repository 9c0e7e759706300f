// Reading values.
#include "values.h"

#include "arguments.h"
#include "failure.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

constexpr char gcFile = '@';

[[noreturn]] void Refuse(const std::string& name, const std::string& text, const std::string& why)
{
    throw tcFailure(eExitUsage, name + " '" + text + "': " + why);
}

// The whole of the text, in decimal digits or behind 0x in hexadecimal ones.
bool ParseWhole(std::string text, double* number)
{
    const bool isNegative = !text.empty() && text[0] == '-';
    if (isNegative) text.erase(0, 1);
    const bool isHex = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint64_t value = 0;
    auto [rest, error] = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (error != std::errc() || rest != end) return false;
    *number = isNegative ? -static_cast<double>(value) : static_cast<double>(value);
    return true;
}

// The number that the camera will hold, which is a float.
bool ParseReal(const std::string& text, double* number)
{
    const char* const end = text.data() + text.size();
    float value = 0;
    auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || !std::isfinite(value)) return false;
    *number = value;
    return true;
}

double ParseSwitch(const std::string& name, const std::string& text)
{
    if (text == "on" || text == "1") return 1;
    if (text == "off" || text == "0") return 0;
    Refuse(name, text, "write on or off");
}

double ParseChoice(const std::string& name, const tsField& field, const std::string& text)
{
    for (const tsChoice& choice : field.choices) {
        if (text == choice.word) return static_cast<double>(choice.number);
    }
    Refuse(name, text, "write one of " + ChoiceWords(field));
}

double ParseNumber(const std::string& name, const tsField& field, const std::string& text)
{
    const std::string unit = field.unit;
    std::string digits = text;
    if (!unit.empty() && digits.size() > unit.size() &&
        digits.compare(digits.size() - unit.size(), unit.size(), unit) == 0) {
        digits.resize(digits.size() - unit.size());
    }
    double number = 0;
    const bool isReal = field.kind == teField::eReal;
    if (!(isReal ? ParseReal(digits, &number) : ParseWhole(digits, &number))) {
        const std::string range = FieldRange(field);
        Refuse(name, text,
               std::string("write a ") + (isReal ? "number" : "whole number") +
                   (range.empty() ? "" : ", " + range));
    }
    if (number < field.least || number > field.most) {
        Refuse(name, text, "out of range, it is " + FieldRange(field));
    }
    return number;
}

double ParseTime(const std::string& name, const std::string& text)
{
    try {
        return static_cast<double>(ParseDuration(text).count());
    } catch (const tcFailure& failure) {
        throw tcFailure(failure.Code(), name + ": " + failure.what());
    }
}

double ParseField(const std::string& name, const tsField& field, const std::string& text)
{
    switch (field.kind) {
    case teField::eTime:
        return ParseTime(name, text);
    case teField::eSwitch:
        return ParseSwitch(name, text);
    case teField::eChoice:
        return ParseChoice(name, field, text);
    default:
        return ParseNumber(name, field, text);
    }
}

std::vector<uint8_t> ReadWhole(const std::string& name, const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw tcFailure(eExitFile, name + ": " + path + ": " + std::strerror(errno));
    try {
        return {std::istreambuf_iterator<char>(file), {}};
    } catch (const std::ios_base::failure& failure) { // a folder can be opened, but not read
        throw tcFailure(eExitFile, name + ": " + path + ": " + failure.what());
    }
}

std::vector<uint8_t> ParseHexBytes(const std::string& name, const std::string& text)
{
    std::string digits = text.rfind("0x", 0) == 0 ? text.substr(2) : text;
    if (digits.empty() || digits.size() % 2 != 0) {
        Refuse(name, text, "write @FILE, or two hexadecimal digits for each byte");
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        uint8_t byte = 0;
        const char* const end = digits.data() + i + 2;
        auto [rest, error] = std::from_chars(digits.data() + i, end, byte, 16);
        if (error != std::errc() || rest != end) {
            Refuse(name, text, "write @FILE, or two hexadecimal digits for each byte");
        }
        bytes.push_back(byte);
    }
    return bytes;
}

std::vector<uint8_t> ParseBlock(const std::string& name, const tsField& field,
                                const std::string& text)
{
    const bool isText = field.kind == teField::eText;
    std::vector<uint8_t> bytes(text.begin(), text.end());
    if (!isText) {
        bytes = !text.empty() && text[0] == gcFile ? ReadWhole(name, text.substr(1))
                                                   : ParseHexBytes(name, text);
    }
    const auto count = static_cast<double>(bytes.size());
    if (count < field.least || count > field.most) {
        const std::string shown =
            text.size() > 2 * gnShownBytes ? text.substr(0, 2 * gnShownBytes) + "..." : text;
        Refuse(name, shown,
               NumberText(count) + " bytes, it takes " + NumberText(field.least) + " to " +
                   NumberText(field.most));
    }
    return bytes;
}

// Cuts the first part off a text, at the delimiter.
std::string Cut(std::string* text, char delimiter)
{
    const size_t at = text->find(delimiter);
    std::string first = text->substr(0, at);
    text->erase(0, at == std::string::npos ? at : at + 1);
    return first;
}

void ParseGroup(const std::string& name, const tsShape& shape, const std::string& whole,
                tsSetting* setting)
{
    std::string rest = whole;
    bool isMore = true; // a part is left, maybe an empty one
    const auto next = [&] {
        isMore = rest.find(gcField) != std::string::npos;
        return Cut(&rest, gcField);
    };
    for (const tsField& field : shape.fields) {
        if (isMore && IsBlock(field)) {
            setting->bytes = ParseBlock(name, field, rest);
            return;
        }
        if (field.repeats > 1) {
            for (int i = 0; isMore && i < field.repeats; ++i) {
                setting->numbers.push_back(ParseField(name, field, next()));
            }
        } else if (isMore) {
            setting->numbers.push_back(ParseField(name, field, next()));
        } else if (field.absent) {
            setting->numbers.push_back(*field.absent);
        } else {
            Refuse(name, whole, "write " + SyntaxText(shape));
        }
    }
    if (isMore) Refuse(name, whole, "too many parts, write " + SyntaxText(shape));
}

} // namespace

tsSetting ParseSetting(const std::string& name, const tsShape& shape, const std::string& text)
{
    tsSetting setting;
    if (shape.groups == 1) {
        ParseGroup(name, shape, text, &setting);
        return setting;
    }
    if (text == "none") return setting;
    std::string rest = text;
    if (std::count(text.begin(), text.end(), gcGroup) >= shape.groups) {
        Refuse(name, text, "at most " + std::to_string(shape.groups) + " groups");
    }
    while (rest.find(gcGroup) != std::string::npos) {
        ParseGroup(name, shape, Cut(&rest, gcGroup), &setting);
    }
    ParseGroup(name, shape, rest, &setting);
    return setting;
}

#include "arguments.h"

#include "failure.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/error.h>
#include <vxcamkit/frame_file.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

[[noreturn]] void Refuse(const std::string& what, const std::string& text, const std::string& why)
{
    throw tcFailure(eExitUsage, what + " '" + text + "': " + why);
}

// What a call returns; what it throws is a usage error.
template <class Call>
auto AsFailure(const Call& call)
{
    try {
        return call();
    } catch (const vxcam::Error& error) {
        throw tcFailure(eExitUsage, error.what());
    }
}

// The whole of the text as decimal digits.
bool WholeNumber(const std::string& text, int* number)
{
    const char* const end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data(), end, *number);
    return error == std::errc() && rest == end && text[0] != '-';
}

std::vector<std::string> Split(const std::string& text, char delimiter)
{
    std::vector<std::string> parts{""};
    for (char c : text) {
        if (c == delimiter) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

struct tsUnit {
    const char* name;
    double milliseconds;
    double end; // from which on the next one is taken, in milliseconds
    bool isWhole;
};

const tsUnit& UnitOf(std::chrono::milliseconds duration)
{
    constexpr double second = 1000, minute = 60 * second, hour = 60 * minute;
    static constexpr std::array<tsUnit, 4> units = {{{"ms", 1, second, true},
                                                     {"s", second, 2 * minute, false},
                                                     {"min", minute, 2 * hour, false},
                                                     {"h", hour, 0, false}}};
    size_t at = 0;
    while (units[at].end != 0 && static_cast<double>(duration.count()) >= units[at].end) {
        ++at;
    }
    return units[at];
}

} // namespace

std::chrono::milliseconds ParseDuration(const std::string& text)
{
    return AsFailure([&] { return vxcam::parsedDuration(text); });
}

vxcam::Area ParseArea(const std::string& text)
{
    std::array<int, 4> numbers{};
    const std::vector<std::string> parts = Split(text, ',');
    if (parts.size() != numbers.size()) Refuse("area", text, "write x,y,width,height");
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (!WholeNumber(parts[i], &numbers[i]) || numbers[i] > 65535) {
            Refuse("area", text, "its four numbers are 0 to 65535");
        }
    }
    if (numbers[2] == 0 || numbers[3] == 0) Refuse("area", text, "it is empty");
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

std::vector<vxcam::Area> ParseAreas(const std::string& text)
{
    std::vector<vxcam::Area> areas;
    for (const std::string& part : Split(text, '/')) {
        areas.push_back(ParseArea(part));
    }
    return areas;
}

std::pair<int, int> ParseBins(const std::string& text)
{
    const std::vector<std::string> parts = Split(text, ',');
    if (parts.size() > 2) Refuse("binning", text, "write columns,rows, or one number for both");
    std::array<int, 2> numbers{};
    for (size_t i = 0; i < parts.size(); ++i) {
        if (!WholeNumber(parts[i], &numbers[i]) || numbers[i] < 1 || numbers[i] > 65535) {
            Refuse("binning", text, "columns and rows in a bin are 1 to 65535");
        }
    }
    return {numbers[0], numbers[parts.size() - 1]};
}

uint64_t ParseBytes(const std::string& text)
{
    constexpr double most = 1e18;
    const std::string units = "kMGT";
    double bytes = 0;
    const char* const end = text.data() + text.size();
    auto [rest, error] = std::from_chars(text.data(), end, bytes, std::chars_format::fixed);
    std::string unit(rest, end);
    if (!unit.empty() && unit.back() == 'B') unit.pop_back();
    const size_t power =
        unit.empty() ? std::string::npos : units.find(unit[0] == 'K' ? 'k' : unit[0]);
    const bool isBinary = unit.size() == 2 && unit[1] == 'i';
    const bool isUnit =
        unit.empty() || (power != std::string::npos && (unit.size() == 1 || isBinary));
    for (size_t i = 0; !unit.empty() && isUnit && i <= power; ++i) {
        bytes *= isBinary ? 1024 : 1000;
    }
    if (error != std::errc() || !isUnit || !(bytes >= 1) || bytes > most) {
        Refuse("size", text, "write bytes, like 500MB, 2GB or 1GiB");
    }
    return static_cast<uint64_t>(bytes);
}

vxcam::Size ParseSize(const std::string& text)
{
    const std::vector<std::string> parts = Split(text, 'x');
    int columns = 0, rows = 0;
    if (parts.size() != 2 || !WholeNumber(parts[0], &columns) || !WholeNumber(parts[1], &rows)) {
        Refuse("size", text, "write columns and rows, like 2048x2048");
    }
    if (columns < 1 || rows < 1 || columns > 65534 || rows > 65534) {
        Refuse("size", text, "columns and rows are 1 to 65534");
    }
    return {columns, rows};
}

vxcam::Target ParseTarget(const std::string& text)
{
    return AsFailure([&] { return vxcam::Target::parse(text); });
}

tsEndpoint ParseEndpoint(const std::string& what, const std::string& text, uint16_t defaultPort)
{
    const std::vector<std::string> parts = Split(text, ':');
    int port = defaultPort;
    if (parts.size() > 2 || parts[0].empty() || parts.back().empty()) {
        Refuse(what, text, "write HOST:PORT");
    }
    if (parts.size() == 2 && (!WholeNumber(parts[1], &port) || port < 1 || port > 65535)) {
        Refuse(what, text, "the port is 1 to 65535");
    }
    return {parts[0], static_cast<uint16_t>(port)};
}

std::string DurationText(std::chrono::milliseconds duration)
{
    const tsUnit& unit = UnitOf(duration);
    char text[64];
    std::snprintf(text, sizeof text, unit.isWhole ? "%.0f %s" : "%.4g %s",
                  static_cast<double>(duration.count()) / unit.milliseconds, unit.name);
    return text;
}

std::string PassedText(std::chrono::milliseconds passed, std::chrono::milliseconds duration)
{
    const tsUnit& unit = UnitOf(duration);
    const double step = unit.isWhole ? 100 : unit.milliseconds / 10; // steadier to look at
    const double steps = std::floor(static_cast<double>(passed.count()) / step);
    char text[64];
    std::snprintf(text, sizeof text, unit.isWhole ? "%.0f of " : "%.1f of ",
                  steps * step / unit.milliseconds);
    return text + DurationText(duration);
}

std::string BytesText(uint64_t bytes)
{
    constexpr std::array<const char*, 5> units = {"B", "kB", "MB", "GB", "TB"};
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    while (number >= 1000 && unit + 1 < units.size()) {
        number /= 1000;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, number < 10 && unit > 0 ? "%.1f %s" : "%.0f %s", number,
                  units[unit]);
    return text;
}

std::string CountText(uint64_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::vector<std::string> FileNames(const std::string& pattern, int count)
{
    std::vector<std::string> names;
    for (int number = 1; number <= count; ++number) {
        names.push_back(AsFailure([&] { return vxcam::fileName(pattern, number, count); }));
    }
    return names;
}

#include <vxcamkit/duration.h>

#include <vxcamkit/error.h>

#include <charconv>
#include <cmath>
#include <limits>

namespace vxcam {

namespace {

struct Unit {
    const char* name;
    double milliseconds;
};
constexpr double kSecond = 1000.0;
constexpr Unit kUnits[] = {{"", kSecond},  {"us", 0.001},    {"ms", 1.0},
                           {"s", kSecond}, {"min", 60000.0}, {"h", 3600000.0}};
constexpr double kLongest = std::numeric_limits<uint32_t>::max(); // what a camera can be told

[[noreturn]] void refuse(const std::string& text, const std::string& why)
{
    throw Error(ErrorKind::Usage, "time '" + text + "': " + why);
}

} // namespace

std::chrono::milliseconds checkedDuration(double milliseconds, const std::string& text)
{
    const double rounded = std::round(milliseconds);
    if (milliseconds < 0) refuse(text, "it cannot be negative");
    if (!(rounded <= kLongest)) refuse(text, "at most 4294967295 ms");
    if (milliseconds > 0 && milliseconds < 1) {
        refuse(text, "below 1 ms, the finest step is 1 ms");
    }
    return std::chrono::milliseconds(static_cast<int64_t>(rounded));
}

std::chrono::milliseconds parsedDuration(const std::string& text)
{
    const char* const end = text.data() + text.size();
    double number = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (error != std::errc() || !std::isfinite(number)) {
        refuse(text, "write a number with ms, s, min or h, like 500ms");
    }
    const std::string unit(rest, end);
    for (const Unit& known : kUnits) {
        if (unit == known.name) return checkedDuration(number * known.milliseconds, text);
    }
    refuse(text, "the unit is none of ms, s, min and h");
}

std::string exactText(std::chrono::milliseconds duration)
{
    const auto count = duration.count();
    if (count % static_cast<int>(kSecond) != 0) return std::to_string(count) + "ms";
    return std::to_string(count / static_cast<int>(kSecond)) + "s";
}

} // namespace vxcam

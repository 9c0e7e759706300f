#include "itemreplies.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace {

template <typename tNumber>
bool Read(const std::string& text, tNumber* number)
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, *number);
    return error == std::errc() && rest == end;
}

bool IsWhole(const std::string& text)
{
    int32_t number = 0;
    return Read(text, &number);
}

// "[DESCRIPTION]" begins behind the value, which has no bracket.
std::optional<tsItem> ReadItem(std::string_view line)
{
    const size_t bracket = line.find(" [", line.find(" = "));
    if (bracket == std::string_view::npos || line.back() != ']') return {};
    const std::string_view front = line.substr(0, bracket);
    const size_t sign = front.rfind(" = ");
    return tsItem{std::string(front.substr(0, sign)), std::string(front.substr(sign + 3)),
                  std::string(line.substr(bracket + 2, line.size() - bracket - 3))};
}

} // namespace

std::optional<std::vector<tsItem>> ParseItems(const std::string& reply)
{
    std::vector<tsItem> items;
    std::string_view text(reply);
    while (!text.empty()) {
        const size_t end = text.find(std::string_view("\n\0", 2));
        if (end == std::string_view::npos) return {};
        const auto item = ReadItem(text.substr(0, end));
        if (!item) return {};
        items.push_back(*item);
        text.remove_prefix(end + 2);
    }
    return items;
}

bool IsItemNumber(const std::string& text)
{
    double number = 0;
    return Read(text, &number) && std::fabs(number) <= std::numeric_limits<float>::max();
}

bool FitsItem(const std::string& now, const std::string& value)
{
    return !IsWhole(now) || IsWhole(value);
}

bool SameItemValue(const std::string& text, const std::string& value)
{
    if (IsWhole(text) && IsWhole(value)) return std::atoi(text.c_str()) == std::atoi(value.c_str());
    char wanted[80];
    const double number = static_cast<float>(std::strtod(value.c_str(), nullptr));
    std::snprintf(wanted, sizeof wanted, "%f", number);
    return text == wanted;
}

nlohmann::ordered_json ItemNumber(const std::string& value)
{
    int32_t whole = 0;
    double number = 0;
    if (Read(value, &whole)) return whole;
    if (Read(value, &number) && std::isfinite(number)) return number;
    return value;
}

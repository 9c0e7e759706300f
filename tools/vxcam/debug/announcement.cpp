#include "announcement.h"

#include <charconv>
#include <string_view>

std::optional<tsAnnouncement> ParseAnnouncement(const std::string& bytes)
{
    constexpr std::string_view word = "DBGD ";
    std::string_view text(bytes);
    text = text.substr(0, text.find('\0'));
    if (text.substr(0, word.size()) != word) return {};
    text.remove_prefix(word.size());
    const size_t blank = text.rfind(' ');
    if (blank == std::string_view::npos || blank == 0) return {};
    const char* const end = text.data() + text.size();
    int port = 0;
    const auto [rest, error] = std::from_chars(text.data() + blank + 1, end, port);
    if (error != std::errc() || rest != end) return {};
    if (port == 0 || port < INT16_MIN || port > UINT16_MAX) return {};
    return tsAnnouncement{std::string(text.substr(0, blank)), static_cast<uint16_t>(port)};
}

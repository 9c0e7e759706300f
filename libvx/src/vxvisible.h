// Words of strangers, made fit for logs and terminals. Private to the tree; there is nothing to
// link.
#ifndef VX_VISIBLE_H
#define VX_VISIBLE_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace vx {

// The first character of a text, which is not empty, as UTF-8; a byte that begins none stands
// alone.
inline std::string_view FirstCharacter(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0xC2 || first > 0xF4) return text.substr(0, 1);
    const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    const auto isPart = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; };
    const std::string_view parts = text.substr(1, length - 1);
    const bool isWhole =
        parts.size() == length - 1 && std::all_of(parts.begin(), parts.end(), isPart);
    return text.substr(0, isWhole ? length : 1);
}

inline bool IsControl(std::string_view character)
{
    const auto last = static_cast<unsigned char>(character.back());
    if (character.size() == 1) return last < 0x20 || (last >= 0x7F && last < 0xA0);
    return character.size() == 2 && character[0] == '\xC2' && last < 0xA0;
}

// Appends a text to something with std::string's append(), its control characters made visible:
// "\n", "\r", "\t", all others like "\x1b". Everything else stays as it is.
template <class tText>
void AppendVisible(tText& to, std::string_view text)
{
    while (!text.empty()) {
        const std::string_view character = FirstCharacter(text);
        text.remove_prefix(character.size());
        if (!IsControl(character)) {
            to.append(character.data(), character.size());
            continue;
        }
        for (const char byte : character) {
            const size_t named = std::string_view("\n\r\t").find(byte);
            const auto value = static_cast<unsigned char>(byte);
            constexpr char digits[] = "0123456789abcdef";
            const char shown[] = {'\\', 'x', digits[value / 16], digits[value % 16]};
            if (named != std::string_view::npos)
                to.append(&"\\n\\r\\t"[2 * named], 2);
            else
                to.append(shown, sizeof shown);
        }
    }
}

inline std::string Visible(std::string_view text)
{
    std::string shown;
    shown.reserve(text.size());
    AppendVisible(shown, text);
    return shown;
}

} // namespace vx

#endif

#include "values/escapes.h"

#include <algorithm>
#include <charconv>

namespace vxcam {

namespace {

constexpr uint32_t kDelete = 0x7F, kLastUpperControl = 0x9F; // control characters lie between, too

struct Escape {
    char letter;
    char character;
};
constexpr Escape kEscapes[] = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}, {'\\', '\\'}};

std::string hexDigits(uint8_t byte)
{
    constexpr const char* digits = "0123456789abcdef";
    return {digits[byte >> 4U], digits[byte & 0xFU]};
}

std::optional<uint8_t> byteOf(const std::string& text, size_t at)
{
    if (at + 2 > text.size()) return std::nullopt;
    uint8_t byte = 0;
    const char* const end = text.data() + at + 2;
    const auto [rest, error] = std::from_chars(text.data() + at, end, byte, 16);
    if (error != std::errc() || rest != end) return std::nullopt;
    return byte;
}

std::string escapedByte(char byte)
{
    for (const Escape& escape : kEscapes) {
        if (byte == escape.character) return {'\\', escape.letter};
    }
    return "\\x" + hexDigits(static_cast<uint8_t>(byte));
}

bool isPlain(const Character& character)
{
    if (character.bytes == 0 || character.code < ' ' || character.code == '\\') return false;
    return character.code < kDelete || character.code > kLastUpperControl;
}

} // namespace

Character characterAt(const std::string& text, size_t at)
{
    const auto first = static_cast<uint8_t>(text[at]);
    if (first < 0x80) return {1, first};
    struct Form {
        uint8_t mask, lead;
        size_t bytes;
        uint32_t least;
    };
    for (const Form& form :
         {Form{0xE0, 0xC0, 2, 0x80}, Form{0xF0, 0xE0, 3, 0x800}, Form{0xF8, 0xF0, 4, 0x10000}}) {
        if ((first & form.mask) != form.lead) continue;
        if (at + form.bytes > text.size()) return {};
        uint32_t code = first & static_cast<uint8_t>(~form.mask);
        for (size_t i = 1; i < form.bytes; ++i) {
            const auto byte = static_cast<uint8_t>(text[at + i]);
            if ((byte & 0xC0) != 0x80) return {};
            code = code << 6U | (byte & 0x3FU);
        }
        const bool isHalf = code >= 0xD800 && code <= 0xDFFF;
        return code < form.least || code > 0x10FFFF || isHalf ? Character{}
                                                              : Character{form.bytes, code};
    }
    return {};
}

std::string escaped(const std::string& bytes)
{
    std::string text;
    for (size_t at = 0; at < bytes.size();) {
        const Character character = characterAt(bytes, at);
        const size_t length = std::max<size_t>(character.bytes, 1);
        if (isPlain(character)) {
            text += bytes.substr(at, length);
        } else {
            for (size_t i = at; i < at + length; ++i) {
                text += escapedByte(bytes[i]);
            }
        }
        at += length;
    }
    return text;
}

std::optional<std::string> unescaped(const std::string& text)
{
    std::string bytes;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
            continue;
        }
        if (++at == text.size()) return std::nullopt;
        const auto* const escape =
            std::find_if(std::begin(kEscapes), std::end(kEscapes),
                         [&](const Escape& one) { return one.letter == text[at]; });
        if (escape != std::end(kEscapes)) {
            bytes += escape->character;
            continue;
        }
        const std::optional<uint8_t> byte =
            text[at] == 'x' ? byteOf(text, at + 1) : std::optional<uint8_t>();
        if (!byte) return std::nullopt;
        bytes += static_cast<char>(*byte);
        at += 2;
    }
    return bytes;
}

bool isUtf8(const std::string& bytes)
{
    for (size_t at = 0; at < bytes.size();) {
        const size_t length = characterAt(bytes, at).bytes;
        if (length == 0) return false;
        at += length;
    }
    return true;
}

std::string hexText(const std::vector<uint8_t>& bytes, size_t most)
{
    std::string text = "0x";
    for (size_t i = 0; i < std::min(most, bytes.size()); ++i) {
        text += hexDigits(bytes[i]);
    }
    return text;
}

std::optional<std::vector<uint8_t>> bytesOfHex(const std::string& text)
{
    const size_t begin = text.rfind("0x", 0) == 0 ? 2 : 0;
    if (text.size() == begin || (text.size() - begin) % 2 != 0) return std::nullopt;
    std::vector<uint8_t> bytes;
    bytes.reserve((text.size() - begin) / 2);
    for (size_t at = begin; at < text.size(); at += 2) {
        const std::optional<uint8_t> byte = byteOf(text, at);
        if (!byte) return std::nullopt;
        bytes.push_back(*byte);
    }
    return bytes;
}

} // namespace vxcam

#include "files/ascii.h"

#include "values/escapes.h"

#include <algorithm>
#include <iterator>

namespace vxcam {

namespace {

constexpr uint32_t kFirstLetter = 0xC0; // of the table below

constexpr const char* kLetters[] = {
    "A", "A", "A", "A", "Ae", "A", "AE", "C", "E", "E", "E", "E", "I",  "I", "I",  "I",
    "D", "N", "O", "O", "O",  "O", "Oe", "x", "O", "U", "U", "U", "Ue", "Y", "Th", "ss",
    "a", "a", "a", "a", "ae", "a", "ae", "c", "e", "e", "e", "e", "i",  "i", "i",  "i",
    "d", "n", "o", "o", "o",  "o", "oe", "/", "o", "u", "u", "u", "ue", "y", "th", "y"};

struct Sign {
    uint32_t code;
    const char* text;
};
constexpr Sign kSigns[] = {
    {0xA0, " "},    {0xB0, "deg"},   {0xB1, "+/-"}, {0xB2, "2"},   {0xB3, "3"},   {0xB5, "u"},
    {0x0141, "L"},  {0x0142, "l"},   {0x0160, "S"}, {0x0161, "s"}, {0x017D, "Z"}, {0x017E, "z"},
    {0x03BC, "u"},  {0x2013, "-"},   {0x2014, "-"}, {0x2018, "'"}, {0x2019, "'"}, {0x201C, "\""},
    {0x201D, "\""}, {0x2026, "..."}, {0x2212, "-"}, {0x212B, "A"}};

std::string asciiOf(uint32_t code)
{
    if (code >= kFirstLetter && code < kFirstLetter + std::size(kLetters)) {
        return kLetters[code - kFirstLetter];
    }
    const auto* const sign = std::find_if(std::begin(kSigns), std::end(kSigns),
                                          [code](const Sign& one) { return one.code == code; });
    return sign != std::end(kSigns) ? sign->text : "?";
}

} // namespace

std::string asciiOf(const std::string& text)
{
    std::string ascii;
    for (size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const size_t length = std::max<size_t>(character.bytes, 1);
        const std::string bytes = text.substr(at, length);
        const bool isSame = bytes == "\\" || escaped(bytes) == bytes;
        if (!isSame) {
            ascii += escaped(bytes);
        } else {
            ascii += length == 1 ? bytes : asciiOf(character.code);
        }
        at += length;
    }
    return ascii;
}

} // namespace vxcam

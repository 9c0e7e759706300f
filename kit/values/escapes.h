// Texts whose bytes come from a camera, in a form that can be shown and read again.
#ifndef VXCAMKIT_ESCAPES_H
#define VXCAMKIT_ESCAPES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

// Control characters (also those beyond ASCII) and what is no UTF-8 become \n, \r, \t or \xNN, a
// backslash two. The rest stays as it is.
std::string escaped(const std::string& bytes);

// The other way round; nothing where a backslash is followed by anything else.
std::optional<std::string> unescaped(const std::string& text);

// A character in UTF-8.
struct Character {
    size_t bytes = 0; // 0: what stands there is none
    uint32_t code = 0;
};

// The one that begins at `at`, in its shortest form and not half of a pair.
Character characterAt(const std::string& text, size_t at);

bool isUtf8(const std::string& bytes);

// "0x01ff", of at most so many bytes.
std::string hexText(const std::vector<uint8_t>& bytes, size_t most);

// The bytes of pairs of hexadecimal digits, with or without 0x; nothing for what is no such thing.
std::optional<std::vector<uint8_t>> bytesOfHex(const std::string& text);

} // namespace vxcam

#endif

#include "http/http_message.h"

#include <algorithm>

namespace vxcam {

namespace {

char lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

int digitOf(char letter)
{
    if (letter >= '0' && letter <= '9') return letter - '0';
    const char small = lower(letter);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

std::string decoded(const std::string& text, char plus)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+') {
            result += plus;
        } else if (text[i] != '%') {
            result += text[i];
        } else {
            const int high = i + 2 < text.size() ? digitOf(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? digitOf(text[i + 2]) : -1;
            if (high < 0 || low < 0) {
                throw Refusal(400, "usage",
                              "a percent sign needs two hexadecimal digits behind it");
            }
            result += static_cast<char>(high * 16 + low);
            i += 2;
        }
    }
    return result;
}

} // namespace

bool equalsIgnoringCase(const std::string& one, const std::string& other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

const std::string* HttpRequest::header(const std::string& name) const
{
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringCase(key, name)) return &value;
    }
    return nullptr;
}

std::string decodedPath(const std::string& path)
{
    const auto refuse = [](const char* what) {
        throw Refusal(400, "usage", std::string("paths here have no ") + what);
    };
    std::string result;
    for (size_t begin = 0; begin <= path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        const std::string part = decoded(path.substr(begin, end - begin), '+');
        const bool isBare = std::none_of(part.begin(), part.end(), [](unsigned char letter) {
            return letter < ' ' || letter == '/' || letter == 0x7F;
        });
        if (!isBare) refuse("control characters, and no slash within a name");
        if (part == "." || part == "..") refuse("dots alone between slashes");
        if (part.empty() && begin > 0 && end < path.size()) refuse("//");
        result += part;
        if (end < path.size()) result += '/';
        begin = end + 1;
    }
    return result;
}

std::vector<std::string> pathParts(const std::string& path)
{
    std::vector<std::string> parts;
    size_t begin = path.empty() || path[0] != '/' ? 0 : 1;
    for (;;) {
        const size_t end = path.find('/', begin);
        parts.push_back(path.substr(begin, end - begin));
        if (end == std::string::npos) return parts;
        begin = end + 1;
    }
}

std::vector<std::pair<std::string, std::string>> parsedForm(const std::string& text)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('&', begin), text.size());
        const std::string part = text.substr(begin, end - begin);
        const size_t equals = std::min(part.find('='), part.size());
        if (!part.empty()) {
            pairs.emplace_back(decoded(part.substr(0, equals), ' '),
                               equals < part.size() ? decoded(part.substr(equals + 1), ' ') : "");
        }
        begin = end + 1;
    }
    return pairs;
}

} // namespace vxcam

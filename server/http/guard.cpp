#include "http/guard.h"

#include "http/special_file.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace vxcam {

namespace {

constexpr size_t kLeastToken = 16;
constexpr const char* kCookieName = "vxcamd";

// The bytes that a text in base 64 stands for; what is none ends it.
std::string ofBase64(const std::string& text)
{
    static const std::string digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    uint32_t held = 0;
    int bits = 0;
    for (const char letter : text) {
        const size_t digit = digits.find(letter);
        if (digit == std::string::npos) break;
        held = held << 6 | static_cast<uint32_t>(digit);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(held >> bits & 0xFF);
        }
    }
    return bytes;
}

std::string cookieOf(const std::string& cookies)
{
    const std::string start = std::string(kCookieName) + "=";
    for (size_t begin = 0; begin < cookies.size();) {
        const size_t end = std::min(cookies.find(';', begin), cookies.size());
        std::string cookie = cookies.substr(begin, end - begin);
        cookie.erase(0, std::min(cookie.find_first_not_of(' '), cookie.size()));
        if (cookie.rfind(start, 0) == 0) return cookie.substr(start.size());
        begin = end + 1;
    }
    return "";
}

// "name:port" without the port.
std::string nameOf(const std::string& host)
{
    const size_t colon = host.rfind(':');
    const bool isPort = colon != std::string::npos && host.find(']', colon) == std::string::npos;
    return isPort ? host.substr(0, colon) : host;
}

// Nobody's name server can answer for these.
bool isNoName(const std::string& host)
{
    const std::string name = nameOf(host);
    return name.empty() || equalsIgnoringCase(name, "localhost") || name[0] == '[' ||
           name.find_first_not_of("0123456789.") == std::string::npos;
}

// What the service manager hands over to this service alone: an access list, of which the mask
// shows where else the rights of a group do, lets it read the file.
bool isCredential(const std::string& path)
{
    const char* const folder = std::getenv("CREDENTIALS_DIRECTORY");
    if (folder == nullptr || *folder == '\0') return false;
    std::error_code ignored;
    const auto place = std::filesystem::canonical(path, ignored).parent_path();
    return !place.empty() && place == std::filesystem::canonical(folder, ignored);
}

} // namespace

std::string Guard::load(const std::string& path)
{
    if (isSpecialFile(path)) {
        throw Error(ErrorKind::File, path + ": cannot be read: it is no regular file", EINVAL);
    }
    errno = 0;
    std::ifstream file(path);
    std::string token;
    std::getline(file, token);
    if (!file && token.empty() && errno != 0) {
        throw Error(ErrorKind::File, path + ": cannot be read: " + std::strerror(errno), errno);
    }
    struct stat facts {};
    const mode_t others = S_IRWXO | (isCredential(path) ? mode_t{0} : S_IRWXG);
    if (::stat(path.c_str(), &facts) == 0 && (facts.st_mode & others) != 0) {
        throw Error(ErrorKind::Usage,
                    path + ": others than its owner can read it; chmod 600 helps");
    }
    const bool isVisible = std::all_of(token.begin(), token.end(), [](char letter) {
        return letter > ' ' && letter <= '~' && letter != ';' && letter != ',';
    });
    if (token.size() < kLeastToken || !isVisible) {
        throw Error(ErrorKind::Usage,
                    path + ": a token is a line of 16 visible characters or more");
    }
    return token;
}

// Takes as long for every token of that length.
bool Guard::isRight(const std::string& token) const
{
    if (token.size() != token_.size()) return false;
    unsigned difference = 0;
    for (size_t i = 0; i < token.size(); ++i) {
        difference |= static_cast<unsigned char>(token[i]) ^ static_cast<unsigned char>(token_[i]);
    }
    return difference == 0;
}

bool Guard::knows(const HttpRequest& request) const
{
    if (const std::string* const given = request.header("Authorization")) {
        const size_t space = std::min(given->find(' '), given->size());
        const std::string scheme = given->substr(0, space);
        const std::string rest = space < given->size() ? given->substr(space + 1) : "";
        if (equalsIgnoringCase(scheme, "Bearer")) return isRight(rest);
        if (!equalsIgnoringCase(scheme, "Basic")) return false;
        const std::string pair = ofBase64(rest);
        const size_t colon = pair.find(':');
        return colon != std::string::npos && isRight(pair.substr(colon + 1));
    }
    const std::string* const cookies = request.header("Cookie");
    return cookies != nullptr && isRight(cookieOf(*cookies));
}

void Guard::requireSite(const HttpRequest& request, bool changes) const
{
    if (token_.empty()) requireHost(request);
    requireOrigin(request, changes);
}

void Guard::requireOpen(const HttpRequest& request, bool changes) const
{
    if (token_.empty() || !knows(request)) requireHost(request);
    requireOrigin(request, changes);
}

void Guard::requireHost(const HttpRequest& request)
{
    const std::string* const host = request.header("Host");
    if (host == nullptr || isNoName(*host)) return;
    throw Refusal(403, "wrong-host",
                  "without a token this server answers to an IP address or localhost alone");
}

void Guard::requireOrigin(const HttpRequest& request, bool changes)
{
    const std::string* const host = request.header("Host");
    const std::string* const origin = request.header("Origin");
    if (!changes || origin == nullptr) return;
    const size_t slashes = origin->find("//");
    const std::string site = slashes == std::string::npos ? *origin : origin->substr(slashes + 2);
    if (host == nullptr || !equalsIgnoringCase(site, *host)) {
        throw Refusal(403, "wrong-origin", "a page of another site must not do this");
    }
}

void Guard::require(const HttpRequest& request, bool changes) const
{
    requireSite(request, changes);
    if (token_.empty() || knows(request)) return;
    throw Refusal(401, "token", "this needs the server's token: Authorization: Bearer TOKEN",
                  {{"WWW-Authenticate", "Bearer realm=\"vxcamd\""}});
}

std::string Guard::cookie(bool isSecret) const
{
    return std::string(kCookieName) + "=" + token_ + "; Path=/; HttpOnly; SameSite=Strict" +
           (isSecret ? "; Secure" : "");
}

} // namespace vxcam

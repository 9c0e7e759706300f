#include "StringTokenizer.h"

#include <cstdlib>
#include <cstring>
#include <utility>

StringTokenizer::StringTokenizer(std::string text, std::string delimiters)
{
    if (text.empty() || delimiters.empty()) return;
    msRemaining = std::move(text);
    msDelimiters = std::move(delimiters);
    const size_t start = msRemaining.find_first_not_of(msDelimiters);
    if (start != std::string::npos) msRemaining.erase(0, start);
}

int StringTokenizer::countTokens() const
{
    int count = 0;
    size_t start = msRemaining.find_first_not_of(msDelimiters);
    while (start != std::string::npos) {
        ++count;
        const size_t end = msRemaining.find_first_of(msDelimiters, start);
        start = msRemaining.find_first_not_of(msDelimiters, end);
    }
    return count;
}

bool StringTokenizer::hasMoreTokens() const
{
    return msRemaining.find_first_not_of(msDelimiters) != std::string::npos;
}

std::string StringTokenizer::nextToken(const char* delimiters)
{
    const std::string set = delimiters && *delimiters ? delimiters : msDelimiters;
    const size_t start = msRemaining.find_first_not_of(set);
    if (start == std::string::npos) return std::string();

    const size_t end = msRemaining.find_first_of(set, start);
    std::string token = msRemaining.substr(start, end - start);
    if (end == std::string::npos) {
        msRemaining.clear();
        return token;
    }
    const size_t next = msRemaining.find_first_not_of(set, end);
    msRemaining.erase(0, next == std::string::npos ? end : next);
    return token;
}

int StringTokenizer::nextIntToken()
{
    return static_cast<int>(std::strtol(nextToken().c_str(), nullptr, 10));
}

double StringTokenizer::nextFloatToken()
{
    return std::strtod(nextToken().c_str(), nullptr);
}

std::string StringTokenizer::remainingString() const
{
    return msRemaining;
}

std::vector<std::string> StringTokenizer::BuildTokenList(std::string text, std::string delimiters)
{
    StringTokenizer tokenizer(std::move(text), std::move(delimiters));
    std::vector<std::string> tokens;
    while (tokenizer.hasMoreTokens())
        tokens.push_back(tokenizer.nextToken());
    return tokens;
}

extern "C" char* basename(char* path) noexcept
{
    if (!path) return nullptr;
    char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

extern "C" char* dirname(char* path) noexcept
{
    if (!path) return nullptr;
    char* base = basename(path);
    // Kept: a bare name and a name below the root become empty, not "." or "/".
    if (base > path + 1)
        base[-1] = '\0';
    else
        path[0] = '\0';
    return path;
}

#ifdef vxcamiface_EXPORTS // a library of its own, not part of a program
// The plain names, hidden in the version of names that have none: dlsym() on the library takes such
// a name, but the linker of a program does not, nor do references to the C library's version.
__asm__(".symver vx_basename, basename@\n"
        ".symver vx_dirname, dirname@\n"
        // The version that the library is given for this (vxcamiface.map) is no name itself.
        ".globl vx_no_version\n"
        ".hidden vx_no_version\n"
        ".set vx_no_version, 0");
#endif

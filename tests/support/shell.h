// Reading files and the output of programs.
#ifndef SHELL_H
#define SHELL_H

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

inline std::string Trim(const std::string& text)
{
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") + 1 - first);
}

// What a shell command prints; `status`, if given, gets its exit status.
inline std::string Output(const std::string& command, int* status = nullptr)
{
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return text;
    char block[4096];
    for (size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;) {
        text.append(block, count);
    }
    int result = pclose(pipe);
    if (status) *status = result;
    return text;
}

#endif

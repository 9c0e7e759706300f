#include "tcConfigFile.h"

#include "StringTokenizer.h"
#include "vxdescriptors.h"
#include "vxguarded.h"
#include "vxtimezone.h"

#include <cstdio>
#include <ctime>
#include <iostream>

namespace {

constexpr char sNoObject[] = "Oops... no config object for config file ";

// The present local time, with a line end of its own.
std::string Now()
{
    const std::time_t now = std::time(nullptr);
    char text[64] = "\n";
    vx::TakeTimeZone();
    ctime_r(&now, text);
    return text;
}

std::string Creator()
{
    return tcConfigFile::GetEnv("USERNAME", "Unknown");
}

// Replaces the content of a file, silently not when it cannot be opened.
void Store(const char* name, const std::string& text)
{
    std::FILE* file = vx::OpenFile(name, "we");
    if (file == nullptr) return;
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}

tcConfigFile* FindOrList(const char* name)
{
    tcConfigFile* file = tcConfigFile::FindInstance(name);
    if (file == nullptr) {
        std::cout << sNoObject << (name == nullptr ? "" : name) << std::endl;
        ListConfigs(false);
    }
    return file;
}

} // namespace

void tcConfigFile::Dump(std::ostream& stream) const
{
    const tGuard guard(mLock);
    stream << "#-- START OF CONFIGURATION DATA --" << std::endl;
    stream << "# Generated : " << Now() << std::flush;
    stream << "# Created by: " << Creator() << std::endl;
    stream << "#-- Config File info from " << msFileName << std::endl;
    stream << "#-- Included Config Files " << std::endl;
    for (const std::string& file : mvFilesUsed) {
        stream << "#--    " << file << std::endl;
    }
    if (mbErrors) {
        stream << "#-- Errors found loading config " << std::endl;
        stream << "#-- " << mssErrors.str() << std::endl;
    }
    for (const auto& [key, value] : mmItems) {
        stream << key << " = " << value << std::endl;
    }
    stream << "#-- END OF CONFIGURATION DATA --" << std::endl;
}

void tcConfigFile::Dump(const char* name) const
{
    if (name == nullptr) {
        Dump(std::cout);
        return;
    }
    std::ostringstream text;
    Dump(text);
    Store(name, text.str());
}

std::ostream& operator<<(std::ostream& stream, const tcConfigFile& file)
{
    file.Dump(stream);
    return stream;
}

void tcConfigFile::WriteFile(std::string name) const
{
    const tGuard guard(mLock);
    std::map<std::string, tItems> sections;
    for (const auto& [key, value] : mmItems) {
        StringTokenizer tokens(key, "/");
        // Kept: a top-level name that holds one "/" becomes section and name, any other is cut.
        const std::string section = tokens.countTokens() == 2 ? tokens.nextToken() : "";
        sections[section][tokens.nextToken()] = value;
    }
    std::ostringstream text;
    text << "#-- START OF CONFIGURATION DATA --\n";
    text << "# File      : " << name << "\n";
    text << "# Created by: " << Creator() << "\n";
    text << "# Date      : " << Now();
    for (const auto& [section, items] : sections) {
        if (!section.empty()) text << "[" << section << "]\n";
        for (const auto& [item, value] : items) {
            text << (value.empty() ? "# ERR: Undefined Key " : "") << item << "=" << value << "\n";
        }
        text << "\n";
    }
    Store(name.c_str(), text.str());
}

std::string tcConfigFile::FilesUsed() const
{
    const tGuard guard(mLock);
    std::string text;
    for (const std::string& file : mvFilesUsed) {
        text += file + "\n";
    }
    return text;
}

void tcConfigFile::List(bool dump)
{
    const tGuard guard(RegistryLock()); // no object goes meanwhile
    std::cout << "####      Listing tcConfigFile Objects.... " << std::endl;
    int number = 0;
    for (const auto& [name, file] : GetMap()) {
        std::cout << std::to_string(++number) << " " << name << " @ " << static_cast<void*>(file)
                  << std::endl;
        if (!dump) continue;
        if (file == nullptr) {
            std::cout << sNoObject << name << std::endl;
        } else {
            file->Dump("dump.dat");
        }
    }
}

extern "C" void DumpConfig(const char* name)
{
    vx::Guarded(0, [name] {
        const tcConfigFile* file = FindOrList(name);
        if (file != nullptr) file->Dump(nullptr);
        return 0;
    });
}

extern "C" int ValidConfig(const char* name)
{
    return vx::Guarded(0, [name] {
        const tcConfigFile* file = FindOrList(name);
        return file != nullptr && file->Validate() ? 1 : 0;
    });
}

extern "C" void ListConfigs(bool dump)
{
    vx::Guarded(0, [dump] {
        tcConfigFile::List(dump);
        return 0;
    });
}

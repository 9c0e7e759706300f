#include "tcConfigFile.h"

#include "StringTokenizer.h"
#include "vxdescriptors.h"
#include "vxguarded.h"
#include "vxhoststreams.h"
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
        vx::Print(std::cout, std::string(sNoObject) + (name == nullptr ? "" : name) + "\n");
        ListConfigs(false);
    }
    return file;
}

} // namespace

std::string tcConfigFile::DumpText() const
{
    const tGuard guard(mLock);
    std::ostringstream stream;
    stream << "#-- START OF CONFIGURATION DATA --\n";
    stream << "# Generated : " << Now();
    stream << "# Created by: " << Creator() << "\n";
    stream << "#-- Config File info from " << msFileName << "\n";
    stream << "#-- Included Config Files \n";
    for (const std::string& file : mvFilesUsed) {
        stream << "#--    " << file << "\n";
    }
    if (mbErrors) {
        stream << "#-- Errors found loading config \n";
        stream << "#-- " << mssErrors.str() << "\n";
    }
    for (const auto& [key, value] : mmItems) {
        stream << key << " = " << value << "\n";
    }
    stream << "#-- END OF CONFIGURATION DATA --\n";
    return stream.str();
}

// A stream may take its time: nobody who uses the configuration waits meanwhile.
void tcConfigFile::Dump(std::ostream& stream) const
{
    std::istringstream text(DumpText());
    for (std::string line; std::getline(text, line);)
        stream << line << std::endl;
}

void tcConfigFile::Dump(const char* name) const
{
    if (name == nullptr) {
        vx::Print(std::cout, DumpText());
        return;
    }
    Store(name, DumpText());
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
    vx::Print(std::cout, "####      Listing tcConfigFile Objects.... \n");
    int number = 0;
    for (const auto& [name, file] : GetMap()) {
        std::ostringstream line;
        line << std::to_string(++number) << " " << name << " @ " << static_cast<void*>(file)
             << "\n";
        vx::Print(std::cout, line.str());
        if (!dump) continue;
        if (file == nullptr) {
            vx::Print(std::cout, sNoObject + name + "\n");
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

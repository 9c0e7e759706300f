#include "tcConfigFile.h"

#include "StringTokenizer.h"
#include "vxdescriptors.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int nMaxIncludeDepth = 64;
constexpr size_t nMaxFiles = 4096;
constexpr int nMaxNestedReferences = 1000;
constexpr size_t nMaxGrowth = 1024 * 1024;
constexpr size_t nMaxMadeText = 16 * 1024 * 1024;
constexpr std::streamoff nMaxErrorText = 16 * 1024 * 1024;

struct tsFileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using tFile = std::unique_ptr<std::FILE, tsFileCloser>;

// Opens a file for reading; a folder, which has nothing to read, fails with EISDIR.
tFile Open(const std::string& name)
{
    tFile file(vx::OpenFile(name.c_str(), "re"));
    struct stat status;
    if (!file || fstat(fileno(file.get()), &status) != 0 || !S_ISDIR(status.st_mode)) return file;
    file.reset();
    errno = EISDIR;
    return file;
}

// The next line without its line end; false at the end of the file.
bool ReadLine(std::FILE* file, std::string& line)
{
    line.clear();
    for (int c = getc_unlocked(file); c != EOF; c = getc_unlocked(file)) {
        if (c == '\n') return true;
        line.push_back(static_cast<char>(c));
    }
    return !line.empty();
}

std::string Strip(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The environment's value of a name, which may hold any characters, or null.
const char* FromEnvironment(const std::string& name)
{
    return name.find('\0') == std::string::npos ? std::getenv(name.c_str()) : nullptr;
}

int CountReferences(const std::string& line)
{
    int count = 0;
    for (size_t at = line.find("$("); at != std::string::npos; at = line.find("$(", at + 1)) {
        ++count;
    }
    return count;
}

std::string SectionName(const std::string& line)
{
    return Strip(line.substr(1, line.find(']') - 1));
}

} // namespace

tcConfigFile::tConfigMap& tcConfigFile::mmConfigMap = tcConfigFile::GetMap();

tcConfigFile::tConfigMap& tcConfigFile::GetMap()
{
    static tConfigMap& map = *new tConfigMap;
    return map;
}

tcConfigFile::tcConfigFile(const char* name) : msFileName(name == nullptr ? "" : name)
{
    GetMap()[msFileName] = this;
    mbEnvOverride = std::getenv("CONFIGFILE_ENV_OVERIDE") != nullptr;
    mvFilesUsed.emplace_back();
    LoadConfigFile(msFileName.c_str(), true);
    mbErrors = !mssErrors.str().empty();
}

// Kept: a second object of the same name loses its registration when the first one goes.
tcConfigFile::~tcConfigFile()
{
    mmItems.clear();
    GetMap()[msFileName] = nullptr;
}

tcConfigFile* tcConfigFile::FindInstance(const char* name)
{
    return name == nullptr ? nullptr : GetMap()[name];
}

int tcConfigFile::LoadConfigFile(const char* name, bool clear)
{
    if (mnLoadDepth == 0) {
        mnMadeText = 0;
        mbTextRefused = false;
    }
    ++mnLoadDepth;
    LoadFile(name == nullptr ? "" : name, clear);
    --mnLoadDepth;
    return 1;
}

void tcConfigFile::LoadFile(const std::string& fileName, bool clear)
{
    // Kept: the file is read again all the same.
    if (std::find(mvFilesUsed.begin(), mvFilesUsed.end(), fileName) != mvFilesUsed.end()) {
        mssErrors << fileName << " Already included! skipping to prevent recursion\n"
                  << "Last file read was " << CurrentFile() << "\n";
    }
    const tFile file = Open(fileName);
    if (!file) {
        mssErrors << "Error opening " << fileName << " : " << std::strerror(errno) << "\n";
        return;
    }
    mvFilesUsed.push_back(fileName);
    if (clear) mmItems.clear();
    std::string section;
    std::string line;
    for (int number = 1; ReadLine(file.get(), line); ++number) {
        LoadLine(fileName, line, number, section);
    }
}

void tcConfigFile::LoadLine(const std::string& file, std::string line, int lineNumber,
                            std::string& section)
{
    LimitErrors();
    if (line.empty() || line[0] == ';' || line[0] == '#') return;
    if (line[0] == '[') {
        section = SectionName(line);
        return;
    }
    line = ExpandVars(line);
    if (line[0] == '!') {
        ProcessDirective(line, lineNumber);
    } else {
        LoadItem(file, line, lineNumber, section);
    }
}

void tcConfigFile::LoadItem(const std::string& file, const std::string& line, int lineNumber,
                            const std::string& section)
{
    const size_t equals = line.find('=');
    const std::string name = Strip(line.substr(0, equals));
    // Kept: a line without "=" is its own value.
    std::string value = equals == std::string::npos ? name : Strip(line.substr(equals + 1));
    const char* const replacement = mbEnvOverride ? FromEnvironment(name) : nullptr;
    if (replacement != nullptr && MayMake(std::strlen(replacement))) value = replacement;
    if (name.empty() || value.empty()) {
        mssErrors << file << ": Malformed line in file @ line " << std::to_string(lineNumber)
                  << "\n";
        return;
    }
    if (MayMake(section.size())) mmItems[section + "/" + name] = value;
}

void tcConfigFile::ProcessDirective(std::string line, int lineNumber)
{
    StringTokenizer tokens(line, " ");
    const int count = tokens.countTokens();
    std::cout << "line: " << std::to_string(lineNumber) << ":" << line << "  -- contains "
              << std::to_string(count) << " tokens." << std::endl;
    const std::string directive = tokens.nextToken();
    if (directive == "!include") {
        if (count == 2) Include(tokens.nextToken(), lineNumber);
    } else if (directive == "!env") {
        const std::string name = tokens.nextToken("=");
        const std::string value = tokens.remainingString();
        if (name.empty()) return;
        if (value.empty()) {
            unsetenv(name.c_str());
        } else {
            PutEnv(name.c_str(), value.c_str());
        }
    } else {
        mssErrors << CurrentFile() << ":" << std::to_string(lineNumber) << ":Invalid directive >> "
                  << line << "\n";
    }
}

void tcConfigFile::Include(const std::string& name, int lineNumber)
{
    const char* found = FindFile(name.c_str());
    if (found == nullptr) {
        mssErrors << CurrentFile() << ":" << std::to_string(lineNumber)
                  << ":Cannot find include file " << name << "\n";
        return;
    }
    if (!MayInclude(found)) return;
    ++mnIncludeDepth;
    LoadConfigFile(found, false);
    --mnIncludeDepth;
}

bool tcConfigFile::MayInclude(const std::string& name)
{
    if (mnIncludeDepth < nMaxIncludeDepth && mvFilesUsed.size() <= nMaxFiles) return true;
    if (!mbIncludesRefused) {
        mssErrors << name << " Not included! includes are nested too deeply or too many\n";
    }
    mbIncludesRefused = true;
    return false;
}

std::string tcConfigFile::ExpandVars(std::string line)
{
    const int allowed = CountReferences(line) + nMaxNestedReferences;
    const size_t room = line.size() + nMaxGrowth;
    size_t reported = 0;
    size_t start = line.find("$(");
    for (int handled = 0; start != std::string::npos; ++handled) {
        const size_t end = line.find(')', start);
        if (end == std::string::npos) {
            mssErrors << CurrentFile() << ": Malformed variable found: " << line << "\n";
            return line;
        }
        const std::string name = line.substr(start + 2, end - start - 2);
        const std::string value = VariableValue(name);
        if (handled >= allowed || line.size() + value.size() > room || reported > nMaxGrowth) {
            mssErrors << CurrentFile() << ": Variable expansion too long: " << name << "\n";
            return line;
        }
        if (!MayMake(value.empty() ? name.size() : value.size())) return line;
        if (value.empty()) {
            mssErrors << CurrentFile() << ": Undefined variable found: " << line << "\n";
            reported += line.size();
        } else {
            line.replace(start, end + 1 - start, value);
        }
        // Kept: a value that begins with a reference is not expanded in turn.
        start = line.find("$(", start + 1);
    }
    return line;
}

// Counts text that a load makes out of little: values of variables, names of unknown ones, and the
// section in every key. False for what does not fit any more, which is reported once.
bool tcConfigFile::MayMake(size_t size)
{
    if (mnLoadDepth == 0) return true;
    if (size <= nMaxMadeText - mnMadeText) {
        mnMadeText += size;
        return true;
    }
    if (!mbTextRefused) {
        mssErrors << CurrentFile() << ": Too much text! some variables and items are left out\n";
    }
    mbTextRefused = true;
    return false;
}

// Every error line may quote a line of the file that variables have made long. Behind the limit the
// stream takes nothing more.
void tcConfigFile::LimitErrors()
{
    if (mssErrors.tellp() <= nMaxErrorText) return;
    mssErrors << "Too many errors! the rest is left out\n";
    mssErrors.setstate(std::ios::failbit);
}

std::string tcConfigFile::VariableValue(const std::string& name)
{
    const char* const value = FromEnvironment(name);
    return value != nullptr && *value != '\0' ? value : GetItemInSection(msVarSection, name, "");
}

const char* tcConfigFile::FindFile(const char* name)
{
    if (name == nullptr) return nullptr;
    if (access(name, R_OK) == 0) {
        msFoundFile = name;
        return msFoundFile.c_str();
    }
    std::string directory = msFileName;
    char separator = '/';
    const size_t last = directory.find_last_of("/\\");
    if (last != std::string::npos && last > 0) {
        separator = directory[last];
        directory.erase(last);
    }
    if (directory.empty()) directory = ".";
    const std::string candidate = directory + separator + name;
    if (access(candidate.c_str(), R_OK) != 0) return nullptr;
    msFoundFile = candidate;
    return msFoundFile.c_str();
}

int tcConfigFile::TrimLine(char* line)
{
    if (line == nullptr) return 0;
    size_t length = std::strcspn(line, "#");
    while (length > 0 && std::isgraph(static_cast<unsigned char>(line[length - 1])) == 0) {
        --length;
    }
    line[length] = '\0';
    return length > 1 ? static_cast<int>(length - 1) : 0;
}

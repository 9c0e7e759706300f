#include "tcConfigFile.h"

#include "StringTokenizer.h"
#include "loadstate.h"
#include "vxdescriptors.h"
#include "vxenvironment.h"
#include "vxhoststreams.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct tsFileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

using tFile = std::unique_ptr<std::FILE, tsFileCloser>;

// Opens a file for reading; a folder, which has nothing to read, fails with EISDIR.
tFile Open(const std::string& name, struct stat& status)
{
    tFile file(vx::OpenFile(name.c_str(), "re"));
    if (!file || fstat(fileno(file.get()), &status) != 0 || !S_ISDIR(status.st_mode)) return file;
    file.reset();
    errno = EISDIR;
    return file;
}

// The lines of a file, without their ends.
class tcLines
{
public:
    explicit tcLines(std::FILE* file) : mpFile(file) {}
    ~tcLines() { std::free(mpText); }
    tcLines(const tcLines&) = delete;
    tcLines& operator=(const tcLines&) = delete;

    // False at the end of the file.
    bool Next(std::string& line)
    {
        errno = 0;
        ssize_t length = getline(&mpText, &mnRoom, mpFile);
        if (length < 0 && errno == ENOMEM) throw std::bad_alloc();
        if (length < 0) return false;
        if (mpText[length - 1] == '\n') --length;
        line.assign(mpText, static_cast<size_t>(length));
        return true;
    }

private:
    std::FILE* mpFile;
    char* mpText = nullptr;
    size_t mnRoom = 0;
};

std::string_view Strip(std::string_view text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string SectionName(std::string_view line)
{
    return std::string(Strip(line.substr(1, line.find(']') - 1)));
}

} // namespace

tcConfigFile::tConfigMap& tcConfigFile::mmConfigMap = tcConfigFile::GetMap();

tcConfigFile::tConfigMap& tcConfigFile::GetMap()
{
    static tConfigMap& map = *new tConfigMap;
    return map;
}

std::recursive_mutex& tcConfigFile::RegistryLock()
{
    static std::recursive_mutex& lock = *new std::recursive_mutex;
    return lock;
}

tcConfigFile::tcConfigFile(const char* name) : msFileName(name == nullptr ? "" : name)
{
    mbEnvOverride = vx::Variable("CONFIGFILE_ENV_OVERIDE") != nullptr;
    mvFilesUsed.emplace_back();
    Register(this);
    try {
        LoadConfigFile(msFileName.c_str(), true);
        mbErrors = !mssErrors.str().empty();
    } catch (...) {
        Register(nullptr);
        throw;
    }
}

// The load that runs, as long as it does.
class tcConfigFile::tcRunning
{
public:
    tcRunning(vx::tcLoadState*& place, vx::tcLoadState& load) : mpPlace(place) { place = &load; }
    ~tcRunning() { mpPlace = nullptr; }
    tcRunning(const tcRunning&) = delete;
    tcRunning& operator=(const tcRunning&) = delete;

private:
    vx::tcLoadState*& mpPlace;
};

// Kept: a second object of the same name loses its registration when the first one goes.
tcConfigFile::~tcConfigFile()
{
    Register(nullptr);
}

void tcConfigFile::Register(tcConfigFile* file) const
{
    const tGuard guard(RegistryLock());
    GetMap()[msFileName] = file;
}

tcConfigFile* tcConfigFile::FindInstance(const char* name)
{
    if (name == nullptr) return nullptr;
    const tGuard guard(RegistryLock());
    return GetMap()[name];
}

int tcConfigFile::LoadConfigFile(const char* name, bool clear)
{
    const tGuard guard(mLock);
    if (name == nullptr) name = "";
    if (mpLoad != nullptr) {
        const vx::tcLoadState::tcNested nested(*mpLoad);
        LoadFile(name, clear);
        return 1;
    }
    try {
        vx::tcLoadState load(mvFilesUsed);
        const tcRunning running(mpLoad, load);
        LoadFile(name, clear);
    } catch (const std::bad_alloc&) {
        mssErrors.clear(); // which may have been the one
        mssErrors << CurrentFile() << ": Out of memory! the rest is left out\n";
    }
    return 1;
}

void tcConfigFile::LoadFile(const std::string& fileName, bool clear)
{
    // Kept: the file is read again all the same.
    if (mpLoad->Knows(fileName)) {
        mssErrors << fileName << " Already included! skipping to prevent recursion\n"
                  << "Last file read was " << CurrentFile() << "\n";
    }
    struct stat status {};
    const tFile file = Open(fileName, status);
    if (!file) {
        mssErrors << "Error opening " << fileName << " : " << std::strerror(errno) << "\n";
        return;
    }
    mvFilesUsed.push_back(fileName);
    mpLoad->AddName(fileName);
    if (clear) mmItems.clear();
    const bool isNew = mpLoad->AddFile(status);
    std::string section;
    std::string line;
    tcLines lines(file.get());
    for (int number = 1; lines.Next(line); ++number) {
        if (isNew) mpLoad->CountRead(line.size() + 1);
        LoadLine(fileName, line, number, section);
    }
}

void tcConfigFile::LoadLine(const std::string& file, std::string& line, int lineNumber,
                            std::string& section)
{
    LimitErrors();
    if (line.empty() || line[0] == ';' || line[0] == '#') return;
    if (line[0] == '[') {
        section = SectionName(line);
        return;
    }
    if (line.find("$(") != std::string::npos) line = ExpandVars(line);
    if (line[0] == '!') {
        ProcessDirective(line, lineNumber);
    } else {
        LoadItem(file, line, lineNumber, section);
    }
}

void tcConfigFile::LoadItem(const std::string& file, const std::string& line, int lineNumber,
                            const std::string& section)
{
    const std::string_view text = line;
    const size_t equals = text.find('=');
    const std::string name(Strip(text.substr(0, equals)));
    // Kept: a line without "=" is its own value.
    std::string value(equals == std::string::npos ? name : Strip(text.substr(equals + 1)));
    const char* const replacement = mbEnvOverride ? vx::FromEnvironment(name) : nullptr;
    if (replacement != nullptr && MayMake(std::strlen(replacement))) value = replacement;
    if (name.empty() || value.empty()) {
        mssErrors << file << ": Malformed line in file @ line " << std::to_string(lineNumber)
                  << "\n";
        return;
    }
    if (mpLoad->TakeKeyText(section.size()))
        mmItems[section + "/" + name] = std::move(value);
    else
        ReportTooMuchText();
}

void tcConfigFile::ProcessDirective(std::string line, int lineNumber)
{
    const tGuard guard(mLock);
    StringTokenizer tokens(line, " ");
    const int count = tokens.countTokens();
    vx::Print(std::cout, "line: " + std::to_string(lineNumber) + ":" + line + "  -- contains " +
                             std::to_string(count) + " tokens.\n");
    const std::string directive = tokens.nextToken();
    if (directive == "!include") {
        if (count == 2) Include(tokens.nextToken(), lineNumber);
    } else if (directive == "!env") {
        const std::string name = tokens.nextToken("=");
        const std::string value = tokens.remainingString();
        if (name.empty()) return;
        if (value.empty()) {
            const std::lock_guard<std::mutex> environment(vx::EnvironmentLock());
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
    if (MayInclude(found)) LoadConfigFile(found, false);
}

bool tcConfigFile::MayInclude(const std::string& name)
{
    if (mpLoad == nullptr || mpLoad->MayInclude(name)) return true;
    if (mpLoad->IsFirst(vx::tcLoadState::eInclude))
        mssErrors << name << " Not included! includes are nested too deeply or too many\n";
    return false;
}

const char* tcConfigFile::FindFile(const char* name)
{
    if (name == nullptr) return nullptr;
    const tGuard guard(mLock);
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

// Configuration files: loading, looking up, writing, and loading what was written.
//
// Input: options, the lengths of the first two files, three files. They are in memory and have the
// names 100 to 102, with or without /proc/self/fd in front; 103 takes what is written.
#include "tcConfigFile.h"
#include "tcFuzzInput.h"

#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

namespace {

constexpr size_t nLongest = 1200;
constexpr int nFirstFile = 100;
constexpr int nFiles = 4;
constexpr int nWritten = nFirstFile + nFiles - 1;

std::string PathOf(int file)
{
    return "/proc/self/fd/" + std::to_string(file);
}

void MakeFiles()
{
    for (int file = nFirstFile; file < nFirstFile + nFiles; ++file) {
        const int descriptor = memfd_create("configuration", MFD_CLOEXEC);
        Require(dup2(descriptor, file) == file, "a file in memory");
        close(descriptor);
    }
}

void Fill(int file, const std::vector<uint8_t>& bytes)
{
    Require(ftruncate(file, 0) == 0, "a file in memory can be emptied");
    const auto written = pwrite(file, bytes.data(), bytes.size(), 0);
    Require(written == static_cast<ssize_t>(bytes.size()), "a file in memory can be filled");
}

class tcLoaded : public tcConfigFile
{
public:
    using tcConfigFile::tcConfigFile;

    const tItems& Items() const { return mmItems; }
    bool IsOverridden() const { return mbEnvOverride; }
};

void LookUp(tcConfigFile& file, const std::string& section, const std::string& name)
{
    file.GetItemInSection(section, name, 1);
    file.GetItemInSection(section, name, 1.0f);
    file.GetItemInSection(section, name, 1.0);
    file.GetItemInSection(section, name, true);
    file.GetItemInSection(section, name, "text");
}

// Whether the rewrite must give the items back: it must when each stands on one line, under a key
// with a section and a name, and nothing in it means something to the loader.
bool IsPlain(const tcLoaded& file)
{
    if (file.IsOverridden()) return false;
    for (const auto& [key, value] : file.Items()) {
        const size_t slash = key.find('/');
        const std::string section = key.substr(0, slash), name = key.substr(slash + 1);
        if (name.empty() || name.find('/') != std::string::npos) return false;
        if (value.empty() || (name + value).find("$(") != std::string::npos) return false;
        if (std::strchr("#;[!", name[0]) != nullptr || section.find(']') != std::string::npos)
            return false;
        if (name.find('=') != std::string::npos) return false;
        for (const std::string& text : {section, name, value}) {
            const size_t found = text.find_first_of(std::string("\n\0", 2));
            if (found != std::string::npos) return false;
            if (!text.empty() && std::strchr(" \t", text[0]) != nullptr) return false;
            if (!text.empty() && std::strchr(" \t", text.back()) != nullptr) return false;
        }
    }
    return true;
}

void CheckRewrite(const tcLoaded& file)
{
    const tcConfigFile::tItems items = file.Items();
    const bool isPlain = IsPlain(file);
    file.WriteFile(PathOf(nWritten));
    const tcLoaded again(PathOf(nWritten).c_str());
    if (isPlain) Require(again.Items() == items, "what was written loads as it was");
}

void CheckTrim(tcFuzzInput& input)
{
    const std::string text = input.Text(64);
    std::vector<char> line(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1);
    const int last = tcConfigFile::TrimLine(line.data());
    const size_t length = std::strlen(line.data());
    Require(last == (length > 1 ? static_cast<int>(length) - 1 : 0), "the last character kept");
}

void Load(tcFuzzInput& input)
{
    const unsigned options = input.U8();
    if ((options & 1) != 0) setenv("CONFIGFILE_ENV_OVERIDE", "1", 1);
    setenv("PATHX", "/somewhere", 1);
    const size_t first = input.U16(), second = input.U16();
    Fill(nFirstFile, input.Bytes(first));
    Fill(nFirstFile + 1, input.Bytes(second));
    Fill(nFirstFile + 2, input.Rest());

    tcLoaded file(PathOf(nFirstFile).c_str());
    CheckRewrite(file);
    std::ostringstream text;
    text << file << file.FilesUsed() << file.Validate();
    for (auto item = file.Iterator(); !file.Key(item).empty(); file.NextItem(item))
        text << file.Value(item);
    LookUp(file, "", "name");
    LookUp(file, "sec", "a");
    file.LoadConfigFile(PathOf(nFirstFile + 1).c_str(), (options & 2) != 0);
    file.Dump(PathOf(nWritten).c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    static const bool sbMade = (MakeFiles(), true);
    (void)sbMade;
    static std::ostringstream& nowhere = *new std::ostringstream;
    std::streambuf* before = std::cout.rdbuf(nowhere.rdbuf());
    clearenv();
    // A few lines are enough for the 16 MiB that a load may make of them.
    tcFuzzInput input(bytes, std::min<size_t>(count, nLongest));
    Load(input);
    CheckTrim(input);
    nowhere.str("");
    std::cout.rdbuf(before);
    tcConfigFile::GetMap().clear();
    return 0;
}

// The running load of a configuration, private to the library.
#ifndef VX_LOADSTATE_H
#define VX_LOADSTATE_H

#include <sys/stat.h>

#include <cstddef>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace vx {

// What one call of LoadConfigFile, with all that it includes, has read so far, and what it made of
// it. Files may be as large and as many as they like; what is bounded is what grows by itself:
//
//   - text that variables bring: 16 MiB, and 16 times what was read;
//   - text that the section's name brings into the key of each of its items: 64 MiB, and 1024 times
//     what was read, so that names of up to 2000 characters never matter;
//   - includes: a depth of 64. A file that an included file includes, and that was read before,
//     counts as text that was made, with 1 KiB in addition.
//
// "What was read" counts each file once.
class tcLoadState
{
public:
    enum teRefusal { eText, eInclude, nRefusals };

    // `files` are those that earlier loads have read.
    explicit tcLoadState(const std::vector<std::string>& files) : mNames(files.begin(), files.end())
    {}

    // The scope in which an included file is read.
    class tcNested
    {
    public:
        explicit tcNested(tcLoadState& load) : mLoad(load) { ++mLoad.mnDepth; }
        ~tcNested() { --mLoad.mnDepth; }
        tcNested(const tcNested&) = delete;
        tcNested& operator=(const tcNested&) = delete;

    private:
        tcLoadState& mLoad;
    };

    // Whether a file has been read under the name.
    bool Knows(const std::string& name) const { return mNames.count(name) != 0; }
    void AddName(const std::string& name) { mNames.insert(name); }

    // False when this load has read the file already, under whatever name.
    bool AddFile(const struct stat& status) { return mFiles.insert(Identity(status)).second; }

    // Counts text of a file that is read for the first time.
    void CountRead(size_t size) { mnRead += size; }

    // Whether the file may be included where the load is now.
    bool MayInclude(const std::string& name)
    {
        struct stat status;
        if (mnDepth == 0 || stat(name.c_str(), &status) != 0) return true;
        if (mnDepth >= nMaxDepth) return false;
        if (mFiles.count(Identity(status)) == 0) return true;
        return TakeMadeText(static_cast<size_t>(status.st_size) + nReadingCost);
    }

    // False for text that does not fit any more.
    bool TakeMadeText(size_t size) { return Take(mnMade, size, nMadeText + nMadeFactor * mnRead); }
    bool TakeKeyText(size_t size) { return Take(mnKeys, size, nKeyText + nKeyFactor * mnRead); }

    // True for the first refusal of the kind, which is the one to report.
    bool IsFirst(teRefusal refusal) { return !std::exchange(maRefused[refusal], true); }

private:
    using tIdentity = std::pair<dev_t, ino_t>;

    static constexpr int nMaxDepth = 64;
    static constexpr size_t nMadeText = 16u << 20, nMadeFactor = 16;
    static constexpr size_t nKeyText = 64u << 20, nKeyFactor = 1024;
    static constexpr size_t nReadingCost = 1024;

    static tIdentity Identity(const struct stat& status) { return {status.st_dev, status.st_ino}; }

    static bool Take(size_t& used, size_t size, size_t most)
    {
        if (size > most - used) return false;
        used += size;
        return true;
    }

    std::unordered_set<std::string> mNames;
    std::set<tIdentity> mFiles;
    int mnDepth = 0;
    size_t mnRead = 0, mnMade = 0, mnKeys = 0;
    bool maRefused[nRefusals] = {};
};

// The environment's value of a name, which may hold any characters, or null. The callers of
// programs with raised rights have no say.
const char* FromEnvironment(const std::string& name);

} // namespace vx

#endif

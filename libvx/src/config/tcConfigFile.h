// Configuration files: sections of "name = value" lines, includes, environment and variables.
#ifndef TCCONFIGFILE_H
#define TCCONFIGFILE_H

#include "vxexport.h"

#include <iosfwd>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace vx {
class tcLoadState;
}

// One configuration file with everything it includes, loaded when the object is constructed.
//
//   # comment          a line whose first character is "#" or ";"
//   name = value       blanks and tabs around both are cut; without "=" the line is both
//   [section]          the items that follow belong to it, to the end of the file
//   !include file      beside the working directory the top file's directory is searched
//   !env NAME=value    sets, without a value removes, an environment variable
//   $(NAME)            in any other line: the environment variable or else the top-level item
//
// In programs with raised rights, set-user-id ones for example, the environment that the caller
// gave them counts as empty.
//
// Values are texts under the key section, "/", name, the section being empty at the top level. Bad
// content never stops loading: each problem becomes a line of the error text that the dump shows,
// up to some 16 MiB of it.
//
// Threads: objects may be used by several threads at once. A walk over the items meets what other
//          threads enter meanwhile or does not; nobody may load with `clear` during one. "!env"
//          changes the environment of the process.
// Locks:   one of each object, held while a file is loaded; one of the registry.
// Owns:    its items. The registry holds plain pointers to objects their creators own.
class VX_EXPORT tcConfigFile
{
public:
    using tItems = std::map<std::string, std::string>;
    using tIterator = tItems::const_iterator;
    using tConfigMap = std::map<std::string, tcConfigFile*>;

    // Registers the object under exactly `name`, in place of an earlier one of that name, and loads
    // the file. A file that cannot be opened gives an object without items. When the environment
    // variable CONFIGFILE_ENV_OVERIDE is set, environment variables named like items replace the
    // values of the file.
    explicit tcConfigFile(const char* name);

    // Empties the registry's entry for the name; the entry itself stays.
    virtual ~tcConfigFile();
    tcConfigFile(const tcConfigFile&) = delete;
    tcConfigFile& operator=(const tcConfigFile&) = delete;

    // The object registered under exactly `name`, or null. An unknown name is entered with null.
    static tcConfigFile* FindInstance(const char* name);

    // The registry, created by the first call and kept for the life of the process. Whoever walks
    // over it sees to it that no object is made or destroyed meanwhile.
    static tConfigMap& GetMap();

    // What ListConfigs() does, while no object is made or destroyed.
    static void List(bool dump);

    // The registry under its member name.
    static tConfigMap& mmConfigMap;

    // Reads one more file into the items, which are emptied before when `clear` is set and the file
    // could be opened. Returns 1 always; problems are in the error text.
    //
    // Files may be large and many. Bounded is what grows by itself: the text that variables, and
    // environment variables in place of values, bring in one call (16 MiB and 16 times what was
    // read), that which section names bring into the keys of their items (64 MiB and 1024 times
    // what was read), and includes within included files. What does not fit, which is reported
    // once, stays as it is in the file; an item is left out.
    int LoadConfigFile(const char* name, bool clear);

    // Handles a line that begins with "!", reporting it on standard output. Includes may be nested
    // 64 deep; those beyond are skipped, as are, some thousand times on, included files that
    // include again what was read. Either is reported once.
    void ProcessDirective(std::string line, int lineNumber);

    // The line with its $(NAME) references replaced. References without a value stay. Values may
    // bring at most 1000 further ones with them and the line may grow by 1 MiB and 16 times its
    // length, so that items referring to themselves come to an end.
    std::string ExpandVars(std::string line);

    // The path of an include file: `name` itself when it can be read, else `name` in the directory
    // of the top file; null when neither can be read. Valid until the next call on this object.
    const char* FindFile(const char* name);

    // Cuts the line in place at its first "#", then at its end everything that is not a graphic
    // character. Returns the index of the last character kept, 0 when at most one is left.
    static int TrimLine(char* line);

    // The value of an item in the type of the default, which is returned when the item is missing
    // or empty. Numbers are read as by strtol() with base 0 and strtod(), so bad text is 0 and not
    // the default; a truth value is true when it begins with T, t, Y or y. A missing item is
    // entered with an empty value. C-string defaults must not be null.
    std::string GetItemInSection(const std::string& section, const std::string& name,
                                 const char* defaultValue);
    std::string GetItemInSection(const std::string& section, const std::string& name,
                                 const std::string& defaultValue);
    int GetItemInSection(const std::string& section, const std::string& name, int defaultValue);
    float GetItemInSection(const std::string& section, const std::string& name, float defaultValue);
    double GetItemInSection(const std::string& section, const std::string& name,
                            double defaultValue);
    bool GetItemInSection(const std::string& section, const std::string& name, bool defaultValue);

    // Sets an item, new or old. Numbers are stored as an output stream writes them (six significant
    // digits), truth values as 1 or 0, which do not read back as truth values. C strings must not
    // be null.
    void SetItemInSection(const std::string& section, const std::string& name,
                          const std::string& value);
    void SetItemInSection(const std::string& section, const std::string& name, const char* value);
    void SetItemInSection(const std::string& section, const std::string& name, const int& value);
    void SetItemInSection(const std::string& section, const std::string& name, const float& value);
    void SetItemInSection(const std::string& section, const std::string& name, const double& value);
    void SetItemInSection(const std::string& section, const std::string& name, const bool& value);

    // The value under a whole key; a missing key is entered with an empty value.
    std::string findItem(const std::string& key);

    // A walk over all items in key order: while Key() is not empty, use Key() and Value() and go on
    // with NextItem(). At the end both are empty and NextItem() stays there.
    tIterator Iterator() const;
    void NextItem(tIterator& item) const;
    std::string Key(const tIterator& item) const;
    std::string Value(const tIterator& item) const;

    // Whether every item has a value.
    bool Validate() const;

    // The environment variable, also when it is empty, or the default when it is not set.
    static const char* GetEnv(const char* name, const char* defaultValue);

    // Sets an environment variable, with an empty `value` to the empty text.
    static void PutEnv(const char* name, const char* value);

    // Writes where the items came from, what went wrong, and every item.
    void Dump(std::ostream& stream) const;

    // The same to a file, which is overwritten, or with null to standard output. A file that cannot
    // be opened is skipped.
    void Dump(const char* name) const;

    // Writes the items as a configuration file, grouped by section in name order, with variables
    // and includes resolved. An item without a value becomes a comment. A file that cannot be
    // opened is skipped.
    void WriteFile(std::string name) const;

    // The files read, in order, each with "\n"; the first line is empty.
    std::string FilesUsed() const;

protected:
    std::string msFileName;
    std::string msVarSection; // where variables are looked up: always the top level
    tItems mmItems;
    bool mbEnvOverride = false;
    bool mbErrors = false;
    std::stringstream mssErrors;
    std::vector<std::string> mvFilesUsed; // the last one is the last file opened

private:
    using tGuard = std::lock_guard<std::recursive_mutex>;
    class tcRunning;

    static std::recursive_mutex& RegistryLock();
    std::string DumpText() const;
    void Register(tcConfigFile* file) const;
    void LoadFile(const std::string& fileName, bool clear);
    void LoadLine(const std::string& file, std::string& line, int lineNumber, std::string& section);
    void LoadItem(const std::string& file, const std::string& line, int lineNumber,
                  const std::string& section);
    void Include(const std::string& name, int lineNumber);
    bool MayInclude(const std::string& name);
    bool MayMake(size_t size);
    void ReportTooMuchText();
    void LimitErrors();
    std::string VariableValue(const std::string& name);
    // Kept: after an include this is still the included file.
    const std::string& CurrentFile() const { return mvFilesUsed.back(); }

    std::string msFoundFile;
    vx::tcLoadState* mpLoad = nullptr; // the running load
    mutable std::recursive_mutex mLock;
};

// The dump.
VX_EXPORT std::ostream& operator<<(std::ostream& stream, const tcConfigFile& file);

extern "C" {

// Dumps the configuration registered under `name` to standard output; when there is none, says so
// and lists what is registered.
VX_EXPORT void DumpConfig(const char* name);

// 1 when every item of the configuration registered under `name` has a value, else 0. When there is
// none, says so, lists what is registered and returns 0.
VX_EXPORT int ValidConfig(const char* name);

// Lists the registered configurations on standard output. With `dump` each is also dumped to the
// file "dump.dat", every one over the one before.
VX_EXPORT void ListConfigs(bool dump);
}

#endif

// Loading handler modules from a directory.
#include "tcDbgd.h"
#include "tcLog.h"
#include "vxdescriptors.h"
#include "vxenvironment.h"
#include "vxhoststreams.h"

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t nPathSize = 256;

// Null: none.
const char* ModuleDirectory()
{
    const char* path = vx::PlaceVariable("DBGD_MODULE_PATH");
    return path ? path : tcDbgd::spLoadableModulePath;
}

void* Load(const char* path)
{
    const vx::tcAboveStandard above;
    return dlopen(path, RTLD_NOW);
}

DIR* Open(const char* directory)
{
    const vx::tcAboveStandard above;
    return opendir(directory);
}

void LoadModule(const char* directory, const char* name)
{
    char path[nPathSize];
    // A path that does not fit is cut, and then not found.
    if (std::snprintf(path, sizeof path, "%s/%s", directory, name) < 0) return;
    tcDbgd::GetLog().logDebug(3, "Found file: %s", path);
    const size_t length = std::strlen(name);
    if (length <= 3 || std::strcmp(name + length - 3, ".so") != 0) return;
    tcDbgd::GetLog().logDebug(1, "loading module %s", path);
    if (Load(path)) return;
    const char* reason = dlerror();
    tcDbgd::GetLog().logError("Error Loading module %s: %s", path, reason ? reason : "");
}

} // namespace

void tcDbgd::LoadModules()
{
    const char* path = ModuleDirectory();
    if (!path) return;
    char directory[nPathSize];
    std::snprintf(directory, sizeof directory, "%s", path);
    const size_t length = std::strlen(directory);
    if (length > 0 && directory[length - 1] == '/') directory[length - 1] = '\0';

    GetLog().logDebug(1, "dbgd: scanning directory %s for loadable modules...\n", directory);
    DIR* entries = Open(directory);
    if (!entries) {
        vx::PrintSystemError(directory);
        return;
    }
    errno = 0;
    while (const dirent* entry = readdir(entries)) {
        LoadModule(directory, entry->d_name);
        errno = 0;
    }
    if (errno != 0) vx::PrintSystemError(directory);
    closedir(entries);
}

// The configuration of the process.
#ifndef TCCONFIGURATION_H
#define TCCONFIGURATION_H

#include "tcConfigFile.h"
#include "vxexport.h"

#include <atomic>

// The one configuration that the library asks for its settings, loaded on first use from the file
// named by the environment variable CONFIGFILE_PATH, else by SetDefaultConfigFile(), else
// "config.dat" in the working directory. Programs with raised rights, set-user-id ones for example,
// do not look at the variable.
//
// Threads: the static functions may be called from any thread.
// Locks:   one mutex of the class during creation, naming and destruction.
// Owns:    the instance.
class VX_EXPORT tcConfiguration : public tcConfigFile
{
public:
    explicit tcConfiguration(const char* name);
    ~tcConfiguration() override;

    // The configuration, loaded by the first call; never null. It stays valid until
    // CleanUpClassScopeAllocation().
    static tcConfiguration* GetInstance();

    // Chooses the file to load, of whose name 1023 characters are used. Ignored for null and once
    // the instance exists.
    static void SetDefaultConfigFile(const char* name);

    // Destroys the instance. The next GetInstance() loads the file again.
    static void CleanUpClassScopeAllocation();

    static std::atomic<tcConfiguration*> mpInstance;
    static char maConfigFileLocation[1024];
};

// Dumps the configuration of the process to standard output and returns 0.
extern "C" VX_EXPORT int TestCfg(void);

#endif

#include "tcConfiguration.h"

#include "vxenvironment.h"
#include "vxguarded.h"

#include <cstring>
#include <mutex>

namespace {

std::mutex& Lock()
{
    static std::mutex& lock = *new std::mutex;
    return lock;
}

} // namespace

std::atomic<tcConfiguration*> tcConfiguration::mpInstance{nullptr};
char tcConfiguration::maConfigFileLocation[1024] = {};

tcConfiguration::tcConfiguration(const char* name) : tcConfigFile(name) {}

tcConfiguration::~tcConfiguration() = default;

tcConfiguration* tcConfiguration::GetInstance()
{
    tcConfiguration* present = mpInstance;
    if (present != nullptr) return present;
    const std::lock_guard<std::mutex> guard(Lock());
    if (mpInstance == nullptr) {
        const char* name = maConfigFileLocation[0] != '\0' ? maConfigFileLocation : "config.dat";
        const char* const chosen = vx::PlaceVariable("CONFIGFILE_PATH");
        mpInstance = new tcConfiguration(chosen != nullptr ? chosen : name);
    }
    return mpInstance;
}

void tcConfiguration::SetDefaultConfigFile(const char* name)
{
    if (name == nullptr) return;
    const std::lock_guard<std::mutex> guard(Lock());
    if (mpInstance != nullptr) return;
    const std::string chosen(name, strnlen(name, sizeof(maConfigFileLocation) - 1));
    std::memset(maConfigFileLocation, 0, sizeof(maConfigFileLocation));
    chosen.copy(maConfigFileLocation, chosen.size());
}

void tcConfiguration::CleanUpClassScopeAllocation()
{
    const std::lock_guard<std::mutex> guard(Lock());
    delete mpInstance.exchange(nullptr);
}

extern "C" int TestCfg(void)
{
    return vx::Guarded(0, [] {
        tcConfiguration::GetInstance()->Dump(nullptr);
        return 0;
    });
}

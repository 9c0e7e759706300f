#include "vxenvironment.h"

#include <sys/auxv.h>

#include <cstdint>
#include <cstdlib>

namespace {

bool HasRaisedRights()
{
    return getauxval(AT_SECURE) != 0;
}

// The kernel puts what the caller hands over between these two, on the first stack.
bool IsFromCaller(const char* value)
{
    const auto address = reinterpret_cast<uintptr_t>(value);
    return address >= getauxval(AT_RANDOM) && address <= getauxval(AT_EXECFN);
}

} // namespace

std::mutex& vx::EnvironmentLock()
{
    static std::mutex& lock = *new std::mutex;
    return lock;
}

const char* vx::Variable(const char* name)
{
    const std::lock_guard<std::mutex> guard(EnvironmentLock());
    return std::getenv(name);
}

const char* vx::PlaceVariable(const char* name)
{
    return HasRaisedRights() ? nullptr : Variable(name);
}

const char* vx::TrustedVariable(const char* name)
{
    const char* const value = Variable(name);
    return value != nullptr && HasRaisedRights() && IsFromCaller(value) ? nullptr : value;
}

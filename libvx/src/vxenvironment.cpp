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

const char* vx::PlaceVariable(const char* name)
{
    return HasRaisedRights() ? nullptr : std::getenv(name);
}

const char* vx::TrustedVariable(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr && HasRaisedRights() && IsFromCaller(value) ? nullptr : value;
}

#include "targettemp.h"

#include "vxcamiface.h"

#include <cmath>

static constexpr double gnTenths = 10.0;

double TenthsOf(double degrees)
{
    return std::round(degrees * gnTenths) / gnTenths;
}

// The tenths are cut off on the way, so the float must not lie below them.
int SetTargetTemperature(int handle, double degrees)
{
    const double tenths = std::round(degrees * gnTenths);
    auto sent = static_cast<float>(tenths / gnTenths);
    while (std::abs(std::trunc(sent * gnTenths)) < std::abs(tenths)) {
        sent = std::nextafterf(sent, static_cast<float>(std::copysign(INFINITY, tenths)));
    }
    return VXSetCCDTargetTemp(handle, sent);
}

int GetTargetTemperature(int handle, double* degrees)
{
    float told = 0;
    const int result = VXGetCCDTargetTemp(handle, &told);
    if (result == eVXOk) *degrees = TenthsOf(told);
    return result;
}

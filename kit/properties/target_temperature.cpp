#include "properties/target_temperature.h"

#include "vxcamiface.h"

#include <cmath>

namespace vxcam {

namespace {

constexpr double kTenths = 10.0;

}

// The tenths are cut off on the way, so the float must not lie below them.
int setTargetTemperature(int handle, double degrees)
{
    const double tenths = std::round(degrees * kTenths);
    auto sent = static_cast<float>(tenths / kTenths);
    while (std::abs(std::trunc(sent * kTenths)) < std::abs(tenths)) {
        sent = std::nextafterf(sent, static_cast<float>(std::copysign(INFINITY, tenths)));
    }
    return VXSetCCDTargetTemp(handle, sent);
}

int getTargetTemperature(int handle, double* degrees)
{
    float told = 0;
    const int result = VXGetCCDTargetTemp(handle, &told);
    if (result == eVXOk) *degrees = std::round(told * kTenths) / kTenths;
    return result;
}

} // namespace vxcam

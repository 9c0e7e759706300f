#include "sequence/flat_exposure.h"

#include <vxcamkit/duration.h>

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr int kMostTries = 12;
constexpr double kMostFactor = 50; // from one exposure to the next
constexpr double kLeastSignal = 1; // counts

} // namespace

bool FlatExposure::isNear(double mean) const
{
    return std::abs(mean - level_.mean) <= level_.tolerance * level_.mean;
}

FlatExposure::Time FlatExposure::next(double mean) const
{
    const double signal = std::max(mean - *offset_, kLeastSignal);
    const double factor =
        std::clamp((level_.mean - *offset_) / signal, 1 / kMostFactor, kMostFactor);
    const double wanted = std::max<double>(static_cast<double>(exposure_.count()), 1) * factor;
    return std::clamp(Time(std::llround(wanted)), level_.least, level_.most);
}

FlatExposure::Time FlatExposure::find(const Measure& measure)
{
    if (isFound_) return exposure_;
    if (!offset_) offset_ = measure({});
    exposure_ = std::clamp(exposure_, level_.least, level_.most);
    double mean = *offset_;
    for (int i = 0; i < kMostTries; ++i) {
        mean = measure(exposure_);
        isFound_ = isNear(mean);
        if (isFound_) return exposure_;
        const Time wanted = next(mean);
        if (wanted == exposure_) break;
        exposure_ = wanted;
    }
    throw Error(ErrorKind::Camera, "flats: the level " + std::to_string(std::lround(level_.mean)) +
                                       " is out of reach: " + exactText(exposure_) + " gives " +
                                       std::to_string(std::lround(mean)));
}

bool FlatExposure::accept(double mean)
{
    isFound_ = isNear(mean);
    if (isFound_) exposure_ = next(mean);
    return isFound_;
}

} // namespace vxcam

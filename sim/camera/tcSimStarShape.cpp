#include "tcSimStarShape.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double gnPi = 3.14159265358979;
constexpr double gnStep = 0.125;         // pixels between two values of the table
constexpr double gnFar = 5.0;            // deviations after which a Gaussian is nothing
constexpr double gnSkirt = 0.06;         // its part of the flux
constexpr double gnSkirtWidth = 5.0;     // by that of the core
constexpr double gnFaint = 0.05;         // electrons a second and pixel that nobody sees
constexpr double gnNearlyAll = 0.999;    // of the flux
constexpr double gnDeviations = 2.35482; // of a Gaussian, in its full width at half maximum
constexpr int gnSlices = 64;             // of the disc

double Gaussian(double distance, double width)
{
    const double x = distance / width;
    return std::exp(-x * x / 2) / (2 * gnPi * width * width);
}

// The Gaussian spread evenly over the disc, slice by slice: across a slice it is a difference of
// error functions.
double Spread(double distance, double width, double disc)
{
    if (disc <= 0) return Gaussian(distance, width);
    const double from = std::max(-disc, distance - gnFar * width);
    const double to = std::min(disc, distance + gnFar * width);
    if (from >= to) return 0;
    const double slice = (to - from) / gnSlices;
    double sum = 0;
    for (int i = 0; i < gnSlices; ++i) {
        const double at = from + (i + 0.5) * slice, away = (distance - at) / width;
        const double half = std::sqrt(std::max(disc * disc - at * at, 0.0));
        sum += std::exp(-away * away / 2) * std::erf(half / (width * std::sqrt(2.0)));
    }
    return sum * slice / (std::sqrt(2 * gnPi) * width * gnPi * disc * disc);
}

} // namespace

bool operator==(const tsSimOptics& first, const tsSimOptics& second)
{
    return first.defocus == second.defocus && first.seeing == second.seeing &&
           first.rows == second.rows && first.columns == second.columns &&
           first.trailRows == second.trailRows && first.trailColumns == second.trailColumns;
}

bool tsSimOptics::AsBuilt() const
{
    return *this == tsSimOptics();
}

tcSimStarShape::tcSimStarShape(double width, double defocus, double seeing)
{
    const double air = seeing / gnDeviations, disc = std::abs(defocus);
    const double skirt = std::hypot(width * gnSkirtWidth, air);
    const double core = std::hypot(width, air);
    mnPace = std::max(core, disc / 4);
    const auto steps = static_cast<size_t>((disc + gnFar * skirt) / gnStep) + 2;
    maValues.reserve(steps);
    std::vector<double> rings; // the flux between two steps
    double flux = 0;
    for (size_t i = 0; i < steps; ++i) {
        const double distance = static_cast<double>(i) * gnStep;
        const double value =
            (1 - gnSkirt) * Spread(distance, core, disc) + gnSkirt * Spread(distance, skirt, disc);
        maValues.push_back(static_cast<float>(value));
        flux += value * 2 * gnPi * distance * gnStep;
        rings.push_back(flux);
    }
    for (float& value : maValues) {
        value = static_cast<float>(value / flux);
    }
    mnEnough = static_cast<size_t>(
        std::lower_bound(rings.begin(), rings.end(), gnNearlyAll * flux) - rings.begin());
}

float tcSimStarShape::At(double distance) const
{
    const double step = distance / gnStep;
    const auto below = static_cast<size_t>(step);
    if (below + 1 >= maValues.size()) return 0;
    const auto above = static_cast<float>(step - static_cast<double>(below));
    return maValues[below] * (1 - above) + maValues[below + 1] * above;
}

double tcSimStarShape::Reach(double flux) const
{
    const auto seen = std::partition_point(maValues.begin(), maValues.end(),
                                           [flux](float value) { return value * flux > gnFaint; });
    return static_cast<double>(std::max(mnEnough, static_cast<size_t>(seen - maValues.begin()))) *
           gnStep;
}

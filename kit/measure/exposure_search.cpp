#include <vxcamkit/exposure_search.h>

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr double kNearlyFull = 0.98; // of the scale: light above it is not seen
constexpr double kLeastSeen = 0.002; // of the scale: less may be noise
constexpr double kMuch = 8;          // times the exposure, where light is not seen

} // namespace

ExposureSearch::ExposureSearch(const ExposureGoal& goal) : goal_(goal), exposure_(goal.first)
{
    if (!(goal.level > goal.offset) || !(goal.level < kNearlyFull * goal.fullScale)) {
        throw Error(ErrorKind::Usage, "the level lies between that without light and 98 % of full "
                                      "scale");
    }
    if (goal.least.count() < 1 || goal.most < goal.least || !(goal.tolerance > 0)) {
        throw Error(ErrorKind::Usage, "the shortest exposure is 1 ms, and the longest is longer");
    }
    exposure_ = std::clamp(exposure_, goal_.least, goal_.most);
}

ExposureSearch::State ExposureSearch::add(double median)
{
    const double light = median - goal_.offset, wanted = goal_.level - goal_.offset;
    if (std::abs(light - wanted) <= goal_.tolerance * wanted) return State::Found;
    double factor = wanted / std::max(light, 1e-9);
    if (median >= kNearlyFull * goal_.fullScale) factor = 1 / kMuch;
    if (light < kLeastSeen * goal_.fullScale) factor = std::min(factor, kMuch);
    const auto least = static_cast<double>(goal_.least.count());
    const auto most = static_cast<double>(goal_.most.count());
    const double asked = static_cast<double>(exposure_.count()) * factor;
    const std::chrono::milliseconds before = exposure_;
    exposure_ =
        std::chrono::milliseconds(static_cast<int64_t>(std::clamp(std::round(asked), least, most)));
    if (exposure_ == before) {
        if (asked > most) return State::TooDark;
        if (asked < least) return State::TooBright;
        return State::Found; // between two steps of the exposure
    }
    return ++tried_ < goal_.tries ? State::Searching : State::Unsteady;
}

} // namespace vxcam

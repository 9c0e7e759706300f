#include "readout/plan_check.h"

#include <limits>

namespace vxcam {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr int kMostFrames = 32767, kMostRegions = 16, kMostBuffers = 1024;
constexpr int kMostFactor = 65535, kMostTable = 7, kMostFlags = 65535;
constexpr int kShutterStaysClosed = 0x0001, kBytes = 0x0008; // flags of what else a plan says

using Mistake = std::optional<std::string>;

bool isOfArea(const Plan& plan)
{
    return plan.kind == ReadoutKind::Area || plan.kind == ReadoutKind::AsSet;
}

Mistake inNumber(const std::string& what, int given, int least, int most)
{
    if (given >= least && given <= most) return std::nullopt;
    return what + " " + std::to_string(given) + ": give " + std::to_string(least) + " to " +
           std::to_string(most);
}

Mistake inBits(const Plan& plan)
{
    const std::string given = "bits " + std::to_string(plan.bits);
    if (isOfArea(plan)) {
        if (plan.bits == 8 || plan.bits == 16) return std::nullopt;
        return given + ": give 8 or 16";
    }
    if (plan.bits == 16 || plan.bits == kBinnedBits) return std::nullopt;
    return given + ": binned pixels have 32";
}

Mistake inExposure(const std::optional<microseconds>& exposure)
{
    if (!exposure) return std::nullopt;
    const microseconds most{milliseconds(std::numeric_limits<uint32_t>::max())};
    const std::string given = "exposure " + std::to_string(exposure->count()) + " us: ";
    if (*exposure < microseconds(0) || *exposure > most) return given + "give 0 to 4294967295 ms";
    if (*exposure % milliseconds(1) != microseconds(0)) return given + "the finest step is 1 ms";
    return std::nullopt;
}

Mistake inArea(const std::string& what, const Area& area, const Size& sensor)
{
    if (area.fits(sensor)) return std::nullopt;
    std::string given;
    for (const int number : {area.column, area.row, area.columns, area.rows}) {
        given += (given.empty() ? "" : ",") + std::to_string(number);
    }
    return what + " " + given + ": no part of the sensor of " + std::to_string(sensor.columns) +
           " x " + std::to_string(sensor.rows) + " pixels";
}

Mistake inAreas(const Plan& plan, const Size& sensor)
{
    if (plan.area && !isOfArea(plan)) return "area: binned readouts are of the whole sensor";
    if (plan.area) {
        if (Mistake mistake = inArea("area", *plan.area, sensor)) return mistake;
    }
    if (plan.regions.empty()) return std::nullopt;
    if (plan.area || !isOfArea(plan)) return "regions: of the area kind, and instead of an area";
    const auto count = static_cast<int>(plan.regions.size());
    if (Mistake mistake = inNumber("number of regions", count, 1, kMostRegions)) return mistake;
    for (const Area& region : plan.regions) {
        if (Mistake mistake = inArea("region", region, sensor)) return mistake;
    }
    return std::nullopt;
}

Mistake inBinning(const Plan& plan)
{
    if ((plan.binningX || plan.binningY) && plan.kind != ReadoutKind::Binned) {
        return "binning: of the binned kind only";
    }
    for (const std::optional<int>& factor : {plan.binningX, plan.binningY}) {
        if (Mistake mistake = inNumber("binning", factor.value_or(1), 1, kMostFactor)) {
            return mistake;
        }
    }
    if (!isOfArea(plan)) return inNumber("mode (table)", plan.mode, 0, kMostTable);
    if ((plan.mode & (kShutterStaysClosed | kBytes)) != 0) {
        return "mode (flags): the type says whether the shutter opens, the bits how wide a pixel "
               "is";
    }
    return inNumber("mode (flags)", plan.mode, 0, kMostFlags);
}

} // namespace

std::optional<std::string> mistakeIn(const Plan& plan, const Size& sensor)
{
    for (const Mistake& mistake :
         {inNumber("frames", plan.frames, 0, kMostFrames), inBits(plan), inExposure(plan.exposure),
          inAreas(plan, sensor), inBinning(plan),
          inNumber("buffers", plan.buffers, 0, kMostBuffers)}) {
        if (mistake) return mistake;
    }
    if (plan.timeout && *plan.timeout <= milliseconds(0)) return "time-out: give more than 0";
    return std::nullopt;
}

} // namespace vxcam

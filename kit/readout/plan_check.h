// What of a plan cannot be.
#ifndef VXCAMKIT_PLAN_CHECK_H
#define VXCAMKIT_PLAN_CHECK_H

#include <vxcamkit/area.h>
#include <vxcamkit/plan.h>

#include <optional>
#include <string>

namespace vxcam {

inline constexpr int kBinnedBits = 32;

// What is given and what is possible, of the first field that cannot be: "frames -2: give 0 to
// 32767". Nothing of a plan that a camera with that sensor can read out.
std::optional<std::string> mistakeIn(const Plan& plan, const Size& sensor);

} // namespace vxcam

#endif

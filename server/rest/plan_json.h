// Plans as JSON.
#ifndef VXCAMD_PLAN_JSON_H
#define VXCAMD_PLAN_JSON_H

#include "rest/json_answer.h"

#include <vxcamkit/plan.h>

namespace vxcam {

// Of an object like this, whose members may all be left out:
//
//     {"exposure": 0.5, "frames": 10, "bits": 16, "type": "light", "kind": "area",
//      "area": {"column": 0, "row": 0, "columns": 64, "rows": 64}, "binning": [2, 2], "mode": 0,
//      "timeout": 20, "when_full": "wait"}
//
// Times are in seconds, or a text like "500ms". Throws Error{Usage}.
Plan planOf(const Json& json);

Json planJson(const Plan& plan); // what was given

} // namespace vxcam

#endif

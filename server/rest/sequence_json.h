// Plans and sequences as JSON.
#ifndef VXCAMD_SEQUENCE_JSON_H
#define VXCAMD_SEQUENCE_JSON_H

#include "cameras/sequences.h"
#include "plans/plan_folder.h"

#include <string>

namespace vxcam {

// What a plan comes to, and how far it has come; what is wrong with it, if it cannot be.
Json planFactsJson(const PlanFolder& plans, const std::string& name);
// The same of a text that might be that plan. Throws as PlanFolder::checked().
Json planFactsJson(const PlanFolder& plans, const std::string& name, const std::string& text);

Json statusJson(const SequenceStatus& status);
// `folder`: as clients see it.
Json reportJson(const SequenceReport& report, const std::string& name, const std::string& folder);

} // namespace vxcam

#endif

// What clients send as JSON.
#ifndef VXCAMD_JSON_OBJECT_H
#define VXCAMD_JSON_OBJECT_H

#include <nlohmann/json.hpp>

#include <string>

namespace vxcam {

// The object in a text. Throws Refusal{400}, which calls the text what it is called here, for what
// is none, nested more than 16 deep, or has a member twice.
nlohmann::ordered_json jsonObject(const std::string& text, const std::string& called);

} // namespace vxcam

#endif

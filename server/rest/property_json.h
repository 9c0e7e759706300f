// The table of properties as JSON.
#ifndef VXCAMD_PROPERTY_JSON_H
#define VXCAMD_PROPERTY_JSON_H

#include "cameras/event_log.h"

#include <vxcamkit/property.h>

namespace vxcam {

// What a form needs to show it: help, unit, fields with their bounds and choices, access.
Json propertyJson(const Property& property);

// {"name": "gain", "value": 2, "text": "2"}
Json valueJson(const std::string& name, const Value& value);

// A schema for the JSON that its values are.
Json schemaOf(const Property& property);

} // namespace vxcam

#endif

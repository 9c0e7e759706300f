// What bodies and answers look like, as JSON Schema.
#ifndef VXCAMD_SCHEMAS_H
#define VXCAMD_SCHEMAS_H

#include "cameras/event_log.h"

namespace vxcam {

// By their names, as the components of an OpenAPI document.
Json schemas();

} // namespace vxcam

#endif

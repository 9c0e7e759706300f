// The description of the interface for scripts.
#ifndef VXCAMD_OPENAPI_H
#define VXCAMD_OPENAPI_H

#include "cameras/event_log.h"

#include <string>

namespace vxcam {

// An OpenAPI 3.1 document: every route with its parameters, bodies and answers, and each property
// of the table with the schema of its values.
Json openApiDocument(const std::string& version, bool needsToken);

} // namespace vxcam

#endif

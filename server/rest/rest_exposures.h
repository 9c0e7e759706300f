// Exposures for scripts.
#ifndef VXCAMD_REST_EXPOSURES_H
#define VXCAMD_REST_EXPOSURES_H

#include "cameras/shared_camera.h"
#include "http/http_message.h"

#include <string>
#include <vector>

namespace vxcam {

// What is asked for behind ".../exposures"; `rest` are the parts of the path behind it. Throws
// Refusal and Error.
HttpResponse answerExposures(const HttpRequest& request, SharedCamera& camera,
                             const std::vector<std::string>& rest, const std::string& version);

} // namespace vxcam

#endif

// Plans and sequences for scripts.
#ifndef VXCAMD_REST_SEQUENCES_H
#define VXCAMD_REST_SEQUENCES_H

#include "cameras/shared_camera.h"
#include "http/http_message.h"
#include "plans/plan_folder.h"

#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// What is asked for behind "/plans"; `rest` are the parts of the path behind it. Null plans: the
// server has none. Throw Refusal and Error.
HttpResponse answerPlans(const HttpRequest& request, PlanFolder* plans,
                         const std::vector<std::unique_ptr<SharedCamera>>& cameras,
                         const std::vector<std::string>& rest);

// Likewise behind ".../sequence" of a camera.
HttpResponse answerSequence(const HttpRequest& request, PlanFolder* plans, SharedCamera& camera,
                            const std::vector<std::string>& rest, const std::string& version);

} // namespace vxcam

#endif

#include <vxcamkit/property_access.h>

namespace vxcam {

Access::~Access() = default;

} // namespace vxcam

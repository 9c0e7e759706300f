// What is left of sequences where there is nothing that reads their plans.
#include <vxcamkit/sequence.h>

namespace vxcam {

#if !VXCAMKIT_HAS_YAML
SequencePlan readSequence(const std::string& path)
{
    throw Error(ErrorKind::Usage, path + ": plans cannot be read: built without yaml-cpp");
}
#endif

} // namespace vxcam

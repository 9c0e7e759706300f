// What is left of sequences where there is nothing that reads their plans.
#include <vxcamkit/sequence.h>

namespace vxcam {

#if !VXCAMKIT_HAS_YAML
SequencePlan readSequence(const std::string& path)
{
    return parseSequence("", path);
}

SequencePlan parseSequence(const std::string&, const std::string& path)
{
    throw SequenceError(path, {{0, "plans cannot be read: built without yaml-cpp"}});
}
#endif

} // namespace vxcam

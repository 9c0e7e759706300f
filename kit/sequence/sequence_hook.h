// Commands of the user's that are run on the way.
#ifndef VXCAMKIT_SEQUENCE_HOOK_H
#define VXCAMKIT_SEQUENCE_HOOK_H

#include <vxcamkit/sequence.h>

#include <functional>
#include <string>
#include <vector>

namespace vxcam {

// Runs it in a process group of its own and waits until it has ended; what it prints goes to
// standard error. `variables` ("NAME=VALUE") are added to the environment. `tell` is called
// meanwhile; when it throws, or the time is over, the group is killed. Throws HookError for another
// exit code than 0.
void runHook(const SequenceHook& hook, const std::vector<std::string>& variables,
             const std::function<void()>& tell);

} // namespace vxcam

#endif

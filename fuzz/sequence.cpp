// Plans of sequences.
//
// Input: a plan in YAML, as a user or a client of the server writes it.
#include "tcFuzzInput.h"

#include <vxcamkit/sequence.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const std::string text = input.Text(input.Left());
    try {
        const vxcam::SequencePlan plan = vxcam::parseSequence(text, "plan.yaml");
        Require(!plan.steps.empty(), "a plan has steps");
        const vxcam::SequenceNeeds needs = vxcam::needsOf(plan);
        Require(needs.frames >= 0 && needs.hooks >= 0 && needs.duration.count() >= 0,
                "what it takes is counted");
    } catch (const vxcam::SequenceError& refused) {
        Require(!refused.mistakes().empty(), "a refusal names mistakes");
        const std::string all = refused.what();
        for (const vxcam::SequenceMistake& mistake : refused.mistakes()) {
            Require(mistake.line >= 0 && !mistake.text.empty(), "a mistake says what and where");
        }
        Require(!all.empty(), "a refusal says why");
    }
    return 0;
}

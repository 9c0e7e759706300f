// What a simulated camera sent.
#ifndef VXCAMKIT_TRUTH_H
#define VXCAMKIT_TRUTH_H

#include "verify/record_reader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// Compares frames, whose pixels have these check values, with the lines of its --json. Throws
// Error{File} when these cannot be read.
void compareWithTruth(const std::string& path, const std::vector<uint32_t>& crcs,
                      ReadRecord* record);

} // namespace vxcam

#endif

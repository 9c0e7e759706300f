// Some pixels that stand for all of them.
#ifndef VXCAMKIT_SAMPLES_H
#define VXCAMKIT_SAMPLES_H

#include <vxcamkit/frame.h>

#include <vector>

namespace vxcam {

// At most about a million, evenly spread; without rows that did not come, if there are others.
std::vector<double> samplesOf(const Frame& frame);

// The value below which this part of them lies, 0 to 1. Reorders them; there is one at least.
double quantile(std::vector<double>* values, double fraction);

// The standard deviation of noise around `centre`, from the median of the distances, which replace
// the values.
double sigmaAround(double centre, std::vector<double>* values);

} // namespace vxcam

#endif

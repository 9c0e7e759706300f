#include "measure/samples.h"

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr size_t kSamples = size_t{1} << 20U;
constexpr double kSigmaOfDeviation = 1.4826; // median of the distances to standard deviation

template <class Pixel>
std::vector<double> samplesOf(const Frame& frame)
{
    const PixelView<Pixel> pixels = frame.pixels<Pixel>();
    const auto columns = static_cast<size_t>(frame.columns());
    std::vector<bool> isMissing(static_cast<size_t>(frame.rows()));
    size_t present = isMissing.size();
    for (const int row : frame.facts().missingRows) {
        if (row < 0 || row >= frame.rows() || isMissing[static_cast<size_t>(row)]) continue;
        isMissing[static_cast<size_t>(row)] = true;
        --present;
    }
    if (present == 0) isMissing.assign(isMissing.size(), false);
    // An odd step does not keep to the same columns in every row of an even width.
    const size_t step = pixels.size() / kSamples == 0 ? 1 : (pixels.size() / kSamples) | 1U;
    std::vector<double> samples;
    samples.reserve(pixels.size() / step + 1);
    for (size_t i = 0; i < pixels.size(); i += step) {
        if (!isMissing[i / columns]) samples.push_back(pixels[i]);
    }
    if (samples.empty()) samples.push_back(pixels[0]);
    return samples;
}

} // namespace

std::vector<double> samplesOf(const Frame& frame)
{
    if (frame.bits() == 8) return samplesOf<uint8_t>(frame);
    if (frame.bits() == 16) return samplesOf<uint16_t>(frame);
    return samplesOf<uint32_t>(frame);
}

double quantile(std::vector<double>* values, double fraction)
{
    const double last = static_cast<double>(values->size() - 1);
    const auto nth = values->begin() + std::lround(std::clamp(fraction, 0.0, 1.0) * last);
    std::nth_element(values->begin(), nth, values->end());
    return *nth;
}

double sigmaAround(double centre, std::vector<double>* values)
{
    for (double& value : *values) {
        value = std::abs(value - centre);
    }
    return kSigmaOfDeviation * quantile(values, 0.5);
}

} // namespace vxcam

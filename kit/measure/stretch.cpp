#include <vxcamkit/stretch.h>

#include "measure/samples.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vxcam {

namespace {

constexpr double kSkyGray = 0.09;     // of white, where the sky comes out
constexpr double kBlackSigmas = 1.5;  // of the sky's noise below the sky
constexpr double kWhiteSigmas = 30.0; // above the sky, at least
constexpr double kWhiteFraction = 0.9995;
constexpr double kLeastSigma = 0.5;
constexpr double kLeastBend = 1e-3, kMostBend = 1e6;
constexpr int kBisections = 60;
constexpr double kWhite = 255;

double curve(double x, double bend)
{
    return bend > 0 ? std::asinh(x * bend) / std::asinh(bend) : x;
}

// The bend that maps x to the gray of the sky. The curve rises with the bend.
double bendFor(double x)
{
    double least = std::log(kLeastBend), most = std::log(kMostBend);
    for (int i = 0; i < kBisections; ++i) {
        const double middle = (least + most) / 2;
        (curve(x, std::exp(middle)) < kSkyGray ? least : most) = middle;
    }
    return std::exp(least);
}

// Each value is computed once, if there are not too many.
template <class Pixel>
std::vector<uint8_t> graysOf(const PixelView<Pixel>& pixels, const Stretch& stretch)
{
    std::vector<uint8_t> grays(pixels.size());
    if constexpr (sizeof(Pixel) <= sizeof(uint16_t)) {
        std::vector<uint8_t> table(size_t{std::numeric_limits<Pixel>::max()} + 1);
        for (size_t value = 0; value < table.size(); ++value) {
            table[value] = stretch.gray(static_cast<double>(value));
        }
        std::transform(pixels.begin(), pixels.end(), grays.begin(),
                       [&](Pixel pixel) { return table[pixel]; });
    } else {
        std::transform(pixels.begin(), pixels.end(), grays.begin(),
                       [&](Pixel pixel) { return stretch.gray(pixel); });
    }
    return grays;
}

} // namespace

uint8_t Stretch::gray(double value) const
{
    const double x = std::clamp((value - black) / (white - black), 0.0, 1.0);
    return static_cast<uint8_t>(std::lround(kWhite * curve(x, bend)));
}

Stretch findStretch(const Frame& frame)
{
    std::vector<double> samples = samplesOf(frame);
    const double bright = quantile(&samples, kWhiteFraction);
    const double sky = quantile(&samples, 0.5);
    const double sigma = std::max(sigmaAround(sky, &samples), kLeastSigma);
    Stretch stretch;
    stretch.black = sky - kBlackSigmas * sigma;
    stretch.white = std::max(bright, sky + kWhiteSigmas * sigma);
    stretch.bend = bendFor((sky - stretch.black) / (stretch.white - stretch.black));
    return stretch;
}

Stretch percentileStretch(const Frame& frame, double black, double white)
{
    std::vector<double> samples = samplesOf(frame);
    Stretch stretch;
    stretch.black = quantile(&samples, black);
    stretch.white = std::max(quantile(&samples, white), stretch.black + 1);
    return stretch;
}

std::vector<uint8_t> graysOf(const Frame& frame, const Stretch& stretch)
{
    if (frame.bits() == 8) return graysOf(frame.pixels<uint8_t>(), stretch);
    if (frame.bits() == 16) return graysOf(frame.pixels<uint16_t>(), stretch);
    return graysOf(frame.pixels<uint32_t>(), stretch);
}

} // namespace vxcam

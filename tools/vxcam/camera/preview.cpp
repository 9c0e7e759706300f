#include "preview.h"

#include "failure.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr size_t gnSamples = 1 << 20;
constexpr double gnSkyGray = 0.09;     // of white, where the sky comes out
constexpr double gnBlackSigmas = 1.5;  // of the sky's noise below the sky
constexpr double gnWhiteSigmas = 30.0; // above the sky, at least
constexpr double gnWhiteFraction = 0.9995;
constexpr double gnSigmaOfDeviation = 1.4826; // median absolute deviation to standard deviation
constexpr double gnLeastBend = 1e-3, gnMostBend = 1e6;
constexpr int gnBisections = 60;

double Quantile(std::vector<double>& values, double fraction)
{
    const auto nth =
        values.begin() + std::lround(fraction * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

std::vector<double> Samples(const tsFrame& frame)
{
    std::vector<double> samples;
    const size_t count = frame.Pixels();
    // An odd step does not keep to the same columns in every row of an even width.
    const size_t step = count / gnSamples == 0 ? 1 : (count / gnSamples) | 1;
    samples.reserve(count / step + 1);
    for (size_t i = 0; i < count; i += step) {
        samples.push_back(frame.Pixel(i));
    }
    return samples;
}

double Curve(double x, double bend)
{
    return std::asinh(x * bend) / std::asinh(bend);
}

// The bend that maps x to the gray of the sky. The curve rises with the bend.
double BendFor(double x)
{
    double least = std::log(gnLeastBend), most = std::log(gnMostBend);
    for (int i = 0; i < gnBisections; ++i) {
        const double middle = (least + most) / 2;
        (Curve(x, std::exp(middle)) < gnSkyGray ? least : most) = middle;
    }
    return std::exp(least);
}

// Only values that occur are computed, and each once.
std::vector<uint8_t> Grays(const tsFrame& frame, const tsStretch& stretch)
{
    std::vector<uint8_t> grays(frame.Pixels());
    std::vector<uint8_t> table;
    if (frame.bits == 16) {
        table.resize(1 << 16);
        for (size_t value = 0; value < table.size(); ++value) {
            table[value] = stretch.Gray(static_cast<double>(value));
        }
    }
    for (size_t i = 0; i < grays.size(); ++i) {
        grays[i] = frame.bits == 16 ? table[frame.pixels16[i]] : stretch.Gray(frame.pixels32[i]);
    }
    return grays;
}

} // namespace

uint8_t tsStretch::Gray(double value) const
{
    const double x = std::clamp((value - black) / (white - black), 0.0, 1.0);
    return static_cast<uint8_t>(std::lround(255.0 * Curve(x, bend)));
}

tsStretch FindStretch(const tsFrame& frame)
{
    std::vector<double> samples = Samples(frame);
    if (samples.empty()) return {};
    const double bright = Quantile(samples, gnWhiteFraction);
    const double sky = Quantile(samples, 0.5);
    for (double& value : samples) {
        value = std::abs(value - sky);
    }
    const double sigma = std::max(gnSigmaOfDeviation * Quantile(samples, 0.5), 0.5);
    tsStretch stretch;
    stretch.black = sky - gnBlackSigmas * sigma;
    stretch.white = std::max(bright, sky + gnWhiteSigmas * sigma);
    stretch.bend = BendFor((sky - stretch.black) / (stretch.white - stretch.black));
    return stretch;
}

std::vector<char> MakePreview(const tsFrame& frame)
{
    const std::vector<uint8_t> grays = Grays(frame, FindStretch(frame));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(frame.area.columns);
    image.height = static_cast<png_uint_32>(frame.area.rows);
    image.format = PNG_FORMAT_GRAY;
    image.flags = PNG_IMAGE_FLAG_FAST;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::vector<char> bytes(size);
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, grays.data(), 0, nullptr) == 0) {
        throw tcFailure(eExitFile, std::string("the preview cannot be made: ") + image.message);
    }
    bytes.resize(size);
    return bytes;
}

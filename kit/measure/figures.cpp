#include <vxcamkit/figures.h>

#include "measure/pixel_tally.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace vxcam {

namespace {

constexpr size_t kBatch = 4096; // pixels whose squares are added up without rounding

__extension__ using Whole = __int128; // of which no square of pixels is too large

// The highest value where the level is none that a pixel can have.
template <class Pixel>
Pixel limitOf(uint32_t saturation)
{
    constexpr Pixel highest = std::numeric_limits<Pixel>::max();
    return saturation == 0 || saturation > highest ? highest : static_cast<Pixel>(saturation);
}

// Exact, but for the root.
template <class Pixel>
FrameFigures figuresOf(const PixelView<Pixel>& pixels, uint64_t sum, uint32_t saturation)
{
    const auto count = static_cast<double>(pixels.size());
    const PixelTally tally = tallyOf(pixels.data(), pixels.size(), limitOf<Pixel>(saturation));
    const Whole all = static_cast<Whole>(pixels.size());
    const Whole distances = static_cast<Whole>(sum) - all * kMiddle<Pixel>;
    FrameFigures figures;
    figures.sum = sum;
    figures.least = tally.least;
    figures.most = tally.most;
    figures.mean = static_cast<double>(sum) / count;
    figures.deviation =
        std::sqrt(static_cast<double>(all * tally.squares - distances * distances)) / count;
    figures.saturated = tally.saturated;
    return figures;
}

FrameFigures figuresOf(const PixelView<uint32_t>& pixels, uint64_t sum, uint32_t saturation)
{
    const auto limit = limitOf<uint32_t>(saturation);
    FrameFigures figures;
    figures.sum = sum;
    const auto count = static_cast<double>(pixels.size());
    figures.mean = static_cast<double>(sum) / count;
    figures.least = figures.most = pixels[0];
    double squares = 0;
    for (size_t begin = 0; begin < pixels.size(); begin += kBatch) {
        const size_t end = std::min(begin + kBatch, pixels.size());
        double batch = 0;
        for (size_t i = begin; i < end; ++i) {
            const uint32_t pixel = pixels[i];
            figures.least = std::min(figures.least, pixel);
            figures.most = std::max(figures.most, pixel);
            figures.saturated += pixel >= limit ? 1 : 0;
            const double distance = pixel - figures.mean;
            batch += distance * distance;
        }
        squares += batch;
    }
    figures.deviation = std::sqrt(squares / count);
    return figures;
}

template <class Pixel>
Histogram histogramOf(const PixelView<Pixel>& pixels, size_t mostBins)
{
    const auto [least, most] = std::minmax_element(pixels.begin(), pixels.end());
    const uint64_t values = uint64_t{*most} - *least + 1;
    const uint64_t width = (values + mostBins - 1) / mostBins;
    Histogram histogram;
    histogram.first = *least;
    histogram.width = static_cast<double>(width);
    histogram.counts.resize((values + width - 1) / width);
    for (const Pixel pixel : pixels) {
        ++histogram.counts[(pixel - *least) / width];
    }
    return histogram;
}

} // namespace

FrameFigures figuresOf(const Frame& frame, uint32_t saturation)
{
    if (frame.bits() == 8) return figuresOf(frame.pixels<uint8_t>(), frame.sum(), saturation);
    if (frame.bits() == 16) return figuresOf(frame.pixels<uint16_t>(), frame.sum(), saturation);
    return figuresOf(frame.pixels<uint32_t>(), frame.sum(), saturation);
}

Histogram histogramOf(const Frame& frame, size_t mostBins)
{
    if (mostBins == 0) throw Error(ErrorKind::Usage, "a histogram has one bin at least");
    if (frame.bits() == 8) return histogramOf(frame.pixels<uint8_t>(), mostBins);
    if (frame.bits() == 16) return histogramOf(frame.pixels<uint16_t>(), mostBins);
    return histogramOf(frame.pixels<uint32_t>(), mostBins);
}

double Histogram::percentile(double part) const
{
    const uint64_t all = std::accumulate(counts.begin(), counts.end(), uint64_t{0});
    if (all == 0) return first;
    // Of values in order, the one at this place; those of a bin are as if evenly spread.
    const double place = std::clamp(part, 0.0, 1.0) * static_cast<double>(all - 1);
    double before = 0;
    size_t bin = 0;
    while (bin + 1 < counts.size() && before + static_cast<double>(counts[bin]) <= place) {
        before += static_cast<double>(counts[bin++]);
    }
    const double start = first + static_cast<double>(bin) * width;
    if (width == 1 || counts[bin] == 0) return start;
    return start + width * (place - before + 0.5) / static_cast<double>(counts[bin]);
}

} // namespace vxcam

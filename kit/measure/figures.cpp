#include <vxcamkit/figures.h>

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace vxcam {

namespace {

constexpr size_t kBatch = 4096; // pixels whose squares are added up without rounding

template <class Pixel>
FrameFigures figuresOf(const PixelView<Pixel>& pixels, uint64_t sum, uint32_t saturation)
{
    const Pixel limit = saturation == 0 || saturation > std::numeric_limits<Pixel>::max()
                            ? std::numeric_limits<Pixel>::max()
                            : static_cast<Pixel>(saturation);
    FrameFigures figures;
    figures.sum = sum;
    const auto count = static_cast<double>(pixels.size());
    figures.mean = static_cast<double>(sum) / count;
    Pixel least = pixels[0], most = pixels[0];
    double squares = 0;
    for (size_t begin = 0; begin < pixels.size(); begin += kBatch) {
        const size_t end = std::min(begin + kBatch, pixels.size());
        double batch = 0;
        for (size_t i = begin; i < end; ++i) {
            const Pixel pixel = pixels[i];
            least = std::min(least, pixel);
            most = std::max(most, pixel);
            figures.saturated += pixel >= limit ? 1 : 0;
            const double distance = pixel - figures.mean;
            batch += distance * distance;
        }
        squares += batch;
    }
    figures.least = least;
    figures.most = most;
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

#include <vxcamkit/photon_transfer.h>

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace vxcam {

namespace {

constexpr int kTile = 16;              // pixels: its side
constexpr double kOutlier = 6;         // so many sigmas from the others is no noise
constexpr double kLeastUsed = 0.02;    // of the frame, for a variance that means something
constexpr double kHalf = 0.5;          // of the pixels, or of the variance that was expected
constexpr double kFitted = 0.7;        // of the range, for the gain
constexpr double kRounding = 1.0 / 12; // ADU^2: what whole numbers add
constexpr size_t kLeastPairs = 2;

struct Sums {
    double mean = 0, variance = 0;
    size_t tiles = 0;
};

// Where two frames lie, and a tile of them.
template <class Pixel>
struct Tiles {
    const Pixel* first;
    const Pixel* second;
    size_t columns;

    void add(size_t row, size_t column, size_t height, size_t width, Sums* sums) const
    {
        constexpr Pixel full = std::numeric_limits<Pixel>::max();
        const auto count = static_cast<double>(height * width);
        double light = 0, difference = 0, squares = 0, least = 0, most = 0;
        for (size_t y = row; y < row + height; ++y) {
            for (size_t x = column; x < column + width; ++x) {
                const Pixel one = first[y * columns + x], other = second[y * columns + x];
                if (one == full || other == full) return;
                const double apart = static_cast<double>(one) - static_cast<double>(other);
                light += static_cast<double>(one) + static_cast<double>(other);
                difference += apart;
                squares += apart * apart;
                least = std::min(least, apart);
                most = std::max(most, apart);
            }
        }
        const double middle = difference / count;
        const double variance = (squares - difference * middle) / (count - 1);
        const double reach = kOutlier * std::sqrt(std::max(variance, kRounding));
        if (most - middle > reach || middle - least > reach) return;
        sums->mean += light / (2 * count);
        sums->variance += variance / 2;
        ++sums->tiles;
    }
};

template <class Pixel>
FramePair pairOf(const Frame& first, const Frame& second)
{
    const PixelView<Pixel> one = first.pixels<Pixel>(), other = second.pixels<Pixel>();
    const auto rows = static_cast<size_t>(first.rows());
    const auto columns = static_cast<size_t>(first.columns());
    const Tiles<Pixel> tiles{one.data(), other.data(), columns};
    const size_t height = std::min<size_t>(kTile, rows), width = std::min<size_t>(kTile, columns);
    Sums sums;
    size_t all = 0;
    for (size_t row = 0; row + height <= rows; row += height) {
        for (size_t column = 0; column + width <= columns; column += width) {
            tiles.add(row, column, height, width, &sums);
            ++all;
        }
    }
    FramePair pair;
    std::vector<Pixel> sorted(one.begin(), one.end());
    sorted.insert(sorted.end(), other.begin(), other.end());
    const auto full = std::count(sorted.begin(), sorted.end(), std::numeric_limits<Pixel>::max());
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    pair.level = *middle;
    pair.saturated = static_cast<double>(full) / static_cast<double>(sorted.size());
    if (sums.tiles > 0) {
        pair.mean = sums.mean / static_cast<double>(sums.tiles);
        pair.variance = sums.variance / static_cast<double>(sums.tiles);
        pair.used = static_cast<double>(sums.tiles) / static_cast<double>(all);
    }
    return pair;
}

// The slope of variance over signal through the dark pair, each point with the same relative error;
// ADU for an electron. 0 without any.
double slopeOf(const FramePair& dark, const std::vector<FramePair>& flats, double most,
               std::vector<bool>* isFitted)
{
    double above = 0, below = 0;
    isFitted->assign(flats.size(), false);
    for (size_t i = 0; i < flats.size(); ++i) {
        const FramePair& flat = flats[i];
        const double signal = flat.mean - dark.mean;
        if (flat.used < kLeastUsed || signal <= 0 || flat.level > most || flat.variance <= 0) {
            continue;
        }
        const double weight = 1 / (flat.variance * flat.variance);
        above += weight * signal * (flat.variance - dark.variance);
        below += weight * signal * signal;
        (*isFitted)[i] = true;
    }
    return below > 0 ? std::max(above / below, 0.0) : 0;
}

bool isSaturated(const FramePair& flat, const FramePair& dark, double slope)
{
    if (flat.saturated >= kHalf) return true;
    const double expected = dark.variance + slope * (flat.mean - dark.mean);
    return flat.used >= kLeastUsed && flat.variance < kHalf * expected;
}

} // namespace

FramePair pairOf(const Frame& first, const Frame& second)
{
    const bool isSame = first.rows() == second.rows() && first.columns() == second.columns() &&
                        first.bits() == second.bits();
    if (!isSame) throw Error(ErrorKind::Usage, "the frames of a pair have one size");
    if (first.bits() > 16) throw Error(ErrorKind::Usage, "the frames of a pair have 8 or 16 bits");
    FramePair pair =
        first.bits() == 8 ? pairOf<uint8_t>(first, second) : pairOf<uint16_t>(first, second);
    pair.exposure = std::chrono::duration<double>(first.facts().exposure).count();
    return pair;
}

PhotonTransfer photonTransferOf(const FramePair& dark, const std::vector<FramePair>& flats)
{
    if (dark.used < kLeastUsed) {
        throw Error(ErrorKind::Usage,
                    "photon transfer: too little of the dark pair can be used, for "
                    "pixels that are full or stand out");
    }
    PhotonTransfer result;
    result.offset = dark.mean;
    double highest = dark.level;
    for (const FramePair& flat : flats) {
        highest = std::max(highest, flat.level);
    }
    // What half of the range says is enough to see which pairs are saturated.
    const auto part = [&](double share) { return dark.level + share * (highest - dark.level); };
    double slope = slopeOf(dark, flats, part(kHalf), &result.isFitted);
    const auto isFull = [&](const FramePair& flat) { return isSaturated(flat, dark, slope); };
    const auto full = std::find_if(flats.begin(), flats.end(), isFull);
    const bool hasEnd = slope > 0 && full != flats.end();
    result.endsAtFullScale = hasEnd && full->saturated >= kHalf;
    slope = slopeOf(dark, flats, hasEnd ? part(kFitted) : highest, &result.isFitted);
    const auto fitted = std::count(result.isFitted.begin(), result.isFitted.end(), true);
    if (slope <= 0 || static_cast<size_t>(fitted) < kLeastPairs) {
        throw Error(ErrorKind::Usage, "photon transfer: fewer than two pairs of frames have noise "
                                      "that grows with their light");
    }
    result.gain = 1 / slope;
    result.readNoise = std::sqrt(std::max(dark.variance - kRounding, 0.0)) / slope;
    if (hasEnd) result.fullWell = (highest - dark.level) / slope;
    return result;
}

std::optional<double> gainUncertainty(const PhotonTransfer& result, const FramePair& dark,
                                      const std::vector<FramePair>& flats)
{
    double off = 0, below = 0;
    size_t count = 0;
    for (size_t i = 0; i < std::min(flats.size(), result.isFitted.size()); ++i) {
        if (!result.isFitted[i]) continue;
        const double signal = flats[i].mean - dark.mean;
        const double weight = 1 / (flats[i].variance * flats[i].variance);
        const double error = flats[i].variance - dark.variance - signal / result.gain;
        off += weight * error * error;
        below += weight * signal * signal;
        ++count;
    }
    if (count <= kLeastPairs) return std::nullopt;
    const double slopeError = std::sqrt(off / static_cast<double>(count - 1) / below);
    return slopeError * result.gain * result.gain;
}

} // namespace vxcam

#include "measure/star_shape.h"

#include "measure/samples.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace vxcam {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kFwhmOfSigma = 2.3548200450309493;  // 2 sqrt(2 ln 2)
constexpr double kLeastSigma = 0.4, kMostSigma = 60; // pixels
constexpr double kSigmas = 4;                        // where a star ends
constexpr double kWindow = 1.5;            // how wide the window for centre and axes is, in sigmas
constexpr int kRounds = 20;                // of centre and axes
constexpr double kStill = 1e-3;            // pixels that the centre moves at the end
constexpr double kRing = 4;                // pixels behind that, where the background is looked at
constexpr int kParts = 5;                  // into which a pixel is cut on each axis
constexpr int kBins = 20;                  // of a pixel, in the curve of growth
constexpr double kPartVariance = 1.0 / 12; // that spreading light evenly over pixels adds

// Without std::hypot()'s care for numbers that are far larger than these.
double distanceOf(double x, double y)
{
    return std::sqrt(x * x + y * y);
}

// Light around a centre under a gaussian window.
struct Moments {
    double weight = 0, column = 0, row = 0;
    double columns = 0, rows = 0, mixed = 0; // of the second order
};

class Heap
{
public:
    Heap(const SkyFree& sky, const Blob& blob, double threshold)
        : sky_(sky), column_(blob.column), row_(blob.row)
    {
        // A gaussian of that peak is above the threshold on so large an area.
        const double height = std::log(std::max(blob.peak / threshold, 1.1));
        sigma_ = std::sqrt(blob.pixels / kPi / (2 * height));
        sigma_ = std::clamp(sigma_, kLeastSigma, kMostSigma);
    }

    std::optional<Star> measure()
    {
        if (isInside(radius() + kRing + 1)) level_ = levelAround();
        if (!settle() || !isInside(radius() + kRing + 1)) return std::nullopt;
        level_ = levelAround();
        if (!settle() || !isInside(radius() + 1)) return std::nullopt;
        Star star;
        star.column = column_;
        star.row = row_;
        star.fwhm = kFwhmOfSigma * sigma_;
        star.elongation = elongation_;
        if (!grow(radius(), &star)) return std::nullopt;
        return star;
    }

private:
    bool isInside(double radius) const
    {
        const int first = static_cast<int>(std::floor(row_ - radius));
        const int last = static_cast<int>(std::ceil(row_ + radius));
        if (column_ - radius < 0 || column_ + radius > sky_.columns - 1 || first < 0 ||
            last > sky_.rows - 1) {
            return false;
        }
        for (int row = first; row <= last; ++row) {
            if (sky_.isMissing[static_cast<size_t>(row)]) return false;
        }
        return true;
    }

    double radius() const { return std::max(kSigmas * sigma_, 3.0); }
    double light(int row, int column) const { return sky_.at(row, column) - level_; }

    double levelAround() const;
    Moments moments(double window) const;
    bool settle();
    bool grow(double radius, Star* star) const;

    const SkyFree& sky_;
    double column_, row_;
    double sigma_ = 1, elongation_ = 1;
    double level_ = 0; // around it, of what is left of the background
};

// A wide star lifts the background of its tile, and stands in the light of its neighbours.
double Heap::levelAround() const
{
    const double inner = radius(), outer = inner + kRing;
    std::vector<double> values;
    for (int row = static_cast<int>(row_ - outer); row <= static_cast<int>(row_ + outer) + 1;
         ++row) {
        for (int column = static_cast<int>(column_ - outer);
             column <= static_cast<int>(column_ + outer) + 1; ++column) {
            const double distance = distanceOf(column - column_, row - row_);
            if (distance >= inner && distance <= outer) values.push_back(sky_.at(row, column));
        }
    }
    return values.empty() ? 0 : quantile(&values, 0.5);
}

Moments Heap::moments(double window) const
{
    Moments sums;
    const double radius = 3 * window;
    const int firstColumn = std::max(0, static_cast<int>(column_ - radius));
    const int lastColumn = std::min(sky_.columns - 1, static_cast<int>(column_ + radius) + 1);
    const auto weightOf = [window](double distance) {
        return std::exp(-distance * distance / (2 * window * window));
    };
    std::vector<double> weights; // of columns; a pixel's is that of its column and of its row
    for (int column = firstColumn; column <= lastColumn; ++column) {
        weights.push_back(weightOf(column - column_));
    }
    for (int row = std::max(0, static_cast<int>(row_ - radius));
         row <= std::min(sky_.rows - 1, static_cast<int>(row_ + radius) + 1); ++row) {
        const double y = row - row_, rowWeight = weightOf(y);
        for (int column = firstColumn; column <= lastColumn; ++column) {
            const double x = column - column_;
            const double seen =
                light(row, column) * rowWeight * weights[static_cast<size_t>(column - firstColumn)];
            sums.weight += seen;
            sums.column += seen * x;
            sums.row += seen * y;
            sums.columns += seen * x * x;
            sums.rows += seen * y * y;
            sums.mixed += seen * x * y;
        }
    }
    return sums;
}

// Finds centre, width and elongation, one from the other, until they stay. What a window makes of a
// gaussian is known, and taken back.
bool Heap::settle()
{
    double moved = 1;
    for (int round = 0; round < kRounds && moved > kStill; ++round) {
        const double window = kWindow * sigma_;
        const Moments sums = moments(window);
        if (!(sums.weight > 0)) return false;
        const double x = sums.column / sums.weight, y = sums.row / sums.weight;
        const double half = (sums.columns - sums.rows) / sums.weight / 2 - (x * x - y * y) / 2;
        const double mean = (sums.columns + sums.rows) / sums.weight / 2 - (x * x + y * y) / 2;
        const double reach = std::hypot(half, sums.mixed / sums.weight - x * y);
        const auto unwindowed = [window](double variance) {
            return 1 / (1 / variance - 1 / (window * window));
        };
        const double small = mean - reach, large = mean + reach;
        if (!(small > 0) || large >= 0.95 * window * window) return false;
        const double before = sigma_;
        sigma_ = std::clamp(std::pow(unwindowed(small) * unwindowed(large), 0.25), kLeastSigma,
                            kMostSigma);
        elongation_ = std::sqrt(unwindowed(large) / unwindowed(small));
        // The same factor makes the way to the centre under the window shorter.
        const double step = 1 + sigma_ * sigma_ / (window * window);
        column_ += step * x;
        row_ += step * y;
        moved = std::hypot(step * x, step * y) + std::abs(sigma_ - before);
        if (!isInside(0)) return false;
    }
    return true;
}

// Adds up light from the centre outwards, each pixel cut into parts.
bool Heap::grow(double radius, Star* star) const
{
    std::vector<double> rings(static_cast<size_t>(radius * kBins) + 1);
    for (int row = static_cast<int>(row_ - radius); row <= static_cast<int>(row_ + radius) + 1;
         ++row) {
        for (int column = static_cast<int>(column_ - radius);
             column <= static_cast<int>(column_ + radius) + 1; ++column) {
            const double share = light(row, column) / (kParts * kParts);
            for (int part = 0; part < kParts * kParts; ++part) {
                const int across = part % kParts, down = part / kParts;
                const double x = column + (across + 0.5) / kParts - 0.5 - column_;
                const double y = row + (down + 0.5) / kParts - 0.5 - row_;
                const double distance = distanceOf(x, y);
                if (distance < radius) rings[static_cast<size_t>(distance * kBins)] += share;
            }
        }
    }
    for (const double ring : rings) {
        star->flux += ring;
    }
    if (!(star->flux > 0)) return false;
    double sum = 0;
    size_t ring = 0;
    while (ring + 1 < rings.size() && sum + rings[ring] < star->flux / 2) {
        sum += rings[ring++];
    }
    const double part = rings[ring] > 0 ? (star->flux / 2 - sum) / rings[ring] : 0;
    const double raw = 2 * (static_cast<double>(ring) + part) / kBins;
    const double spread = kFwhmOfSigma * kFwhmOfSigma * kPartVariance;
    star->hfd = std::sqrt(std::max(raw * raw - spread, spread));
    return true;
}

} // namespace

std::optional<Star> measuredStar(const SkyFree& sky, const Blob& blob, double threshold)
{
    std::optional<Star> star = Heap(sky, blob, threshold).measure();
    if (star) star->peak = blob.peak;
    return star;
}

} // namespace vxcam

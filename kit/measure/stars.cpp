#include <vxcamkit/stars.h>

#include "measure/samples.h"
#include "measure/star_shape.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace vxcam {

namespace {

constexpr double kLeastNoise = 0.5; // where pixels are rounded

// Finds pixels above a threshold that are connected, also by their corners.
class BlobFinder
{
public:
    BlobFinder(const SkyFree& sky, float threshold)
        : sky_(sky), threshold_(threshold), isSeen_(sky.pixels.size())
    {}

    template <class Use>
    void each(Use use)
    {
        for (size_t i = 0; i < sky_.pixels.size(); ++i) {
            if (sky_.pixels[i] > threshold_ && !isSeen_[i]) use(blobAt(i));
        }
    }

private:
    Blob blobAt(size_t start)
    {
        Blob blob;
        double light = 0;
        const auto columns = static_cast<size_t>(sky_.columns);
        isSeen_[start] = true;
        stack_.push_back(start);
        while (!stack_.empty()) {
            const size_t at = stack_.back();
            stack_.pop_back();
            const int row = static_cast<int>(at / columns), column = static_cast<int>(at % columns);
            const double pixel = sky_.pixels[at];
            light += pixel;
            blob.row += pixel * row;
            blob.column += pixel * column;
            blob.peak = std::max(blob.peak, pixel);
            ++blob.pixels;
            for (int y = std::max(0, row - 1); y <= std::min(sky_.rows - 1, row + 1); ++y) {
                for (int x = std::max(0, column - 1); x <= std::min(sky_.columns - 1, column + 1);
                     ++x) {
                    visit(static_cast<size_t>(y) * columns + static_cast<size_t>(x));
                }
            }
        }
        blob.row /= light;
        blob.column /= light;
        return blob;
    }

    void visit(size_t at)
    {
        if (isSeen_[at] || sky_.pixels[at] <= threshold_) return;
        isSeen_[at] = true;
        stack_.push_back(at);
    }

    const SkyFree& sky_;
    const float threshold_;
    std::vector<bool> isSeen_;
    std::vector<size_t> stack_;
};

void check(const StarOptions& options)
{
    if (options.threshold > 0 && options.leastPixels > 0 && options.mesh > 1) return;
    throw Error(ErrorKind::Usage,
                "stars: the threshold is above 0, pixels are 1 at least, the mesh "
                "is 2 at least");
}

double highestOf(const Frame& frame, uint32_t saturation)
{
    const double most = std::ldexp(1.0, frame.bits()) - 1;
    return saturation == 0 ? most : std::min<double>(saturation, most);
}

bool isSaturated(const Frame& frame, const Star& star, double saturation)
{
    const int row = static_cast<int>(std::lround(star.row));
    const int column = static_cast<int>(std::lround(star.column));
    for (int y = std::max(0, row - 1); y <= std::min(frame.rows() - 1, row + 1); ++y) {
        for (int x = std::max(0, column - 1); x <= std::min(frame.columns() - 1, column + 1); ++x) {
            if (frame.pixel(y, x) >= saturation) return true;
        }
    }
    return false;
}

double medianOf(const std::vector<Star>& stars, double Star::*figure)
{
    std::vector<double> values;
    for (const Star& star : stars) {
        if (!star.isSaturated) values.push_back(star.*figure);
    }
    return values.empty() ? 0 : quantile(&values, 0.5);
}

} // namespace

double StarField::hfd() const
{
    return medianOf(stars, &Star::hfd);
}

double StarField::fwhm() const
{
    return medianOf(stars, &Star::fwhm);
}

double StarField::elongation() const
{
    return medianOf(stars, &Star::elongation);
}

StarField findStars(const Frame& frame, const StarOptions& options)
{
    check(options);
    const SkyFree sky = withoutSky(frame, options.mesh);
    StarField field;
    field.background = {sky.level, sky.noise};
    const double threshold = options.threshold * std::max(sky.noise, kLeastNoise);
    const double saturation = highestOf(frame, options.saturation);
    BlobFinder(sky, static_cast<float>(threshold)).each([&](const Blob& blob) {
        if (blob.pixels < options.leastPixels) return;
        std::optional<Star> star = measuredStar(sky, blob, threshold);
        if (!star) return;
        star->isSaturated = isSaturated(frame, *star, saturation);
        field.stars.push_back(*star);
    });
    std::sort(field.stars.begin(), field.stars.end(),
              [](const Star& one, const Star& other) { return one.flux > other.flux; });
    if (field.stars.size() > options.most) field.stars.resize(options.most);
    return field;
}

} // namespace vxcam

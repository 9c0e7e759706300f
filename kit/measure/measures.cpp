#include <vxcamkit/measures.h>

#include <vxcamkit/figures.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>

namespace vxcam {

namespace {

constexpr int kDecimals = 2; // of a pixel

// The rows that came, one below the other; nothing when there are none.
std::optional<Frame> rowsThatCame(const Frame& frame)
{
    const std::vector<int>& missing = frame.facts().missingRows;
    if (missing.empty()) return frame;
    std::vector<bool> isMissing(static_cast<size_t>(frame.rows()));
    for (const int row : missing) {
        if (row >= 0 && row < frame.rows()) isMissing[static_cast<size_t>(row)] = true;
    }
    FrameFacts facts;
    facts.columns = frame.columns();
    facts.bits = frame.bits();
    for (const bool isGone : isMissing) {
        facts.rows += isGone ? 0 : 1;
    }
    if (facts.rows == 0) return std::nullopt;
    Frame rest(facts);
    const size_t bytes = frame.bytes() / isMissing.size();
    const char* from = static_cast<const char*>(frame.data());
    char* to = static_cast<char*>(rest.mutableData());
    for (size_t row = 0; row < isMissing.size(); ++row, from += bytes) {
        if (isMissing[row]) continue;
        std::memcpy(to, from, bytes);
        to += bytes;
    }
    return rest;
}

// Of wide pixels, whose values are too many for a histogram of each.
double medianOf(const PixelView<uint32_t>& pixels)
{
    std::vector<uint32_t> values(pixels.begin(), pixels.end());
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double medianOf(const Frame& frame)
{
    if (frame.bits() == 32) return medianOf(frame.pixels<uint32_t>());
    return histogramOf(frame).percentile(0.5);
}

} // namespace

Measures measuresOf(const Frame& frame, const StarOptions& options)
{
    Measures measures;
    StarOptions all = options;
    all.most = std::numeric_limits<size_t>::max();
    const StarField field = findStars(frame, all);
    const std::optional<Frame> rows = rowsThatCame(frame);
    if (!rows) return measures;
    const FrameFigures figures = figuresOf(*rows, options.saturation);
    measures.least = figures.least;
    measures.most = figures.most;
    measures.mean = figures.mean;
    measures.median = medianOf(*rows);
    measures.noise = field.background.noise;
    measures.saturated = figures.saturated;
    measures.stars = field.stars.size();
    measures.hfd = field.hfd();
    measures.fwhm = field.fwhm();
    measures.elongation = field.elongation();
    return measures;
}

std::vector<HeaderCard> cardsOf(const Measures& measures)
{
    std::vector<HeaderCard> cards{
        {"DATAMIN", int64_t{measures.least}, "[adu] the least pixel that came"},
        {"DATAMAX", int64_t{measures.most}, "[adu] the highest pixel"},
        {"NSTARS", static_cast<int64_t>(measures.stars), "stars that were found"}};
    if (measures.hfd > 0) {
        cards.push_back({"HFD", measures.hfd, "[pix] half flux diameter of stars", kDecimals});
        cards.push_back({"FWHM", measures.fwhm, "[pix] full width at half maximum", kDecimals});
    }
    return cards;
}

} // namespace vxcam

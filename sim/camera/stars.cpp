// The stars before it: where they stand, and their images.
#include "random.h"
#include "tcSimSensor.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double gnStarsPerPixel = 4e-4;
constexpr double gnFaintestStar = 400.0; // electrons a second
constexpr double gnBrightestStar = 4e6;
constexpr uint32_t gnBrightStars = 7;               // by chance alone there might be none
constexpr double gnNarrowest = 1.2, gnWidest = 1.5; // deviation, in pixels
constexpr uint32_t gnShapes = 4;                    // between them
constexpr double gnMostImages = 256;                // of a star in a trail

} // namespace

// Ten times fainter, about ten times as many.
void tcSimSensor::FindStars(uint64_t seed)
{
    tcSimRandom random(seed);
    const auto usual = static_cast<uint32_t>(gnStarsPerPixel * mnRows * mnColumns) + gnBrightStars;
    const uint32_t stars = mnStars < 0 ? usual : static_cast<uint32_t>(mnStars);
    for (uint32_t i = 0; i < stars; ++i) {
        double row = random.Uniform() * mnRows, column = random.Uniform() * mnColumns;
        double chance = std::max(random.Uniform(), 1e-9);
        double flux = std::min(gnFaintestStar / chance, gnBrightestStar);
        if (i < gnBrightStars) flux = gnBrightestStar / (1.0 + 2.0 * i * i);
        maStars.push_back({row, column, flux, random.Uniform(gnNarrowest, gnWidest)});
    }
}

void tcSimSensor::Look(const tsSimOptics& optics)
{
    if (optics == mtOptics) return;
    mtOptics = optics;
    maScene.assign(size_t{mnRows} * mnColumns, static_cast<float>(gnSimSky));
    if (mbNebulaKept) {
        maScene = maNebula;
    } else {
        AddNebula(MixBits(mnSeed, 2));
        maNebula = maScene;
        mbNebulaKept = true;
    }
    Draw();
}

void tcSimSensor::Draw()
{
    if (mtOptics.AsBuilt()) {
        for (const tsStar& star : maStars) {
            AddStar(star.row, star.column, star.flux, star.width);
        }
        return;
    }
    std::vector<tcSimStarShape> shapes;
    for (uint32_t i = 0; i < gnShapes; ++i) {
        shapes.emplace_back(gnNarrowest + (i + 0.5) * (gnWidest - gnNarrowest) / gnShapes,
                            mtOptics.defocus, mtOptics.seeing);
    }
    for (const tsStar& star : maStars) {
        const double place = (star.width - gnNarrowest) / (gnWidest - gnNarrowest) * gnShapes;
        AddTrail(star, shapes[std::min(static_cast<uint32_t>(place), gnShapes - 1)]);
    }
}

// Images side by side, close enough to be one. What leaves the field on one side comes in on the
// other.
void tcSimSensor::AddTrail(const tsStar& star, const tcSimStarShape& shape)
{
    const double length = std::hypot(mtOptics.trailRows, mtOptics.trailColumns);
    const double images = std::clamp(std::ceil(length / shape.Pace()), 1.0, gnMostImages);
    for (double i = 0.5; i < images; ++i) {
        const double row = star.row + mtOptics.rows + mtOptics.trailRows * i / images;
        const double column = star.column + mtOptics.columns + mtOptics.trailColumns * i / images;
        AddImage(row - std::floor(row / mnRows) * mnRows,
                 column - std::floor(column / mnColumns) * mnColumns, star.flux / images, shape);
    }
}

void tcSimSensor::AddImage(double row, double column, double flux, const tcSimStarShape& shape)
{
    const tsPatch patch = Around(row, column, shape.Reach(flux));
    for (int64_t y = patch.top; y <= patch.bottom; ++y) {
        float* scene = &maScene[static_cast<size_t>(y) * mnColumns];
        for (int64_t x = patch.left; x <= patch.right; ++x) {
            const double dx = static_cast<double>(x) - column, dy = static_cast<double>(y) - row;
            scene[x] += static_cast<float>(flux) * shape.At(std::sqrt(dx * dx + dy * dy));
        }
    }
}

tcSimSensor::tsPatch tcSimSensor::Around(double row, double column, double reach) const
{
    return {static_cast<int64_t>(std::max(0.0, std::floor(row - reach))),
            std::min<int64_t>(mnRows - 1, static_cast<int64_t>(row + reach)),
            static_cast<int64_t>(std::max(0.0, std::floor(column - reach))),
            std::min<int64_t>(mnColumns - 1, static_cast<int64_t>(column + reach))};
}

// A Gaussian core, and a wide faint skirt that shows only around bright stars.
void tcSimSensor::AddStar(double row, double column, double flux, double width)
{
    const double skirt = 0.06, skirtWidth = 5.0 * width;
    const double core = (1 - skirt) * flux / (6.283185307 * width * width);
    const double wide = skirt * flux / (6.283185307 * skirtWidth * skirtWidth);
    const double reach = wide > 1.0 ? skirtWidth * std::sqrt(2.0 * std::log(wide / 0.2))
                                    : width * std::sqrt(2.0 * std::log(std::max(core, 1.0) / 0.2));
    const tsPatch patch = Around(row, column, reach);
    for (int64_t y = patch.top; y <= patch.bottom; ++y) {
        for (int64_t x = patch.left; x <= patch.right; ++x) {
            double dx = static_cast<double>(x) - column, dy = static_cast<double>(y) - row;
            double distance = dx * dx + dy * dy;
            double value = core * std::exp(-distance / (2 * width * width)) +
                           wide * std::exp(-distance / (2 * skirtWidth * skirtWidth));
            maScene[static_cast<size_t>(y) * mnColumns + static_cast<size_t>(x)] +=
                static_cast<float>(value);
        }
    }
}

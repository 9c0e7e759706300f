// The stars of simulated frames, as a third party's program sees them.
#include "usual_program.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/measures.h>

#include <cstdlib>

namespace vxcam {

namespace {

constexpr double kEdge = 20; // pixels: stars there may be cut
constexpr double kSigmas = 10;

bool isInstalled(const std::string& program)
{
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Half flux diameters of stars whose peak is so many times the noise, away from the edges.
std::vector<double> theirs(const std::string& program, const Frame& frame, double noise)
{
    std::vector<double> diameters;
    for (const ListedStar& star : starsOfTheUsualProgram(program, frame)) {
        if (star.peak < kSigmas * noise || star.isSaturated) continue;
        const bool isInside = star.x - 1 > kEdge && star.y - 1 > kEdge &&
                              star.x < frame.columns() - kEdge && star.y < frame.rows() - kEdge;
        if (isInside) diameters.push_back(2 * star.radius);
    }
    return diameters;
}

std::vector<double> ours(const Frame& frame, double noise)
{
    StarOptions options;
    options.most = 100000;
    std::vector<double> diameters;
    for (const Star& star : findStars(frame, options).stars) {
        if (star.peak < kSigmas * noise || star.isSaturated) continue;
        const bool isInside = star.column > kEdge && star.row > kEdge &&
                              star.column + 1 < frame.columns() - kEdge &&
                              star.row + 1 < frame.rows() - kEdge;
        if (isInside) diameters.push_back(star.hfd);
    }
    return diameters;
}

} // namespace

TEST(UsualProgram, SeesTheSameStarsInSimulatedFrames)
{
    std::string program = "source-extractor";
    if (!isInstalled(program)) program = "sex";
    if (!isInstalled(program)) GTEST_SKIP() << "no source-extractor here";
    for (const int seed : {1, 2, 3}) {
        Camera camera = Camera::open("sim?sensor=1500x1000&scale=100&seed=" + std::to_string(seed));
        Plan plan;
        plan.exposure = std::chrono::seconds(2);
        const Frame frame = camera.grab(plan);
        const double noise = measuresOf(frame).noise;
        const std::vector<double> other = theirs(program, frame, noise), own = ours(frame, noise);
        ASSERT_GT(other.size(), 100u);
        const auto count = static_cast<double>(other.size());
        RecordProperty("theirs_" + std::to_string(seed), std::to_string(medianOf(other)));
        RecordProperty("ours_" + std::to_string(seed), std::to_string(medianOf(own)));
        EXPECT_NEAR(static_cast<double>(own.size()), count, 0.05 * count) << seed;
        EXPECT_NEAR(medianOf(own), medianOf(other), 0.05 * medianOf(other)) << seed;
    }
}

} // namespace vxcam

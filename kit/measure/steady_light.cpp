#include <vxcamkit/steady_light.h>

#include <vxcamkit/duration.h>
#include <vxcamkit/error.h>
#include <vxcamkit/figures.h>

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

using std::chrono::milliseconds;

constexpr int kFewestPairs = 4, kMostPairs = 200;
constexpr double kFull = 65535;
constexpr double kHalf = 0.5, kNearEnough = 0.1; // of full scale, and of that, for a first look
constexpr double kFaintest = 0.01;               // of the exposure that fills the scale ...
constexpr double kBeyond[] = {1.25, 1.8};        // ... and pairs that are brighter than it

double medianOf(const Frame& frame)
{
    return histogramOf(frame).percentile(kHalf);
}

void checkOptions(const TransferOptions& options)
{
    if (options.pairs < kFewestPairs || options.pairs > kMostPairs) {
        throw Error(ErrorKind::Usage, "pairs " + std::to_string(options.pairs) + ": give " +
                                          std::to_string(kFewestPairs) + " to " +
                                          std::to_string(kMostPairs));
    }
    const bool isFound = options.from.count() == 0 && options.to.count() == 0;
    if (!isFound && (options.from.count() < 1 || options.to <= options.from)) {
        throw Error(ErrorKind::Usage,
                    "the shortest exposure is 1 ms or more, and the longest one longer than it");
    }
    if (options.longest.count() < 1) {
        throw Error(ErrorKind::Usage, "the longest exposure that is tried is 1 ms or more");
    }
}

// Evenly spread over the decades of light, and some beyond the end of the scale.
std::vector<milliseconds> exposuresOf(const TransferOptions& options, const Plan& plan,
                                      const TakeFrames& take)
{
    auto first = static_cast<double>(options.from.count());
    auto last = static_cast<double>(options.to.count());
    std::vector<double> times;
    int spread = options.pairs;
    if (options.to.count() == 0) {
        ExposureGoal goal;
        goal.level = kHalf * kFull;
        goal.tolerance = kNearEnough;
        goal.most = options.longest;
        last = static_cast<double>(exposureFor(plan, goal, take).count()) / kHalf;
        for (const double beyond : kBeyond) {
            times.push_back(beyond * last);
        }
        spread -= static_cast<int>(times.size());
        first = std::max(1.0, kFaintest * last);
    }
    for (int i = 0; i < spread; ++i) {
        times.push_back(first * std::pow(last / first, static_cast<double>(i) / (spread - 1)));
    }
    std::sort(times.begin(), times.end());
    std::vector<milliseconds> exposures;
    for (const double time : times) {
        exposures.emplace_back(static_cast<int64_t>(std::llround(time)));
    }
    exposures.erase(std::unique(exposures.begin(), exposures.end()), exposures.end());
    return exposures;
}

FramePair takePair(Plan plan, FrameType type, milliseconds exposure, const TakeFrames& take,
                   const std::string& what)
{
    plan.type = type;
    plan.exposure = exposure;
    const std::vector<Frame> frames = take(plan, what);
    return pairOf(frames.at(0), frames.at(1));
}

} // namespace

milliseconds exposureFor(Plan plan, ExposureGoal goal, const TakeFrames& take, const TellTry& told)
{
    using State = ExposureSearch::State;
    Plan dark = plan;
    dark.type = FrameType::Bias;
    dark.exposure = std::chrono::microseconds(0);
    dark.frames = plan.frames = 1;
    goal.offset = medianOf(take(dark, "bias").at(0));
    ExposureSearch search(goal);
    State state = State::Searching;
    while (state == State::Searching) {
        const milliseconds exposure = search.exposure();
        plan.exposure = exposure;
        const double median = medianOf(take(plan, "level").at(0));
        state = search.add(median);
        if (told) told(exposure, median);
    }
    if (state == State::Found) return search.exposure();
    const std::string limit = exactText(search.exposure());
    if (state == State::TooDark) throw Error(ErrorKind::Camera, "too dark, even for " + limit);
    if (state == State::TooBright) throw Error(ErrorKind::Camera, "too bright, even for " + limit);
    throw Error(ErrorKind::Camera, "the light changes all the time");
}

TransferSeries takeTransfer(const TransferOptions& options, const TakeFrames& take)
{
    checkOptions(options);
    Plan plan = options.plan;
    plan.kind = ReadoutKind::Area;
    plan.type = FrameType::Flat;
    plan.frames = 2;
    TransferSeries series;
    series.dark = takePair(plan, FrameType::Bias, milliseconds(0), take, "bias");
    const std::vector<milliseconds> exposures = exposuresOf(options, plan, take);
    for (const milliseconds exposure : exposures) {
        const std::string which = "pair " + std::to_string(series.flats.size() + 1) + "/" +
                                  std::to_string(exposures.size());
        series.flats.push_back(takePair(plan, FrameType::Flat, exposure, take, which));
    }
    return series;
}

} // namespace vxcam

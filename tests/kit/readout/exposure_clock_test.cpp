#include "readout/exposure_clock.h"
#include "readout/host_clock.h"

#include <gtest/gtest.h>

#include <sys/timex.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace vxcam;
using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using How = FrameTimes::How;

namespace {

constexpr SteadyTime kStart{1000s};
constexpr UtcTime kStartUtc{1700000000s};

Moment at(SteadyTime time)
{
    return {kStartUtc + (time - kStart), time, true};
}

nanoseconds random(std::mt19937_64& generator, nanoseconds least, nanoseconds most)
{
    return nanoseconds(
        std::uniform_int_distribution<int64_t>(least.count(), most.count())(generator));
}

void trigger(ExposureClock& clock, bool isActive, SteadyTime begun, SteadyTime done)
{
    clock.triggerEnds(clock.triggerBegins(isActive, begun), done);
}

// A camera as it may be: with delays there and back, late timers, and a clock that is off.
struct Model {
    ExposurePlan plan;
    nanoseconds there = 50us, back = 50us, jitter = 100us; // of the network, and of the host
    nanoseconds late = 80us;                               // of a timer of the camera, at most
    nanoseconds readout = 1ms;                             // to send a frame
    double rate = 1.0;                                     // of the camera's clock
    double busy = 0;                                       // how often the host is not there ...
    nanoseconds busyFor = 20ms;                            // ... for up to so long
    std::mt19937_64 generator{7};

    std::vector<SteadyTime> truth = {};
    std::vector<FrameTimes> told = {};

    nanoseconds cameraTime(nanoseconds time) const
    {
        return nanoseconds(static_cast<int64_t>(static_cast<double>(time.count()) * rate));
    }

    void run(int frames)
    {
        ExposureClock clock(plan);
        SteadyTime command = kStart;
        SteadyTime begin = command + there + random(generator, 0ns, jitter);
        for (int i = 1; i <= frames; ++i) {
            const SteadyTime end = begin + cameraTime(plan.exposure) + random(generator, 0ns, late);
            SteadyTime first = end + back + random(generator, 0ns, jitter);
            if (std::bernoulli_distribution(busy)(generator))
                first += random(generator, 0ns, busyFor);
            const SteadyTime last = first + readout;
            std::optional<nanoseconds> exposure;
            FrameMoments moments{i, at(command), at(command + 10us), at(first), at(last), false};
            truth.push_back(begin);
            told.push_back(clock.timesOf(moments, &exposure));
            begin = std::max(begin + cameraTime(plan.interval), end + readout) +
                    random(generator, 0ns, late);
        }
    }

    nanoseconds error(size_t i) const
    {
        const nanoseconds off = told[i].begin - at(truth[i]).utc;
        return off < 0ns ? -off : off;
    }
    size_t wrong() const
    {
        size_t count = 0;
        for (size_t i = 0; i < truth.size(); ++i) {
            if (error(i) > told[i].uncertainty) ++count;
        }
        return count;
    }
    nanoseconds typical() const
    {
        std::vector<nanoseconds> all;
        for (const FrameTimes& times : told) {
            all.push_back(times.uncertainty);
        }
        std::sort(all.begin(), all.end());
        return all[all.size() / 2];
    }
};

Model modelOf(nanoseconds exposure, nanoseconds interval)
{
    Model model;
    model.plan.exposure = exposure;
    model.plan.interval = interval;
    return model;
}

} // namespace

TEST(ExposureClock, PutsACommandedExposureBetweenCommandAndFirstPacket)
{
    ExposureClock clock({100ms, 0ns, 1ms});
    std::optional<nanoseconds> exposure;
    const FrameTimes times = clock.timesOf(
        {1, at(kStart), at(kStart + 1ms), at(kStart + 110ms), at(kStart + 120ms)}, &exposure);
    EXPECT_EQ(times.how, How::Commanded);
    // Between 0 and 10 ms behind the command, and 0.01 ms that the camera's clock may be off.
    EXPECT_NEAR(static_cast<double>((times.begin - kStartUtc).count()), 5.005e6, 1e3);
    EXPECT_NEAR(static_cast<double>(times.uncertainty.count()), 5.005e6, 2e3);
    EXPECT_EQ(times.end - times.begin, 100ms);
    EXPECT_EQ(times.middle - times.begin, 50ms);
    EXPECT_EQ(times.commandSent.steady, kStart + 1ms);
    EXPECT_FALSE(exposure.has_value());
}

TEST(ExposureClock, FollowsTheImageInterval)
{
    Model model = modelOf(5ms, 20ms);
    model.run(1000);
    EXPECT_EQ(model.wrong(), 0u);
    EXPECT_LT(model.typical(), 2ms);
    EXPECT_EQ(std::count_if(model.told.begin() + 1, model.told.end(),
                            [](const FrameTimes& times) { return times.how == How::Interval; }),
              999);
}

TEST(ExposureClock, HoldsWithNetworkDelayAndABusyHost)
{
    for (const nanoseconds interval : {2ms, 10ms, 50ms, 1000ms}) {
        Model model = modelOf(1ms, interval);
        model.there = model.back = 20ms;
        model.jitter = 3ms;
        model.busy = 0.5;
        model.run(2000);
        EXPECT_EQ(model.wrong(), 0u) << interval.count();
    }
}

TEST(ExposureClock, HoldsWhereTheCamerasClockIsOff)
{
    for (const double rate : {0.99995, 1.00005}) {
        Model model = modelOf(10ms, 100ms);
        model.rate = rate;
        model.run(5000);
        EXPECT_EQ(model.wrong(), 0u) << rate;
        EXPECT_LT(model.typical(), 2ms) << rate;
    }
}

TEST(ExposureClock, SaysThatFramesWithoutAPauseAreOnlyBounded)
{
    Model model = modelOf(1ms, 0ms);
    model.readout = 5ms;
    model.busy = 0.2;
    model.run(1000);
    EXPECT_EQ(model.wrong(), 0u);
    for (size_t i = 1; i < model.told.size(); ++i) {
        EXPECT_EQ(model.told[i].how, How::Bounded);
    }
    EXPECT_LT(model.typical(), 50ms);
}

// More of them than are looked back on, in time, and read at once half a second later.
TEST(ExposureClock, TakesNoFrameForQuickThatMayHaveWaited)
{
    ExposureClock clock({1ms, 5ms, 1ms});
    std::optional<nanoseconds> exposure;
    for (int number = 1; number <= 120; ++number) {
        const nanoseconds truth = 5ms * (number - 1) + 100us;
        const bool isLate = number > 10 && number <= 110;
        const SteadyTime packet = kStart + (isLate ? 600ms + 10us * number : truth + 1100us);
        FrameMoments moments{number, at(kStart), at(kStart), at(packet), at(packet)};
        if (isLate && number > 11) moments.firstPacketAfter = at(kStart + 46ms);
        const FrameTimes times = clock.timesOf(moments, &exposure);
        EXPECT_LE(times.begin - times.uncertainty, kStartUtc + truth) << number;
        EXPECT_GE(times.begin + times.uncertainty, kStartUtc + truth) << number;
        EXPECT_LT(times.uncertainty, number <= 10 ? 2ms : 1s) << number;
    }
}

TEST(ExposureClock, TakesNoTriggerFromOutsideForRecentWhoseFrameMayHaveWaited)
{
    ExposurePlan plan{10ms, 0ns, 1ms};
    plan.firstIsTriggered = plan.eachIsTriggered = true;
    ExposureClock clock(plan);
    std::optional<nanoseconds> exposure;
    const SteadyTime packet = kStart + 60s, truth = packet - 300ms;
    FrameMoments moments{1, at(kStart), at(kStart), at(packet), at(packet)};
    moments.firstPacketAfter = at(truth);
    const FrameTimes times = clock.timesOf(moments, &exposure);
    EXPECT_LE(times.begin - times.uncertainty, at(truth).utc);
    EXPECT_GE(times.begin + times.uncertainty, at(truth).utc);
}

TEST(ExposureClock, AssumesNothingOnceTheCameraWasHeldBack)
{
    ExposureClock clock({1ms, 10ms, 1ms});
    std::optional<nanoseconds> exposure;
    const auto frame = [&](int number, nanoseconds first, bool wasHeld) {
        const SteadyTime packet = kStart + first;
        return clock.timesOf({number, at(kStart), at(kStart), at(packet), at(packet), wasHeld},
                             &exposure);
    };
    frame(1, 2ms, false);
    frame(2, 12ms, false);
    // Exposed in time, and kept in the connection for half a second.
    for (int number = 3; number < 20; ++number) {
        const FrameTimes times = frame(number, 500ms, true);
        const nanoseconds truth = 10ms * (number - 1) + 1ms;
        EXPECT_LE(times.begin - times.uncertainty, kStartUtc + truth) << number;
        EXPECT_GE(times.begin + times.uncertainty, kStartUtc + truth) << number;
    }
}

TEST(ExposureClock, TriggersAreWithinTheCommandsThatMadeThem)
{
    ExposurePlan plan{10ms, 0ns, 1ms};
    plan.firstIsTriggered = plan.eachIsTriggered = true;
    ExposureClock clock(plan);
    std::optional<nanoseconds> exposure;
    for (int number = 1; number <= 5; ++number) {
        const SteadyTime then = kStart + 100ms * number;
        trigger(clock, true, then, then + 2ms);
        trigger(clock, false, then + 3ms, then + 4ms);
        const SteadyTime packet = then + 1ms + 10ms + 1ms;
        const FrameTimes times = clock.timesOf(
            {number, at(kStart), at(kStart), at(packet), at(packet + 1ms)}, &exposure);
        EXPECT_EQ(times.how, How::Triggered);
        EXPECT_NEAR(static_cast<double>((times.begin - at(then + 1ms).utc).count()), 0, 1e4);
        EXPECT_LT(times.uncertainty, 1100us);
    }
}

TEST(ExposureClock, TriggersThatNothingWaitedForAreNoBound)
{
    ExposurePlan plan{10ms, 0ns, 1ms};
    plan.firstIsTriggered = plan.eachIsTriggered = true;
    ExposureClock clock(plan);
    std::optional<nanoseconds> exposure;
    const SteadyTime one = kStart + 100ms;
    trigger(clock, true, one, one + 1ms);
    trigger(clock, true, one + 5ms, one + 6ms); // while it was exposed
    trigger(clock, true, one + 50ms, one + 51ms);
    clock.timesOf({1, at(kStart), at(kStart), at(one + 12ms), at(one + 13ms)}, &exposure);
    const FrameTimes times =
        clock.timesOf({2, at(kStart), at(kStart), at(one + 61ms), at(one + 62ms)}, &exposure);
    EXPECT_GT(times.begin - times.uncertainty, at(one + 49ms).utc);
    EXPECT_LT(times.begin + times.uncertainty, at(one + 52ms).utc);
}

TEST(ExposureClock, ExposuresAsLongAsATriggerAreAsLongAsItsCommandsSay)
{
    ExposurePlan plan{10ms, 0ns, 1ms};
    plan.firstIsTriggered = plan.eachIsTriggered = plan.lengthIsTriggered = true;
    ExposureClock clock(plan);
    std::optional<nanoseconds> exposure;
    trigger(clock, true, kStart + 10ms, kStart + 11ms);
    trigger(clock, false, kStart + 310ms, kStart + 311ms);
    const FrameTimes times = clock.timesOf(
        {1, at(kStart), at(kStart), at(kStart + 312ms), at(kStart + 313ms)}, &exposure);
    ASSERT_TRUE(exposure.has_value());
    EXPECT_EQ(*exposure, 300ms);
    EXPECT_EQ(times.end - times.begin, 300ms);
    EXPECT_LT(times.uncertainty, 1ms);
}

TEST(ExposureClock, TriggersFromOutsideAreBoundedFromTheFirstPacket)
{
    ExposurePlan plan{10ms, 0ns, 1ms};
    plan.firstIsTriggered = plan.eachIsTriggered = true;
    ExposureClock clock(plan);
    std::optional<nanoseconds> exposure;
    const SteadyTime packet = kStart + 60s;
    const FrameTimes times =
        clock.timesOf({1, at(kStart), at(kStart), at(packet), at(packet)}, &exposure);
    EXPECT_EQ(times.how, How::Triggered);
    EXPECT_LE(times.begin - times.uncertainty, at(packet - 12ms).utc);
    EXPECT_GE(times.begin + times.uncertainty, at(packet - 10ms).utc);
    EXPECT_LT(times.uncertainty, 5ms);
}

TEST(HostClock, TellsWhetherItIsSynchronised)
{
    timex told{};
    told.maxerror = 1500;
    EXPECT_TRUE(clockStateOf(TIME_OK, told).synchronised);
    EXPECT_EQ(clockStateOf(TIME_OK, told).maximumError, 1500us);
    EXPECT_FALSE(clockStateOf(TIME_ERROR, told).synchronised);
    told.status = STA_UNSYNC;
    EXPECT_FALSE(clockStateOf(TIME_OK, told).synchronised);
    EXPECT_FALSE(clockStateOf(-1, told).synchronised);
    EXPECT_GE(hostClock().maximumError, 0us);
}

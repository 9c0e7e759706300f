#include "trips.h"

#include "interrupt.h"

#include <algorithm>
#include <chrono>

std::vector<double> MeasureTrips(vxcam::Camera& camera, int count)
{
    using tpClock = std::chrono::steady_clock;
    std::vector<double> trips;
    for (int i = 0; i < count; ++i) {
        ThrowIfInterrupted();
        const auto start = tpClock::now();
        camera.get("exposure");
        const std::chrono::duration<double, std::milli> trip = tpClock::now() - start;
        trips.push_back(trip.count());
    }
    std::sort(trips.begin(), trips.end());
    return trips;
}

double Percentile(const std::vector<double>& sorted, unsigned percent)
{
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

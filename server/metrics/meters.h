// What the server counts of itself.
#ifndef VXCAMD_METERS_H
#define VXCAMD_METERS_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace vxcam {

// How often something took how long. Threads: any.
class TimeHistogram
{
public:
    static constexpr std::array<double, 12> kBounds{0.0005, 0.001, 0.002, 0.005, 0.01, 0.02,
                                                    0.03,   0.05,  0.1,   0.5,   2,    10}; // s

    void add(std::chrono::nanoseconds time);
    std::array<uint64_t, kBounds.size() + 1> counts() const; // the last one: longer than all
    double seconds() const;                                  // all together

private:
    std::array<std::atomic<uint64_t>, kBounds.size() + 1> counts_{};
    std::atomic<uint64_t> nanoseconds_{0};
};

// Threads: any. Locks: its own.
struct Meters {
    // Of a request that came through this door ("rest", "alpaca", "page", ...).
    void answered(const std::string& door, int status, std::chrono::nanoseconds time);
    void answered(const std::string& door, int status); // one without a time: it was not whole
    std::map<std::pair<std::string, int>, uint64_t> answers() const; // by door and status

    TimeHistogram requestTime;
    // From a camera's last packet of a frame to its pixels handed to a watcher's connection.
    TimeHistogram watcherDelay;
    std::atomic<uint64_t> watcherFrames{0}, watcherBytes{0}, watcherMissed{0};
    std::atomic<uint64_t> watcherMessagesRefused{0}; // that made no sense
    std::atomic<int> watchers{0};

private:
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, int>, uint64_t> answers_;
};

} // namespace vxcam

#endif

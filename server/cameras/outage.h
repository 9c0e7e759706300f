// What the server's log says of a camera that is not there.
#ifndef VXCAMD_OUTAGE_H
#define VXCAMD_OUTAGE_H

#include <chrono>
#include <optional>
#include <string>

namespace vxcam {

// It says so once, then at growing intervals that it still is so, and when it is over.
//
// Threads: one.
class Outage
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::minutes kLeast{1}, kMost{60}; // between two lines

    explicit Outage(std::string camera) : camera_(std::move(camera)) {} // "camera 0 (HOST:PORT)"

    // Both return the line that is due; empty: none.
    std::string isMissing(const std::string& why, Clock::time_point now);
    std::string isThere(Clock::time_point now);

    Clock::time_point due() const { return due_; } // the next line, while it is missing

private:
    const std::string camera_;
    std::optional<Clock::time_point> begun_; // nothing: it is there
    Clock::time_point due_;
    Clock::duration interval_{kLeast};
};

} // namespace vxcam

#endif

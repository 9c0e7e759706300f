#include <vxcamkit/frame_times.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace vxcam {

namespace {

constexpr int64_t kSecond = 1000000000; // ns
constexpr int kMostDecimals = 9;

} // namespace

const char* nameOf(FrameTimes::How how)
{
    switch (how) {
    case FrameTimes::How::Commanded:
        return "commanded";
    case FrameTimes::How::Interval:
        return "interval";
    case FrameTimes::How::Triggered:
        return "triggered";
    case FrameTimes::How::Bounded:
        break;
    }
    return "bounded";
}

std::string utcText(UtcTime time, int decimals)
{
    decimals = std::clamp(decimals, 0, kMostDecimals);
    int64_t step = 1; // of the last decimal, in ns
    for (int i = decimals; i < kMostDecimals; ++i) {
        step *= 10;
    }
    const int64_t rounded = time.time_since_epoch().count() + step / 2;
    int64_t seconds = rounded / kSecond, rest = rounded % kSecond;
    if (rest < 0) {
        rest += kSecond;
        --seconds;
    }
    const auto whole = static_cast<std::time_t>(seconds);
    std::tm date{};
    ::gmtime_r(&whole, &date);
    char text[64];
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
    if (decimals > 0) {
        std::snprintf(text + length, sizeof text - length, ".%0*lld", decimals,
                      static_cast<long long>(rest / step));
    }
    return text;
}

} // namespace vxcam

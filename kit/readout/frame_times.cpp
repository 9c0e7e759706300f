#include <vxcamkit/frame_times.h>

#include <algorithm>
#include <cstdio>

namespace vxcam {

namespace {

constexpr int64_t kSecond = 1000000000; // ns
constexpr int kMostDecimals = 9;
constexpr int64_t kDay = 86400; // s

struct Date {
    int64_t year;
    int month, day; // from 1
};

// Of a day since 1970-01-01. The C library's calendar looks at the variable TZ, which another
// thread may be setting.
Date dateOf(int64_t day)
{
    constexpr int64_t kDaysOf400Years = 146097, kDaysBefore1970 = 719468; // from 0000-03-01
    day += kDaysBefore1970;
    const int64_t cycle = (day >= 0 ? day : day - kDaysOf400Years + 1) / kDaysOf400Years;
    const int64_t rest = day - cycle * kDaysOf400Years;
    // Years begin in March, so that a leap day is the last one.
    const int64_t year = (rest - rest / 1460 + rest / 36524 - rest / 146096) / 365;
    const int64_t dayOfYear = rest - (365 * year + year / 4 - year / 100);
    const int month = static_cast<int>((5 * dayOfYear + 2) / 153); // from March
    const int dayOfMonth = static_cast<int>(dayOfYear) - (153 * month + 2) / 5;
    const bool isNextYear = month >= 10;
    return {cycle * 400 + year + (isNextYear ? 1 : 0), isNextYear ? month - 9 : month + 3,
            dayOfMonth + 1};
}

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
    const int64_t days = (seconds >= 0 ? seconds : seconds - kDay + 1) / kDay;
    const Date date = dateOf(days);
    const int second = static_cast<int>(seconds - days * kDay);
    char text[64];
    const int length = std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02d",
                                     static_cast<long long>(date.year), date.month, date.day,
                                     second / 3600, second / 60 % 60, second % 60);
    if (decimals > 0) {
        std::snprintf(text + length, sizeof text - length, ".%0*lld", decimals,
                      static_cast<long long>(rest / step));
    }
    return text;
}

} // namespace vxcam

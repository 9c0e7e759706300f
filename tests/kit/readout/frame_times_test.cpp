#include <vxcamkit/frame_times.h>

#include <gtest/gtest.h>

#include <ctime>

using namespace std::chrono_literals;
using vxcam::utcText;
using vxcam::UtcTime;

namespace {

UtcTime at(std::chrono::nanoseconds sinceEpoch)
{
    return UtcTime(sinceEpoch);
}

} // namespace

// 951782400 s is the begin of 29 February 2000.
TEST(UtcText, WritesDateAndTimeWithDecimals)
{
    EXPECT_EQ(utcText(at(0ns)), "1970-01-01T00:00:00.000");
    EXPECT_EQ(utcText(at(951782400s + 86399s + 123456789ns), 9), "2000-02-29T23:59:59.123456789");
    EXPECT_EQ(utcText(at(951782400s + 1ms), 6), "2000-02-29T00:00:00.001000");
    EXPECT_EQ(utcText(at(951782400s), 0), "2000-02-29T00:00:00");
}

TEST(UtcText, RoundsIntoTheNextSecond)
{
    EXPECT_EQ(utcText(at(951782400s + 999500us)), "2000-02-29T00:00:01.000");
    EXPECT_EQ(utcText(at(951782400s + 999499us)), "2000-02-29T00:00:00.999");
    EXPECT_EQ(utcText(at(951782400s + 500ms), 0), "2000-02-29T00:00:01");
}

TEST(UtcText, WritesTimesBeforeTheEpoch)
{
    EXPECT_EQ(utcText(at(-1ms)), "1969-12-31T23:59:59.999");
}

// From 1680 to 2260, with years that are divided by 4, 100 and 400.
TEST(UtcText, HasTheCalendarOfTheCLibrary)
{
    for (int64_t day = -105'000; day < 106'000; ++day) {
        const std::time_t time = day * 86400 + 45296;
        std::tm date{};
        gmtime_r(&time, &date);
        char text[64];
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
        ASSERT_EQ(utcText(at(std::chrono::seconds(time)), 0), text);
    }
}

TEST(FrameTimes, NamesHowTheyWereFound)
{
    using How = vxcam::FrameTimes::How;
    EXPECT_STREQ(nameOf(How::Commanded), "commanded");
    EXPECT_STREQ(nameOf(How::Interval), "interval");
    EXPECT_STREQ(nameOf(How::Triggered), "triggered");
    EXPECT_STREQ(nameOf(How::Bounded), "bounded");
}

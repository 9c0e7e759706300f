#include "arguments.h"

#include "failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// The text of a usage error; "" when there is none.
std::string Refusal(const std::function<void()>& call)
{
    try {
        call();
    } catch (const tcFailure& failure) {
        EXPECT_EQ(failure.Code(), eExitUsage);
        return failure.what();
    }
    return "";
}

} // namespace

TEST(Arguments, DurationsHaveUnits)
{
    EXPECT_EQ(ParseDuration("500ms"), milliseconds(500));
    EXPECT_EQ(ParseDuration("2s"), milliseconds(2000));
    EXPECT_EQ(ParseDuration("1min"), milliseconds(60000));
    EXPECT_EQ(ParseDuration("1.5h"), milliseconds(5400000));
    EXPECT_EQ(ParseDuration("0"), milliseconds(0));
}

TEST(Arguments, PlainDurationsAreSeconds)
{
    EXPECT_EQ(ParseDuration("0.5"), milliseconds(500));
    EXPECT_EQ(ParseDuration("30"), milliseconds(30000));
}

TEST(Arguments, DurationsAreRoundedToMilliseconds)
{
    EXPECT_EQ(ParseDuration("1.6ms"), milliseconds(2));
    EXPECT_EQ(ParseDuration("0.0004min"), milliseconds(24));
    EXPECT_EQ(ParseDuration("4294967295ms"), milliseconds(4294967295));
}

TEST(Arguments, ImpossibleDurationsAreRefused)
{
    for (const char* text :
         {"", "ms", "abc", "5 s", "5x", "1e", "nan", "inf", "0x10", "--1", "1s2", "+1", " 1"}) {
        EXPECT_THAT(Refusal([&] { ParseDuration(text); }),
                    HasSubstr("time '" + std::string(text) + "'"));
    }
    EXPECT_THAT(Refusal([] { ParseDuration("-1s"); }), HasSubstr("negative"));
    EXPECT_THAT(Refusal([] { ParseDuration("0.4ms"); }), HasSubstr("1 ms"));
    EXPECT_THAT(Refusal([] { ParseDuration("4294967296ms"); }), HasSubstr("4294967295"));
}

TEST(Arguments, CountsOneAsOne)
{
    EXPECT_EQ(CountText(0, "frame"), "0 frames");
    EXPECT_EQ(CountText(1, "frame"), "1 frame");
    EXPECT_EQ(CountText(2, "frame"), "2 frames");
}

TEST(Arguments, DurationTextsAreForPeople)
{
    EXPECT_EQ(DurationText(milliseconds(5)), "5 ms");
    EXPECT_EQ(DurationText(milliseconds(1500)), "1.5 s");
    EXPECT_EQ(DurationText(milliseconds(60000)), "60 s");
    EXPECT_EQ(DurationText(milliseconds(600000)), "10 min");
    EXPECT_EQ(DurationText(milliseconds(5400000)), "90 min");
    EXPECT_EQ(DurationText(milliseconds(86400000)), "24 h");
}

TEST(Arguments, WhatHasPassedIsToldInTheUnitOfTheWhole)
{
    EXPECT_EQ(PassedText(milliseconds(399), milliseconds(500)), "300 of 500 ms");
    EXPECT_EQ(PassedText(milliseconds(999), milliseconds(5000)), "0.9 of 5 s");
    EXPECT_EQ(PassedText(milliseconds(3000), milliseconds(5000)), "3.0 of 5 s");
    EXPECT_EQ(PassedText(milliseconds(90000), milliseconds(600000)), "1.5 of 10 min");
    EXPECT_EQ(PassedText(milliseconds(5400000), milliseconds(86400000)), "1.5 of 24 h");
}

TEST(Arguments, AreasAreFourNumbers)
{
    const vxcam::Area area = ParseArea("1,20,300,65535");
    EXPECT_EQ(area.column, 1);
    EXPECT_EQ(area.row, 20);
    EXPECT_EQ(area.columns, 300);
    EXPECT_EQ(area.rows, 65535);
}

TEST(Arguments, SeveralAreasHaveSlashesBetweenThem)
{
    EXPECT_THAT(ParseAreas("1,2,3,4"), ElementsAre(vxcam::Area{1, 2, 3, 4}));
    EXPECT_THAT(ParseAreas("1,2,3,4/5,6,7,8"),
                ElementsAre(vxcam::Area{1, 2, 3, 4}, vxcam::Area{5, 6, 7, 8}));
    EXPECT_THAT(Refusal([&] { ParseAreas("1,2,3,4/"); }), HasSubstr("area ''"));
}

TEST(Arguments, ImpossibleAreasAreRefused)
{
    for (const char* text : {"", "1,2,3", "1,2,3,4,5", "1,2,3,", "a,2,3,4", "-1,2,3,4", "1,2,3,0",
                             "1,2,0,4", "1,2,3,65536", "1.5,2,3,4", " 1,2,3,4"}) {
        EXPECT_THAT(Refusal([&] { ParseArea(text); }),
                    HasSubstr("area '" + std::string(text) + "'"));
    }
}

TEST(Arguments, SizesAreColumnsAndRows)
{
    EXPECT_EQ(ParseSize("640x480").columns, 640);
    EXPECT_EQ(ParseSize("640x480").rows, 480);
    for (const char* text : {"", "640", "640x", "x480", "0x1", "1x0", "65535x1", "640x480x3"}) {
        EXPECT_THAT(Refusal([&] { ParseSize(text); }), HasSubstr("size"));
    }
}

TEST(Arguments, TargetsAreTheSimulatorASerialNumberOrHostAndPort)
{
    using Kind = vxcam::Target::Kind;
    EXPECT_EQ(ParseTarget("sim").kind, Kind::Simulator);
    const vxcam::Target target = ParseTarget("camera.example:2000");
    EXPECT_EQ(target.kind, Kind::Network);
    EXPECT_EQ(target.host, "camera.example");
    EXPECT_EQ(target.port, 2000);
    EXPECT_EQ(ParseTarget("serial:4294967295").kind, Kind::Serial);
    EXPECT_EQ(ParseTarget("serial:4294967295").serial, 4294967295u);
}

TEST(Arguments, ImpossibleTargetsAreRefused)
{
    for (const char* text :
         {"", "camera", "camera:", ":2000", "camera:0", "camera:65536", "camera:x", "camera:-1",
          "[::1]:2000", "serial:", "serial:x", "serial:-1", "serial:4294967296", "serial"}) {
        EXPECT_THAT(Refusal([&] { ParseTarget(text); }), HasSubstr("target"));
    }
}

TEST(Arguments, OneFileKeepsItsName)
{
    EXPECT_THAT(FileNames("a/b.c/frame.fits", 1), ElementsAre("a/b.c/frame.fits"));
}

TEST(Arguments, SeveralFilesAreNumberedInFrontOfTheExtension)
{
    EXPECT_THAT(FileNames("a.b/frame.fits", 2),
                ElementsAre("a.b/frame-0001.fits", "a.b/frame-0002.fits"));
    EXPECT_THAT(FileNames("a.b/frame", 2), ElementsAre("a.b/frame-0001", "a.b/frame-0002"));
    EXPECT_THAT(FileNames(".fits", 2), ElementsAre(".fits-0001", ".fits-0002"));
    EXPECT_EQ(FileNames("f.fits", 12345).back(), "f-12345.fits");
}

TEST(Arguments, PatternsSayWhereTheNumberGoes)
{
    EXPECT_THAT(FileNames("%d.fits", 2), ElementsAre("1.fits", "2.fits"));
    EXPECT_THAT(FileNames("run%03d/f.fits", 1), ElementsAre("run001/f.fits"));
    EXPECT_THAT(FileNames("f%3d", 1), ElementsAre("f  1"));
    EXPECT_THAT(FileNames("100%%.fits", 1), ElementsAre("100%.fits"));
    EXPECT_THAT(FileNames("100%%.fits", 2), ElementsAre("100%-0001.fits", "100%-0002.fits"));
}

TEST(Arguments, OtherConversionsAreRefused)
{
    for (const char* text : {"", "f%", "f%s", "f%5", "%d-%d", "%9999999999d", "%-4d", "%04x"}) {
        EXPECT_THAT(Refusal([&] { FileNames(text, 1); }), HasSubstr("file name"));
    }
}

// Exposure, shutter, area and images.
#include "properties/area_memory.h"
#include "properties/rows.h"

#include <algorithm>
#include <iterator>

namespace vxcam {

namespace {

constexpr double kMostPatternMode = 6;
constexpr int kMostPatternValues = 31;

int writeTestPattern(Access& access, uint32_t, const FieldValues& values)
{
    std::vector<unsigned short> pattern;
    for (size_t i = 1; i < values.numbers.size(); ++i) {
        pattern.push_back(static_cast<unsigned short>(values.numbers[i]));
    }
    return VXSetTestPattern(access.handle(), static_cast<int>(values.numbers[0]), pattern.data(),
                            static_cast<int>(pattern.size()));
}

// The last field takes the rest of the line, so that a text may hold commas.
int writeRecording(Access& access, uint32_t, const FieldValues& values)
{
    tsRecordParams params{};
    for (size_t i = 0; i < std::size(params.Words); ++i) {
        params.Words[i] = static_cast<uint32_t>(values.numbers[i]);
    }
    std::copy(values.bytes.begin(), values.bytes.end(), params.Text);
    return VXSetRecording(access.handle(), &params, 0);
}

std::vector<Property> exposureRows()
{
    return {
        Row("exposure", "exposure time", {time("time")})
            .reads(readBy<VXGetExposureTime>)
            .writes(writeBy<VXSetExposure>)
            .indi("CCD_EXPOSURE")
            .fits("EXPTIME")
            .tangoAlias("acq_expo_time"),

        Row("exposure-ex", "exposure by the extended command, in the camera's units",
            {word("exposure")})
            .reads(readBy<VXGetExposureTimeEx>)
            .writes(writeBy<VXSetExposureEx>)
            .alias("exposure"),

        Row("shutter-params", "close delay of the shutter and two more parameters",
            {word("close_delay"), word("second"), whole("third")})
            .reads(readBy<VXGetShutterParams>)
            .writes(writeBy<VXSetShutterParams>),

        Row("shutter-override", "what the shutter does whatever the exposure",
            {whole("first"), whole("second")})
            .writes(writeBy<VXSetShutterOverride>),
    };
}

std::vector<Property> areaRows()
{
    return {
        Row("area", "part of the sensor to read, as this run has set it; none is the whole",
            areaFields())
            .mayBeNone()
            .reads(readArea)
            .writes(writeArea)
            .checks(checkRegions)
            .costs(Cost::None)
            .indi("CCD_FRAME"),

        Row("area-regions", "up to 16 parts of the sensor, read as one frame", areaFields())
            .groups(kMostRegions)
            .reads(readRegions)
            .writes(writeRegions)
            .checks(checkRegions)
            .alias("area"),
    };
}

std::vector<Property> pictureRows()
{
    return {
        Row("image-interval", "least time between frames", {time("interval")})
            .reads(readFirst<VXGetImageIntervals, 1>)
            .writes(writeBy<VXSetImageInterval>),

        Row("image-intervals", "that time, and the last, the shortest and the longest actual one",
            {time("set"), time("last"), time("shortest"), time("longest")})
            .reads(readBy<VXGetImageIntervals>)
            .is(Nature::State),

        Row("mirroring", "turns images left to right, top to bottom",
            {onOff("horizontal"), onOff("vertical")})
            .reads(readBy<VXGetCCDImageMirroring>)
            .writes(writeBy<VXSetCCDImageMirroring>),

        Row("shearing", "four parameters of the shearing of images",
            {whole("first"), word("second"), word("third"), word("fourth")})
            .writes(writeBy<VXSetShearingParams>),

        Row("test-pattern", "a pattern instead of the picture; mode 0 is the picture",
            {number("mode", 0, kMostPatternMode),
             upTo(kMostPatternValues, number("values", 0, kMost16))})
            .writes(writeTestPattern),

        Row("offset", "counts that every pixel gets (bias), and a flag",
            {number("counts", 0, kMost16), orElse(onOff("flag"), 0)})
            .writes(writeBy<VXSetCCDOffset>)
            .indi("CCD_OFFSET")
            .fits("OFFSET")
            .alpaca("offset"),

        Row("readout-noise", "noise of the readout, two figures of the camera",
            {real("first"), real("second")})
            .reads(readBy<VXGetReadoutNoise>)
            .is(Nature::Derived)
            .fits("RDNOISE"),

        Row("recording", "recording on the camera's own storage: three words and a text",
            {word("first"), word("second"), word("third"),
             text("text", 0, sizeof(tsRecordParams::Text) - 1)})
            .writes(writeRecording)
            .is(Nature::Action),
    };
}

} // namespace

std::vector<Property> imageRows()
{
    return joined({grouped(Group::Exposure, exposureRows()), grouped(Group::Area, areaRows()),
                   grouped(Group::Image, pictureRows())});
}

} // namespace vxcam

// Exposure, shutter, area and images.
#include "fields.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr int gnMostRegions = 16;
constexpr double gnMostPatternMode = 6;
constexpr int gnMostPatternValues = 31;

int ReadArea(tcSession& session, uint32_t, tsSetting* setting)
{
    const int result = ReadInto(VXGetCCDArea, session.Handle(), setting);
    const bool isKnown = setting->numbers.size() == 4 && setting->numbers[2] > 0;
    if (!isKnown) setting->numbers.clear();
    return result;
}

std::string CheckRegions(tcSession& session, const tsSetting& setting)
{
    const tsArea sensor = session.Sensor();
    for (size_t i = 0; i + 3 < setting.numbers.size(); i += 4) {
        const double* const area = &setting.numbers[i];
        if (area[0] + area[2] > sensor.columns || area[1] + area[3] > sensor.rows) {
            return "reaches beyond the sensor of " + std::to_string(sensor.columns) + " x " +
                   std::to_string(sensor.rows) + " pixels";
        }
    }
    return "";
}

int ReadRegions(tcSession& session, uint32_t, tsSetting* setting)
{
    int first = 0, count = 0;
    int rows[gnMostRegions], columns[gnMostRegions], heights[gnMostRegions], widths[gnMostRegions];
    const int result =
        VXGetAreaEx(session.Handle(), &first, &count, rows, columns, heights, widths);
    if (result != eVXOk) return result;
    for (int i = 0; i < std::min(count, gnMostRegions); ++i) {
        for (int number : {columns[i], rows[i], widths[i], heights[i]}) {
            setting->numbers.push_back(number);
        }
    }
    return result;
}

int WriteRegions(tcSession& session, uint32_t, const tsSetting& setting)
{
    int parts[4][gnMostRegions] = {};
    for (size_t i = 0; i < setting.numbers.size(); ++i) {
        parts[i % 4][i / 4] = static_cast<int>(setting.numbers[i]);
    }
    return VXSetAreaEx(session.Handle(), static_cast<int>(setting.numbers.size() / 4), parts[1],
                       parts[0], parts[3], parts[2]);
}

int ReadInterval(tcSession& session, uint32_t, tsSetting* setting)
{
    const int result = ReadInto(VXGetImageIntervals, session.Handle(), setting);
    if (result == eVXOk) setting->numbers.resize(1);
    return result;
}

int WriteTestPattern(tcSession& session, uint32_t, const tsSetting& setting)
{
    std::vector<unsigned short> values;
    for (size_t i = 1; i < setting.numbers.size(); ++i) {
        values.push_back(static_cast<unsigned short>(setting.numbers[i]));
    }
    return VXSetTestPattern(session.Handle(), static_cast<int>(setting.numbers[0]), values.data(),
                            static_cast<int>(values.size()));
}

// The last field takes the rest of the line, so that a text may hold commas.
int WriteRecording(tcSession& session, uint32_t, const tsSetting& setting)
{
    tsRecordParams params{};
    for (size_t i = 0; i < 3; ++i) {
        params.Words[i] = static_cast<uint32_t>(setting.numbers[i]);
    }
    std::copy(setting.bytes.begin(), setting.bytes.end(), params.Text);
    return VXSetRecording(session.Handle(), &params, 0);
}

tsShape AreaShape(int groups)
{
    return {{Number("column", 0, gnMost16), Number("row", 0, gnMost16),
             Number("columns", 1, gnMost16), Number("rows", 1, gnMost16)},
            groups};
}

tsProperty Area()
{
    tsProperty property{"area", "part of the sensor to read, as this run has set it", AreaShape(1),
                        ReadArea, Write<VXSetCCDArea>};
    property.check = CheckRegions;
    return property;
}

tsProperty AreaRegions()
{
    tsProperty property{"area-regions", "up to 16 parts of the sensor, read as one frame",
                        AreaShape(gnMostRegions), ReadRegions, WriteRegions};
    property.check = CheckRegions;
    return property;
}

} // namespace

std::vector<tsProperty> ImageProperties()
{
    return {
        {"exposure",
         "exposure time",
         {{Time("time")}},
         Read<VXGetExposureTime>,
         Write<VXSetExposure>},
        {"exposure-ex",
         "exposure by the extended command, in the camera's units",
         {{Word("exposure")}},
         Read<VXGetExposureTimeEx>,
         Write<VXSetExposureEx>},
        {"shutter-params",
         "close delay of the shutter and two more parameters",
         {{Word("close_delay"), Word("second"), Whole("third")}},
         Read<VXGetShutterParams>,
         Write<VXSetShutterParams>},
        {"shutter-override",
         "what the shutter does whatever the exposure",
         {{Whole("first"), Whole("second")}},
         nullptr,
         Write<VXSetShutterOverride>},
        Area(),
        AreaRegions(),
        {"image-interval",
         "least time between frames",
         {{Time("interval")}},
         ReadInterval,
         Write<VXSetImageInterval>},
        {"image-intervals",
         "that time, and the last, the shortest and the longest actual one",
         {{Time("set"), Time("last"), Time("shortest"), Time("longest")}},
         Read<VXGetImageIntervals>,
         nullptr},
        {"mirroring",
         "turns images left to right, top to bottom",
         {{Switch("horizontal"), Switch("vertical")}},
         Read<VXGetCCDImageMirroring>,
         Write<VXSetCCDImageMirroring>},
        {"shearing",
         "four parameters of the shearing of images",
         {{Whole("first"), Word("second"), Word("third"), Word("fourth")}},
         nullptr,
         Write<VXSetShearingParams>},
        {"test-pattern",
         "a pattern instead of the picture; mode 0 is the picture",
         {{Number("mode", 0, gnMostPatternMode),
           UpTo(gnMostPatternValues, Number("values", 0, gnMost16))}},
         nullptr,
         WriteTestPattern},
        {"offset",
         "counts that every pixel gets (bias), and a flag",
         {{Number("counts", 0, gnMost16), Or(Switch("flag"), 0)}},
         nullptr,
         Write<VXSetCCDOffset>},
        {"readout-noise",
         "noise of the readout, two figures of the camera",
         {{Real("first"), Real("second")}},
         Read<VXGetReadoutNoise>,
         nullptr},
        {"recording",
         "recording on the camera's own storage: three words and a text",
         {{Word("first"),
           Word("second"),
           Word("third"),
           {"text", teField::eText, 0, sizeof(tsRecordParams::Text) - 1}}},
         nullptr,
         WriteRecording},
    };
}

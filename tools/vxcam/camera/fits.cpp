#include "fits.h"

#include "failure.h"

#include <fitsio.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace {

constexpr size_t gnBlock = 2880;
constexpr size_t gnHeaderBlocks = 4;
constexpr size_t gnTextLength = 68; // that one header line holds

// An image in memory. Owns: the memory and the open file in it.
class tcMemoryFits
{
public:
    explicit tcMemoryFits(size_t bytes);
    ~tcMemoryFits();
    tcMemoryFits(const tcMemoryFits&) = delete;
    tcMemoryFits& operator=(const tcMemoryFits&) = delete;

    void Image(const tsFrame& frame);
    void Key(const char* name, const std::string& value, const char* comment);
    void Key(const char* name, double value, int decimals, const char* comment);
    void Key(const char* name, long long value, const char* comment);
    std::vector<char> Finish();

private:
    void Check();

    void* mpMemory;
    size_t mnSize;
    fitsfile* mpFile = nullptr;
    int mnStatus = 0;
};

tcMemoryFits::tcMemoryFits(size_t bytes) : mpMemory(std::malloc(bytes)), mnSize(bytes)
{
    if (mpMemory == nullptr) throw tcFailure(eExitFile, "no memory for a file of this size");
    fits_create_memfile(&mpFile, &mpMemory, &mnSize, gnBlock, std::realloc, &mnStatus);
    Check();
}

tcMemoryFits::~tcMemoryFits()
{
    int status = 0;
    if (mpFile != nullptr) fits_close_file(mpFile, &status);
    std::free(mpMemory);
}

void tcMemoryFits::Check()
{
    if (mnStatus == 0) return;
    char text[FLEN_STATUS] = "";
    fits_get_errstatus(mnStatus, text);
    throw tcFailure(eExitFile, std::string("the FITS file cannot be made: ") + text);
}

void tcMemoryFits::Image(const tsFrame& frame)
{
    long axes[2] = {frame.area.columns, frame.area.rows};
    const auto count = static_cast<LONGLONG>(frame.Pixels());
    if (frame.bits == 16) {
        fits_create_img(mpFile, USHORT_IMG, 2, axes, &mnStatus);
        fits_write_img(mpFile, TUSHORT, 1, count, const_cast<uint16_t*>(frame.pixels16.data()),
                       &mnStatus);
    } else {
        const bool isLarge = Figures(frame).maximum > std::numeric_limits<int32_t>::max();
        fits_create_img(mpFile, isLarge ? ULONG_IMG : LONG_IMG, 2, axes, &mnStatus);
        fits_write_img(mpFile, TUINT, 1, count, const_cast<uint32_t*>(frame.pixels32.data()),
                       &mnStatus);
    }
    Check();
}

void tcMemoryFits::Key(const char* name, const std::string& value, const char* comment)
{
    std::string text = value.substr(0, gnTextLength);
    for (char& c : text) {
        if (c < ' ' || c > '~') c = '?';
    }
    fits_write_key_str(mpFile, name, text.c_str(), comment, &mnStatus);
    Check();
}

void tcMemoryFits::Key(const char* name, double value, int decimals, const char* comment)
{
    fits_write_key_fixdbl(mpFile, name, value, decimals, comment, &mnStatus);
    Check();
}

void tcMemoryFits::Key(const char* name, long long value, const char* comment)
{
    fits_write_key_lng(mpFile, name, value, comment, &mnStatus);
    Check();
}

std::vector<char> tcMemoryFits::Finish()
{
    LONGLONG headStart = 0, dataStart = 0, dataEnd = 0;
    fits_write_date(mpFile, &mnStatus);
    fits_write_chksum(mpFile, &mnStatus);
    fits_flush_file(mpFile, &mnStatus);
    fits_get_hduaddrll(mpFile, &headStart, &dataStart, &dataEnd, &mnStatus);
    fits_close_file(mpFile, &mnStatus);
    mpFile = nullptr;
    Check();
    const char* const bytes = static_cast<const char*>(mpMemory);
    return {bytes, bytes + dataEnd};
}

// How many sensor pixels make one of the frame; 0 where that cannot be told from the sizes.
int Binning(int sensorPixels, int pixels)
{
    if (pixels < 1 || pixels > sensorPixels) return 0;
    const int binning = sensorPixels / pixels;
    if (sensorPixels / binning != pixels) return 0;
    if (binning > 1 && sensorPixels / (binning - 1) == pixels) return 0;
    return binning;
}

std::string DetectorText(const tsArea& sensor)
{
    return "[1:" + std::to_string(sensor.columns) + ",1:" + std::to_string(sensor.rows) + "]";
}

void DescribeExposure(tcMemoryFits& file, const tsFrame& frame, const tsFitsFacts& facts)
{
    file.Key("DATE-OBS", UtcText(frame.start), "start of the exposure");
    file.Key("TIMESYS", std::string("UTC"), "time scale of DATE-OBS");
    file.Key("EXPTIME", static_cast<double>(facts.exposure.count()) / 1000.0, 3,
             "[s] exposure time");
    if (frame.temperature) {
        file.Key("CCD-TEMP", *frame.temperature, 1, "[deg C] sensor temperature");
    }
    if (facts.targetTemperature) {
        file.Key("SET-TEMP", *facts.targetTemperature, 1, "[deg C] target temperature");
    }
}

void DescribeGeometry(tcMemoryFits& file, const tsFrame& frame, const tsFitsFacts& facts)
{
    file.Key("XORGSUBF", frame.sensorArea.firstColumn, "first sensor column, from 0");
    file.Key("YORGSUBF", frame.sensorArea.firstRow, "first sensor row, from 0");
    const int horizontal = Binning(frame.sensorArea.columns, frame.area.columns);
    const int vertical = Binning(frame.sensorArea.rows, frame.area.rows);
    if (frame.isGrid && horizontal > 0 && vertical > 0) {
        file.Key("XBINNING", horizontal, "sensor columns in a pixel");
        file.Key("YBINNING", vertical, "sensor rows in a pixel");
    }
    file.Key("DETSIZE", DetectorText(facts.sensor), "the whole sensor");
    file.Key("ROWORDER", std::string("TOP-DOWN"), "the first sensor row is the first row");
}

} // namespace

tsFrameFigures Figures(const tsFrame& frame)
{
    tsFrameFigures figures;
    const size_t count = frame.Pixels();
    if (count == 0) return figures;
    figures.minimum = figures.maximum = frame.Pixel(0);
    auto count16or32 = [&](const auto& pixels) {
        for (size_t i = 0; i < count; ++i) {
            const uint32_t value = pixels[i];
            figures.sum += value;
            figures.minimum = std::min(figures.minimum, value);
            figures.maximum = std::max(figures.maximum, value);
        }
    };
    if (frame.bits == 16) {
        count16or32(frame.pixels16);
    } else {
        count16or32(frame.pixels32);
    }
    figures.mean = static_cast<double>(figures.sum) / static_cast<double>(count);
    return figures;
}

std::string UtcText(std::chrono::system_clock::time_point time)
{
    using namespace std::chrono;
    const auto sinceEpoch = floor<milliseconds>(time.time_since_epoch());
    const std::time_t seconds = floor<std::chrono::seconds>(sinceEpoch).count();
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char day[64], text[96];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text, sizeof text, "%s.%03d", day,
                  static_cast<int>((sinceEpoch - std::chrono::seconds(seconds)).count()));
    return text;
}

std::vector<char> MakeFits(const tsFrame& frame, const tsFitsFacts& facts)
{
    const size_t bytes = frame.Pixels() * (frame.bits / 8);
    tcMemoryFits file(gnBlock * (gnHeaderBlocks + bytes / gnBlock + 1));
    file.Image(frame);
    DescribeExposure(file, frame, facts);
    file.Key("INSTRUME", facts.instrument, "camera");
    DescribeGeometry(file, frame, facts);
    file.Key("FRAMENO", frame.index, "frame within the readout, from 1");
    file.Key("NFRAMES", facts.frames, "frames asked for in the readout");
    file.Key("FRAMECNT", frame.framesDelivered, "frames since the camera was opened");
    file.Key("IMGTYPE", frame.imageType, "kind of frame, the camera's code");
    file.Key("CAMSTAT", frame.statistic, "the camera's figure for the frame");
    file.Key("SWCREATE", std::string("vxcam " VXCAM_VERSION), "program that wrote this file");
    return file.Finish();
}

#include "fits.h"

#include "failure.h"
#include "tool_support.h"

#include <fitsio.h>
#include <gmock/gmock.h>

namespace {

tsFitsFacts SomeFacts()
{
    tsFitsFacts facts;
    facts.exposure = std::chrono::milliseconds(1500);
    facts.instrument = "test camera";
    facts.frames = 3;
    facts.sensor = {0, 0, 64, 32};
    return facts;
}

// A file in memory, read back. Owns: the bytes and the open file.
class tcReadBack
{
public:
    explicit tcReadBack(std::vector<char> bytes) : maBytes(std::move(bytes))
    {
        mpMemory = maBytes.data();
        mnSize = maBytes.size();
        int status = 0;
        fits_open_memfile(&mpFile, "frame", READONLY, &mpMemory, &mnSize, 0, nullptr, &status);
        EXPECT_EQ(status, 0);
    }
    ~tcReadBack()
    {
        int status = 0;
        fits_close_file(mpFile, &status);
    }
    tcReadBack(const tcReadBack&) = delete;
    tcReadBack& operator=(const tcReadBack&) = delete;

    // A text's quotes and trailing blanks do not show; "absent" for a key that is not there.
    std::string Key(const char* name)
    {
        char value[FLEN_VALUE] = "";
        int status = 0;
        fits_read_key(mpFile, TSTRING, name, value, nullptr, &status);
        return status == 0 ? value : "absent";
    }
    std::vector<double> Pixels()
    {
        long axes[2] = {0, 0};
        int status = 0, any = 0;
        fits_get_img_size(mpFile, 2, axes, &status);
        std::vector<double> pixels(static_cast<size_t>(axes[0] * axes[1]));
        fits_read_img(mpFile, TDOUBLE, 1, static_cast<LONGLONG>(pixels.size()), nullptr,
                      pixels.data(), &any, &status);
        EXPECT_EQ(status, 0);
        return pixels;
    }
    bool SumsAreRight()
    {
        int data = 0, unit = 0, status = 0;
        fits_verify_chksum(mpFile, &data, &unit, &status);
        return status == 0 && data == 1 && unit == 1;
    }

private:
    std::vector<char> maBytes;
    void* mpMemory = nullptr;
    size_t mnSize = 0;
    fitsfile* mpFile = nullptr;
};

} // namespace

TEST(Fits, HoldsUnsigned16BitPixelsExactly)
{
    tsFrame frame = SmallFrame(3, 2);
    frame.pixels16 = {0, 1, 32767, 32768, 65534, 65535};
    tcReadBack file(MakeFits(frame, SomeFacts()));
    EXPECT_EQ(file.Key("BITPIX"), "16");
    EXPECT_EQ(file.Key("BZERO"), "32768");
    EXPECT_EQ(file.Key("BSCALE"), "1");
    EXPECT_EQ(file.Key("NAXIS1"), "3");
    EXPECT_EQ(file.Key("NAXIS2"), "2");
    EXPECT_EQ(file.Pixels(), (std::vector<double>{0, 1, 32767, 32768, 65534, 65535}));
}

TEST(Fits, Holds32BitPixelsAsSignedNumbersWhereTheyFit)
{
    tsFrame frame = SmallFrame(2, 1, 32);
    frame.pixels32 = {0, 2147483647};
    tcReadBack file(MakeFits(frame, SomeFacts()));
    EXPECT_EQ(file.Key("BITPIX"), "32");
    EXPECT_EQ(file.Key("BZERO"), "absent");
    EXPECT_EQ(file.Pixels(), (std::vector<double>{0, 2147483647}));
}

TEST(Fits, Holds32BitPixelsAsUnsignedNumbersWhereTheyMust)
{
    tsFrame frame = SmallFrame(2, 1, 32);
    frame.pixels32 = {0, 4294967295};
    tcReadBack file(MakeFits(frame, SomeFacts()));
    EXPECT_EQ(file.Key("BITPIX"), "32");
    EXPECT_EQ(file.Key("BZERO"), "2147483648");
    EXPECT_EQ(file.Pixels(), (std::vector<double>{0, 4294967295}));
}

TEST(Fits, CarriesSumsThatAreRight)
{
    tcReadBack file(MakeFits(SmallFrame(60, 60), SomeFacts()));
    EXPECT_NE(file.Key("CHECKSUM"), "absent");
    EXPECT_NE(file.Key("DATASUM"), "absent");
    EXPECT_TRUE(file.SumsAreRight());
}

TEST(Fits, IsWholeBlocks)
{
    EXPECT_EQ(MakeFits(SmallFrame(1, 1), SomeFacts()).size() % 2880, 0u);
    EXPECT_EQ(MakeFits(SmallFrame(1440, 1), SomeFacts()).size() % 2880, 0u);
    EXPECT_EQ(MakeFits(SmallFrame(1441, 1), SomeFacts()).size() % 2880, 0u);
}

TEST(Fits, TellsTheExposure)
{
    tsFrame frame = SmallFrame(2, 2);
    frame.start = std::chrono::system_clock::time_point(std::chrono::milliseconds(1767225599999));
    tcReadBack file(MakeFits(frame, SomeFacts()));
    EXPECT_EQ(file.Key("EXPTIME"), "1.500");
    EXPECT_EQ(file.Key("DATE-OBS"), "2025-12-31T23:59:59.999");
    EXPECT_EQ(file.Key("TIMESYS"), "UTC");
    EXPECT_EQ(file.Key("INSTRUME"), "test camera");
}

TEST(Fits, TellsOnlyTemperaturesThatAreKnown)
{
    tsFrame frame = SmallFrame(2, 2);
    tsFitsFacts facts = SomeFacts();
    EXPECT_EQ(tcReadBack(MakeFits(frame, facts)).Key("CCD-TEMP"), "absent");
    EXPECT_EQ(tcReadBack(MakeFits(frame, facts)).Key("SET-TEMP"), "absent");
    frame.temperature = -19.9;
    facts.targetTemperature = -20;
    EXPECT_EQ(tcReadBack(MakeFits(frame, facts)).Key("CCD-TEMP"), "-19.9");
    EXPECT_EQ(tcReadBack(MakeFits(frame, facts)).Key("SET-TEMP"), "-20.0");
}

TEST(Fits, TellsTheAreaAndTheCounters)
{
    tsFrame frame = SmallFrame(4, 3);
    frame.index = 2;
    frame.framesDelivered = 7;
    frame.statistic = 1234;
    frame.imageType = 5;
    frame.sensorArea = {10, 20, 4, 3};
    tcReadBack file(MakeFits(frame, SomeFacts()));
    EXPECT_EQ(file.Key("XORGSUBF"), "10");
    EXPECT_EQ(file.Key("YORGSUBF"), "20");
    EXPECT_EQ(file.Key("XBINNING"), "1");
    EXPECT_EQ(file.Key("YBINNING"), "1");
    EXPECT_EQ(file.Key("DETSIZE"), "[1:64,1:32]");
    EXPECT_EQ(file.Key("FRAMENO"), "2");
    EXPECT_EQ(file.Key("NFRAMES"), "3");
    EXPECT_EQ(file.Key("FRAMECNT"), "7");
    EXPECT_EQ(file.Key("CAMSTAT"), "1234");
    EXPECT_EQ(file.Key("IMGTYPE"), "5");
    EXPECT_EQ(file.Key("ROWORDER"), "TOP-DOWN");
    EXPECT_EQ(file.Key("SWCREATE").rfind("vxcam ", 0), 0u);
}

TEST(Fits, TellsTheBinningWhereTheSizesDo)
{
    tsFrame frame = SmallFrame(4, 3, 32);
    frame.sensorArea = {0, 0, 9, 9}; // a column is left over
    EXPECT_EQ(tcReadBack(MakeFits(frame, SomeFacts())).Key("XBINNING"), "2");
    EXPECT_EQ(tcReadBack(MakeFits(frame, SomeFacts())).Key("YBINNING"), "3");
    frame.sensorArea = {0, 0, 9, 100}; // 26 to 33 rows in a pixel
    EXPECT_EQ(tcReadBack(MakeFits(frame, SomeFacts())).Key("YBINNING"), "absent");
    frame.sensorArea = {0, 0, 8, 6};
    frame.isGrid = false;
    EXPECT_EQ(tcReadBack(MakeFits(frame, SomeFacts())).Key("XBINNING"), "absent");
}

TEST(Fits, TakesAnyNameOfAnInstrument)
{
    tsFitsFacts facts = SomeFacts();
    facts.instrument = "it's\ta \xC3\xA4 " + std::string(100, 'x');
    const std::string name = tcReadBack(MakeFits(SmallFrame(2, 2), facts)).Key("INSTRUME");
    EXPECT_EQ(name.rfind("it's?a ?? xxx", 0), 0u) << name;
}

TEST(Fits, SatisfiesTheVerifier)
{
    tcFolder folder;
    tsFrame frame = SmallFrame(50, 40, 32);
    frame.temperature = 1;
    frame.pixels32[3] = 4000000000;
    tsFitsFacts facts = SomeFacts();
    facts.instrument = "it's a \xC3\xA4";
    const std::vector<char> bytes = MakeFits(frame, facts);
    MakeFile(folder.Path("a.fits"), {bytes.begin(), bytes.end()});
    tcRun::tsHow how;
    how.program = "fitsverify";
    tcRun verifier({folder.Path("a.fits")}, how);
    EXPECT_EQ(verifier.Exit(), 0);
    EXPECT_THAT(verifier.Output(), testing::HasSubstr("0 warning(s) and 0 error(s)"));
}

TEST(Fits, FiguresAreExact)
{
    tsFrame frame = SmallFrame(3, 1, 32);
    frame.pixels32 = {4294967295, 4294967295, 2};
    const tsFrameFigures figures = Figures(frame);
    EXPECT_EQ(figures.sum, 8589934592u);
    EXPECT_EQ(figures.minimum, 2u);
    EXPECT_EQ(figures.maximum, 4294967295u);
    EXPECT_DOUBLE_EQ(figures.mean, 8589934592.0 / 3);
    EXPECT_EQ(Figures(tsFrame()).sum, 0u);
}

TEST(Fits, TimesBeforeTheEpochCountBackwards)
{
    const std::chrono::system_clock::time_point before(std::chrono::milliseconds(-1));
    EXPECT_EQ(UtcText(before), "1969-12-31T23:59:59.999");
}

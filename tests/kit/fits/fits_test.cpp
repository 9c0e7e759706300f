#include "files_support.h"

#include <vxcamkit/fits.h>
#include <vxcamkit/property.h>

#include <fitsio.h>
#include <gmock/gmock.h>

#include <random>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace vxcam {

namespace {

constexpr double kAbsent = -1; // stands for a pixel that did not come

// A file in memory, read back by the customary library. Owns: the bytes and the open file.
class ReadBack
{
public:
    explicit ReadBack(FileBytes bytes) : bytes_(std::move(bytes))
    {
        memory_ = bytes_.data();
        size_ = bytes_.size();
        int status = 0;
        fits_open_memfile(&file_, "frame", READONLY, &memory_, &size_, 0, nullptr, &status);
        EXPECT_EQ(status, 0);
    }
    ~ReadBack()
    {
        int status = 0;
        fits_close_file(file_, &status);
    }
    ReadBack(const ReadBack&) = delete;
    ReadBack& operator=(const ReadBack&) = delete;

    // As it stands in the file, texts without their quotes; "absent" for a key that is not there.
    std::string key(const char* name)
    {
        char value[FLEN_VALUE] = "";
        int status = 0;
        fits_read_key(file_, TSTRING, name, value, nullptr, &status);
        return status == 0 ? value : "absent";
    }
    std::string longKey(const char* name)
    {
        char* value = nullptr;
        char comment[FLEN_COMMENT] = "";
        int status = 0;
        fits_read_key_longstr(file_, name, &value, comment, &status);
        std::string text = status == 0 ? value : "absent";
        fits_free_memory(value, &status);
        return text;
    }
    std::string comment(const char* name)
    {
        char value[FLEN_VALUE] = "", comment[FLEN_COMMENT] = "";
        int status = 0;
        fits_read_key(file_, TSTRING, name, value, comment, &status);
        return comment;
    }
    std::vector<double> pixels()
    {
        long axes[2] = {0, 0};
        int status = 0, any = 0;
        double none = kAbsent;
        fits_get_img_size(file_, 2, axes, &status);
        std::vector<double> pixels(static_cast<size_t>(axes[0] * axes[1]));
        fits_read_img(file_, TDOUBLE, 1, static_cast<LONGLONG>(pixels.size()), &none, pixels.data(),
                      &any, &status);
        EXPECT_EQ(status, 0);
        return pixels;
    }
    bool areSumsRight()
    {
        int data = 0, unit = 0, status = 0;
        fits_verify_chksum(file_, &data, &unit, &status);
        return status == 0 && data == 1 && unit == 1;
    }

private:
    FileBytes bytes_;
    void* memory_ = nullptr;
    size_t size_ = 0;
    fitsfile* file_ = nullptr;
};

template <class Pixel>
Frame noiseFrame(int rows, int columns, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<Pixel> pixels(static_cast<size_t>(rows) * static_cast<size_t>(columns));
    for (Pixel& pixel : pixels) {
        pixel = static_cast<Pixel>(random());
    }
    return frameOf<Pixel>(rows, columns, pixels);
}

template <class Pixel>
std::vector<double> valuesOf(const Frame& frame)
{
    const auto pixels = frame.pixels<Pixel>();
    return {pixels.begin(), pixels.end()};
}

// The same frame without some of its rows.
template <class Pixel>
Frame without(const Frame& frame, const std::vector<int>& rows)
{
    FrameFacts facts = frame.facts();
    facts.packetsMissing = static_cast<uint32_t>(rows.size());
    facts.missingRows = rows;
    const auto columns = static_cast<size_t>(frame.columns());
    std::vector<Pixel> pixels(frame.pixels<Pixel>().begin(), frame.pixels<Pixel>().end());
    for (const int row : rows) {
        std::fill_n(pixels.begin() + static_cast<long>(static_cast<size_t>(row) * columns), columns,
                    Pixel(0));
    }
    return frameOf<Pixel>(facts, pixels);
}

// With a card of each kind, and texts that are hard to write.
Frame hardFrame()
{
    FrameFacts facts = factsOf(40, 50);
    facts.cameraName = "it's a \xC3\xA4 ''" + std::string(120, '\'');
    facts.serial = "\x1b[1m\n";
    facts.target = "127.0.0.1:2000";
    facts.exposure = 1500ms;
    facts.sensor = {50, 40};
    facts.area = {0, 0, 50, 40};
    facts.sensorTemperature = facts.targetTemperature = -20;
    facts.times.begin = UtcTime(1767225599s);
    facts.times.middle = facts.times.end = facts.times.begin + 1s;
    facts.times.clock.synchronised = true;
    facts.complaints = {{1, 2, std::string(300, 'c')}};
    for (const Property& property : properties()) {
        if (property.key == nullptr) facts.settings.set(property.name, std::string(90, 'v'));
    }
    facts.settings.set("gain", 2);
    facts.settings.set("offset", Value::list({5, false}));
    facts.settings.set("register:0x10", 7);
    facts.packetsMissing = 40;
    for (int row = 0; row < 40; row += 2) {
        facts.missingRows.push_back(row);
    }
    return Frame(facts);
}

HeaderOptions hardOptions()
{
    HeaderOptions options;
    options.settings = true;
    options.cards = {parseCard("OBSERVER='\xC3\x86r\xC3\xB8 / \xE5\xA4\xA9'/ \xC3\xBC"),
                     parseCard("EQUINOX=2000.0"),
                     parseCard("XPIXSZ=3.76/[um]"),
                     parseCard("FLAG=T"),
                     parseCard("TINY=1e-300"),
                     parseCard("EMPTY="),
                     {"LONGTEXT", std::string(67, 'x') + "'" + std::string(200, 'y'), "a comment"}};
    return options;
}

} // namespace

TEST(FitsFile, Holds8BitPixelsExactly)
{
    ReadBack file(makeFits(frameOf<uint8_t>(2, 3, {0, 1, 127, 128, 254, 255})));
    EXPECT_EQ(file.key("BITPIX"), "8");
    EXPECT_EQ(file.key("BZERO"), "absent");
    EXPECT_EQ(file.key("NAXIS1"), "3");
    EXPECT_EQ(file.key("NAXIS2"), "2");
    EXPECT_THAT(file.pixels(), ElementsAre(0, 1, 127, 128, 254, 255));
}

TEST(FitsFile, HoldsUnsigned16BitPixelsExactly)
{
    ReadBack file(makeFits(frameOf<uint16_t>(2, 3, {0, 1, 32767, 32768, 65534, 65535})));
    EXPECT_EQ(file.key("BITPIX"), "16");
    EXPECT_EQ(file.key("BZERO"), "32768");
    EXPECT_EQ(file.key("BSCALE"), "1");
    EXPECT_EQ(file.key("BUNIT"), "adu");
    EXPECT_EQ(file.key("BLANK"), "absent");
    EXPECT_THAT(file.pixels(), ElementsAre(0, 1, 32767, 32768, 65534, 65535));
}

TEST(FitsFile, Holds32BitPixelsAsSignedNumbersWhereTheyFit)
{
    ReadBack file(makeFits(frameOf<uint32_t>(1, 2, {0, 2147483647})));
    EXPECT_EQ(file.key("BITPIX"), "32");
    EXPECT_EQ(file.key("BZERO"), "absent");
    EXPECT_THAT(file.pixels(), ElementsAre(0, 2147483647));
}

TEST(FitsFile, Holds32BitPixelsAsUnsignedNumbersWhereTheyMust)
{
    ReadBack file(makeFits(frameOf<uint32_t>(1, 3, {0, 2147483648, 4294967295})));
    EXPECT_EQ(file.key("BZERO"), "2147483648");
    EXPECT_THAT(file.pixels(), ElementsAre(0, 2147483648, 4294967295));
}

TEST(FitsFile, CarriesSumsThatAreRight)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        const int columns = 1 + static_cast<int>(seed * 37 % 101);
        EXPECT_TRUE(ReadBack(makeFits(noiseFrame<uint8_t>(61, columns, seed))).areSumsRight());
        EXPECT_TRUE(ReadBack(makeFits(noiseFrame<uint16_t>(61, columns, seed))).areSumsRight());
        EXPECT_TRUE(ReadBack(makeFits(noiseFrame<uint32_t>(61, columns, seed))).areSumsRight());
    }
    EXPECT_TRUE(ReadBack(makeFits(hardFrame(), hardOptions())).areSumsRight());
}

TEST(FitsFile, HoldsEveryPixelOfALargeFrame)
{
    const Frame words = noiseFrame<uint16_t>(700, 1001, 1);
    EXPECT_EQ(ReadBack(makeFits(words)).pixels(), valuesOf<uint16_t>(words));
    const Frame sums = noiseFrame<uint32_t>(700, 1001, 1);
    EXPECT_EQ(ReadBack(makeFits(sums)).pixels(), valuesOf<uint32_t>(sums));
}

TEST(FitsFile, IsWholeBlocksAndZeroBehindItsEnd)
{
    for (const int columns : {1, 1440, 1441}) {
        const FileBytes file = makeFits(Frame(factsOf(1, columns)));
        EXPECT_EQ(file.size() % 2880, 0u);
        EXPECT_EQ(file.room() % FileBytes::kAlignment, 0u);
        EXPECT_TRUE(std::all_of(file.data() + file.size(), file.data() + file.room(),
                                [](char byte) { return byte == 0; }));
    }
}

TEST(FitsFile, MarksPixelsThatDidNotComeAtEachWidth)
{
    const Frame bytes = frameOf<uint8_t>(3, 2, {1, 2, 3, 4, 5, 6});
    EXPECT_THAT(ReadBack(makeFits(without<uint8_t>(bytes, {1}))).pixels(),
                ElementsAre(1, 2, kAbsent, kAbsent, 5, 6));
    const Frame words = frameOf<uint16_t>(3, 2, {1, 65535, 3, 4, 5, 6});
    EXPECT_THAT(ReadBack(makeFits(without<uint16_t>(words, {1}))).pixels(),
                ElementsAre(1, 65535, kAbsent, kAbsent, 5, 6));
    const Frame sums = frameOf<uint32_t>(3, 2, {1, 2, 3, 4, 0, 2147483647});
    EXPECT_THAT(ReadBack(makeFits(without<uint32_t>(sums, {0}))).pixels(),
                ElementsAre(kAbsent, kAbsent, 3, 4, 0, 2147483647));
    const Frame large = frameOf<uint32_t>(3, 2, {0, 4294967295, 3, 4, 5, 6});
    EXPECT_THAT(ReadBack(makeFits(without<uint32_t>(large, {1, 2}))).pixels(),
                ElementsAre(0, 4294967295, kAbsent, kAbsent, kAbsent, kAbsent));
    EXPECT_TRUE(ReadBack(makeFits(without<uint32_t>(large, {1, 2}))).areSumsRight());
}

TEST(FitsFile, MarksWithAValueThatNoOtherPixelHas)
{
    const Frame plain = frameOf<uint16_t>(2, 2, {7, 8, 9, 9});
    ReadBack zero(makeFits(without<uint16_t>(plain, {1})));
    EXPECT_EQ(zero.key("BLANK"), "-32768"); // whose value is 0
    const Frame dark = frameOf<uint16_t>(2, 3, {0, 65535, 65534, 9, 9, 9});
    ReadBack highest(makeFits(without<uint16_t>(dark, {1})));
    EXPECT_EQ(highest.key("BLANK"), "32765"); // whose value is 65533
    EXPECT_THAT(highest.pixels(), ElementsAre(0, 65535, 65534, kAbsent, kAbsent, kAbsent));
}

TEST(FitsFile, MarksNothingWhereEveryValueIsTaken)
{
    std::vector<uint8_t> pixels(512);
    for (size_t i = 0; i < 256; ++i) {
        pixels[i] = static_cast<uint8_t>(i);
    }
    ReadBack file(makeFits(without<uint8_t>(frameOf<uint8_t>(2, 256, pixels), {1})));
    EXPECT_EQ(file.key("BLANK"), "absent");
    EXPECT_EQ(file.key("COMPLETE"), "F");
    EXPECT_EQ(file.key("MISSROWS"), "1");
    EXPECT_EQ(file.pixels()[255], 255);
}

TEST(FitsFile, IgnoresMissingRowsThatTheFrameDoesNotHave)
{
    FrameFacts facts = factsOf(2, 2);
    facts.missingRows = {-1, 1, 7};
    EXPECT_THAT(ReadBack(makeFits(frameOf<uint16_t>(facts, {1, 2, 3, 4}))).pixels(),
                ElementsAre(1, 2, kAbsent, kAbsent));
}

TEST(FitsFile, WritesTheHeaderCardByCard)
{
    FrameFacts facts = factsOf(2, 2);
    facts.exposure = 1500ms;
    facts.sensorTemperature = -19.9;
    ReadBack file(makeFits(Frame(facts)));
    EXPECT_EQ(file.key("EXPTIME"), "1.500000");
    EXPECT_EQ(file.key("CCD-TEMP"), "-19.9");
    EXPECT_EQ(file.key("COMPLETE"), "T");
    EXPECT_EQ(file.key("NMISSING"), "0");
    EXPECT_EQ(file.comment("EXPTIME"), "[s] exposure time");
}

TEST(FitsFile, ContinuesLongTexts)
{
    ReadBack file(makeFits(hardFrame(), hardOptions()));
    EXPECT_EQ(file.longKey("LONGTEXT"), std::string(67, 'x') + "'" + std::string(200, 'y'));
    EXPECT_EQ(file.longKey("INSTRUME"), "it's a ae ''" + std::string(120, '\''));
    EXPECT_THAT(file.longKey("COMPLNT1"), HasSubstr("1-2: " + std::string(300, 'c')));
    EXPECT_THAT(file.longKey("MISSROWS"), HasSubstr("0,2,4,6"));
    EXPECT_THAT(file.longKey("HIERARCH VX TRIGGER-MODE"), std::string(90, 'v'));
}

TEST(FitsFile, SaysWhatItHadToWriteOtherwise)
{
    std::vector<std::string> warnings;
    ReadBack file(makeFits(hardFrame(), hardOptions(), &warnings));
    EXPECT_EQ(file.key("OBSERVER"), "AEro / ?");
    EXPECT_EQ(file.key("SERIAL"), "\\x1b[1m\\n");
    const std::string all = testing::PrintToString(warnings);
    EXPECT_THAT(all, HasSubstr("OBSERVER: '\xC3\x86r\xC3\xB8 / \xE5\xA4\xA9' is written as "
                               "'AEro / ?'"));
    EXPECT_THAT(all, HasSubstr("SERIAL"));
    EXPECT_THAT(all, HasSubstr("the comment '\xC3\xBC'"));
    warnings.clear();
    makeFits(Frame(factsOf(2, 2)), {}, &warnings);
    EXPECT_THAT(warnings, testing::IsEmpty());
}

TEST(FitsFile, SatisfiesTheVerifier)
{
    const Folder folder;
    FrameFacts binned = factsOf(2, 2, 32);
    binned.binningX = 0;
    const std::vector<FileBytes> files = [&] {
        std::vector<FileBytes> list;
        list.push_back(makeFits(hardFrame(), hardOptions()));
        list.push_back(makeFits(noiseFrame<uint8_t>(3, 5, 1)));
        list.push_back(makeFits(noiseFrame<uint16_t>(30, 50, 1)));
        list.push_back(makeFits(noiseFrame<uint32_t>(3, 5, 1)));
        list.push_back(makeFits(without<uint8_t>(noiseFrame<uint8_t>(3, 5, 1), {0})));
        list.push_back(makeFits(without<uint32_t>(noiseFrame<uint32_t>(3, 5, 1), {0, 2})));
        list.push_back(makeFits(Frame(binned)));
        return list;
    }();
    int number = 0;
    for (const FileBytes& bytes : files) {
        const std::string path = folder.path(std::to_string(++number) + ".fits");
        makeTextFile(path, bytes);
        EXPECT_THAT(Output("fitsverify " + path), HasSubstr("0 warning(s) and 0 error(s)"))
            << Output("fitsverify -l " + path + " | grep -B1 -A1 '\\*\\*\\*'");
    }
}

// What observatories read with.
TEST(FitsFile, IsReadByPython)
{
    const Folder folder;
    makeTextFile(folder.path("8.fits"), makeFits(frameOf<uint8_t>(1, 3, {0, 128, 255})));
    makeTextFile(folder.path("16.fits"), makeFits(frameOf<uint16_t>(1, 3, {0, 32768, 65535})));
    makeTextFile(folder.path("32.fits"), makeFits(frameOf<uint32_t>(1, 3, {0, 5, 2147483647})));
    makeTextFile(folder.path("u32.fits"),
                 makeFits(frameOf<uint32_t>(1, 3, {0, 2147483648, 4294967295})));
    makeTextFile(folder.path("part.fits"),
                 makeFits(without<uint32_t>(frameOf<uint32_t>(2, 2, {1, 2, 3, 4}), {1})));
    makeTextFile(folder.path("hard.fits"), makeFits(hardFrame(), hardOptions()));
    makeTextFile(folder.path("read.py"), R"(import sys, warnings
warnings.simplefilter('error')
from astropy.io import fits
from astropy.nddata import CCDData
for name in '8', '16', '32', 'u32', 'part', 'hard':
    fits.open(f'{sys.argv[1]}/{name}.fits', checksum=True).close()
    image = CCDData.read(f'{sys.argv[1]}/{name}.fits')
    header = image.header
    if name != 'hard':
        print(name, image.unit, image.data.ravel().tolist(), header['COMPLETE'])
    else:
        print(header['LONGTEXT'], header['OBSERVER'], header['EQUINOX'], header['FLAG'],
              header['VX GAIN'], header['MISSROWS'][:6])
)");
    int status = 0;
    const std::string text = Output("/usr/bin/python3 -W ignore " + folder.path("read.py") + " " +
                                        folder.path() + " 2>&1",
                                    &status);
    EXPECT_EQ(status, 0) << text;
    const std::vector<std::string> lines = Split(text, '\n');
    EXPECT_THAT(lines, ElementsAre("8 adu [0, 128, 255] True", "16 adu [0, 32768, 65535] True",
                                   "32 adu [0, 5, 2147483647] True",
                                   "u32 adu [0, 2147483648, 4294967295] True",
                                   "part adu [1.0, 2.0, nan, nan] False",
                                   std::string(67, 'x') + "'" + std::string(200, 'y') +
                                       " AEro / ? 2000.0 True 2 0,2,4,"));
}

} // namespace vxcam

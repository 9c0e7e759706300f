// Compressed images, read back by the library that defined them.
#include "fits/rice_tiles.h"

#include "files_support.h"
#include "fits/fits_header.h"

#include <fitsio.h>
#include <gmock/gmock.h>

#include <random>

using testing::HasSubstr;

namespace vxcam {

namespace {

// A file that has nothing but this extension.
std::string fileOf(const FileBytes& extension)
{
    FitsHeader header;
    header.logical("SIMPLE", true, "");
    header.whole("BITPIX", 8, "");
    header.whole("NAXIS", 0, "");
    header.logical("EXTEND", true, "");
    return header.finish(0) + std::string(extension.data(), extension.size());
}

constexpr int typeOf(int bits)
{
    return bits == 8 ? TBYTE : bits == 16 ? TUSHORT : TUINT;
}

template <class Pixel>
std::vector<Pixel> pixelsOf(std::string file, size_t count)
{
    std::vector<Pixel> pixels(count);
    void* memory = file.data();
    size_t size = file.size();
    fitsfile* open = nullptr;
    int status = 0, any = 0;
    fits_open_memfile(&open, "frame", READONLY, &memory, &size, 0, nullptr, &status);
    fits_movabs_hdu(open, 2, nullptr, &status);
    EXPECT_EQ(fits_is_compressed_image(open, &status), 1);
    fits_read_img(open, typeOf(8 * sizeof(Pixel)), 1, static_cast<LONGLONG>(count), nullptr,
                  pixels.data(), &any, &status);
    EXPECT_EQ(status, 0);
    int ignored = 0;
    fits_close_file(open, &ignored);
    return pixels;
}

enum class Picture { Flat, Dark, Full, Steps, Noise, LittleNoise };
constexpr Picture kPictures[] = {Picture::Flat,  Picture::Dark,  Picture::Full,
                                 Picture::Steps, Picture::Noise, Picture::LittleNoise};

template <class Pixel>
Frame paint(Picture picture, int rows, int columns)
{
    std::mt19937_64 random(11);
    std::vector<Pixel> pixels(static_cast<size_t>(rows) * static_cast<size_t>(columns), 100);
    for (size_t i = 0; i < pixels.size(); ++i) {
        if (picture == Picture::Dark) pixels[i] = 0;
        if (picture == Picture::Full) pixels[i] = static_cast<Pixel>(~0ULL);
        if (picture == Picture::Steps) pixels[i] = static_cast<Pixel>(i % 2 == 0 ? 0 : ~0ULL);
        if (picture == Picture::Noise) pixels[i] = static_cast<Pixel>(random());
        if (picture == Picture::LittleNoise) pixels[i] = static_cast<Pixel>(100 + random() % 12);
    }
    return frameOf(rows, columns, pixels);
}

template <class Pixel>
void expectKept()
{
    FileBytes spare;
    for (const int columns : {1, 31, 32, 33, 2048}) {
        for (const Picture picture : kPictures) {
            const Frame frame = paint<Pixel>(picture, 3, columns);
            FileBytes made = riceTiles(frame, {}, std::move(spare));
            EXPECT_EQ(made.size() % kFitsBlock, 0U);
            const auto all = frame.pixels<Pixel>();
            EXPECT_EQ(pixelsOf<Pixel>(fileOf(made), all.size()),
                      std::vector<Pixel>(all.begin(), all.end()))
                << columns << " columns, picture " << static_cast<int>(picture);
            spare = std::move(made);
        }
    }
}

} // namespace

TEST(RiceTiles, KeepEachPixel)
{
    expectKept<uint8_t>();
    expectKept<uint16_t>();
    expectKept<uint32_t>();
}

TEST(RiceTiles, AreSmaller)
{
    const Frame frame = paint<uint16_t>(Picture::LittleNoise, 64, 2048);
    EXPECT_LT(riceTiles(frame, {}, {}).size(), frame.bytes() / 2);
}

TEST(RiceTiles, HaveTheCardsOfTheFrame)
{
    const Folder folder;
    HeaderOptions options;
    options.cards.push_back({"OBSERVER", std::string("Anna"), "who did it"});
    options.cards.push_back({"NOTE", std::string(150, 'n'), "a text of several lines"});
    const Frame frame = paint<uint16_t>(Picture::Noise, 40, 50);
    makeTextFile(folder.path("a.fits"), fileOf(riceTiles(frame, options, {})));
    EXPECT_THAT(Output("fitsverify -q " + folder.path("a.fits")), HasSubstr("verification OK"));
    const std::string shown =
        Output("/usr/bin/python3 -c \"from astropy.io import fits; h = fits.open('" +
               folder.path("a.fits") +
               "', checksum=True)[1].header; print(h['OBSERVER'], "
               "len(h['NOTE']), h['NAXIS1'], h['NAXIS2'], h['PIXSUM'])\" "
               "2>&1");
    EXPECT_EQ(shown, "Anna 150 50 40 " + std::to_string(frame.sum()) + "\n");
}

TEST(RiceTiles, KnowWhatIsTooLarge)
{
    EXPECT_TRUE(fitsRiceTiles(paint<uint32_t>(Picture::Dark, 100, 100)));
    FrameFacts facts;
    facts.rows = facts.columns = 24000; // 2.3 GB, of which nothing is touched
    facts.bits = 32;
    char nothing = 0;
    EXPECT_FALSE(fitsRiceTiles(Frame(facts, {&nothing, [](void*) {}})));
}

} // namespace vxcam

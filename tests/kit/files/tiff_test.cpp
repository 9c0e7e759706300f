#include "files_support.h"

#include "files/tiff_image.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <tiffio.h>

using testing::HasSubstr;
using testing::Not;

namespace vxcam {

namespace {

// What the usual program says of a file, its complaints too.
std::string described(const FileBytes& bytes)
{
    const Folder folder;
    makeTextFile(folder.path("a.tif"), bytes);
    return Output("tiffinfo -d -s " + folder.path("a.tif") + " 2>&1");
}

// The pixels and the description, as the library reads them.
struct ReadBack {
    explicit ReadBack(const FileBytes& bytes)
    {
        const Folder folder;
        makeTextFile(folder.path("a.tif"), bytes);
        TIFF* const tiff = TIFFOpen(folder.path("a.tif").c_str(), "r");
        if (tiff == nullptr) {
            ADD_FAILURE() << "not a TIFF file";
            return;
        }
        for (uint32_t strip = 0; strip < TIFFNumberOfStrips(tiff); ++strip) {
            const auto size = static_cast<size_t>(TIFFStripSize(tiff));
            std::vector<char> buffer(size);
            const tmsize_t count =
                TIFFReadEncodedStrip(tiff, strip, buffer.data(), static_cast<tmsize_t>(size));
            EXPECT_GE(count, 0);
            pixels.append(buffer.data(), static_cast<size_t>(count));
        }
        char* text = nullptr;
        TIFFGetField(tiff, TIFFTAG_IMAGEDESCRIPTION, &text);
        if (text != nullptr) description = text;
        TIFFClose(tiff);
    }

    std::string pixels, description;
};

std::string pixelsOf(const Frame& frame)
{
    return {static_cast<const char*>(frame.data()), frame.bytes()};
}

template <class Pixel>
Frame rampFrame(int rows, int columns)
{
    std::vector<Pixel> pixels(static_cast<size_t>(rows) * static_cast<size_t>(columns));
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<Pixel>(i * 2654435761U);
    }
    return frameOf<Pixel>(rows, columns, pixels);
}

} // namespace

TEST(TiffFile, HoldsPixelsOfEachWidthExactly)
{
    const Frame bytes = rampFrame<uint8_t>(3, 5);
    const Frame words = rampFrame<uint16_t>(1001, 703); // several strips
    const Frame sums = rampFrame<uint32_t>(700, 1001);
    EXPECT_EQ(ReadBack(makeTiff(bytes)).pixels, pixelsOf(bytes));
    EXPECT_TRUE(ReadBack(makeTiff(words)).pixels == pixelsOf(words));
    EXPECT_TRUE(ReadBack(makeTiff(sums)).pixels == pixelsOf(sums));
}

TEST(TiffFile, IsUnderstoodByTheUsualProgram)
{
    const std::string text = described(makeTiff(rampFrame<uint16_t>(30, 20)));
    EXPECT_THAT(text, HasSubstr("Image Width: 20 Image Length: 30"));
    EXPECT_THAT(text, HasSubstr("Bits/Sample: 16"));
    EXPECT_THAT(text, HasSubstr("Sample Format: unsigned integer"));
    EXPECT_THAT(text, HasSubstr("min-is-black"));
    EXPECT_THAT(text, HasSubstr("row 0 top, col 0 lhs"));
    EXPECT_THAT(text, HasSubstr("Software: vxcamkit"));
    EXPECT_THAT(text, Not(HasSubstr("Warning")));
    EXPECT_THAT(text, Not(HasSubstr("Error")));
    EXPECT_THAT(described(makeTiff(rampFrame<uint8_t>(3, 2))), HasSubstr("Bits/Sample: 8"));
    EXPECT_THAT(described(makeTiff(rampFrame<uint32_t>(3, 2))), HasSubstr("Bits/Sample: 32"));
}

TEST(TiffFile, DescribesTheFrameInJson)
{
    FrameFacts facts = factsOf(2, 2);
    facts.cameraName = "\xC3\xA4";
    facts.missingRows = {1};
    facts.packetsMissing = 1;
    const std::string text = ReadBack(makeTiff(Frame(facts))).description;
    for (const char character : text) {
        EXPECT_TRUE(character >= ' ' && character <= '~'); // as TIFF wants it
    }
    const auto document = nlohmann::json::parse(text);
    EXPECT_EQ(document["INSTRUME"], "\xC3\xA4");
    EXPECT_EQ(document["COMPLETE"], false);
    EXPECT_EQ(document["MISSROWS"], "1");
}

TEST(TiffFile, IsABigTiffWhereItMustBe)
{
    const Frame frame = rampFrame<uint16_t>(100, 100);
    const FileBytes small = tiffImage(frame, {}, kMostClassicTiff);
    EXPECT_EQ(std::string(small.data(), 4), std::string("II\x2a\0", 4));
    const FileBytes big = tiffImage(frame, {}, 20000);
    EXPECT_EQ(std::string(big.data(), 4), std::string("II\x2b\0", 4));
    EXPECT_EQ(ReadBack(big).pixels, pixelsOf(frame));
    EXPECT_EQ(kMostClassicTiff, 4294967295U);
}

TEST(TiffFile, HasRoomForManyStrips)
{
    // Rows that are longer than a strip: one strip a row.
    const Frame frame = rampFrame<uint32_t>(20, 300000);
    EXPECT_TRUE(ReadBack(makeTiff(frame)).pixels == pixelsOf(frame));
    const Frame thin = rampFrame<uint8_t>(60000, 1);
    EXPECT_TRUE(ReadBack(makeTiff(thin)).pixels == pixelsOf(thin));
    EXPECT_TRUE(ReadBack(tiffImage(thin, {}, 0)).pixels == pixelsOf(thin));
}

} // namespace vxcam

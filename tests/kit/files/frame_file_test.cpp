#include "files_support.h"

#include <vxcamkit/frame_file.h>

namespace vxcam {

TEST(FrameFile, IsNamedByAPattern)
{
    EXPECT_EQ(fileName("a.fits", 1, 1), "a.fits");
    EXPECT_EQ(fileName("a.fits", 3, 9), "a-0003.fits");
    EXPECT_EQ(fileName("a.fits", 3, 0), "a-0003.fits"); // nobody knows how many
    EXPECT_EQ(fileName("a.b/c", 3, 9), "a.b/c-0003");
    EXPECT_EQ(fileName("a%d.fits", 3, 9), "a3.fits");
    EXPECT_EQ(fileName("a%4d%%", 3, 9), "a   3%");
    EXPECT_EQ(fileName("%04d-x", 12345, 9), "12345-x");
    for (const char* pattern : {"", "%", "%x", "%d%d", "%0", "%12345678901d"}) {
        EXPECT_NE(refusalOf([&] { fileName(pattern, 1, 1); }, ErrorKind::Usage), "") << pattern;
    }
}

TEST(FrameFile, IsOfTheKindThatItsNameSays)
{
    EXPECT_EQ(formatOf("a.fits"), FileFormat::Fits);
    EXPECT_EQ(formatOf("x.y/a.FIT"), FileFormat::Fits);
    EXPECT_EQ(formatOf("a.Tiff"), FileFormat::Tiff);
    EXPECT_EQ(formatOf("a.png"), FileFormat::Preview);
    for (const char* path : {"a", "a.fits.gz", ".fits", "a.fits/b", ""}) {
        EXPECT_EQ(formatOf(path), std::nullopt) << path;
    }
}

TEST(FrameFile, HasNoNameThatSaysSomethingElse)
{
    const std::pair<const char*, const char*> others[] = {
        {"a.raw", "raw"},    {"a.SER", "SER"},  {"a.h5", "HDF5"},   {"a.hdf5", "HDF5"},
        {"a.nxs", "HDF5"},   {"a.jpg", "JPEG"}, {"a.jpeg", "JPEG"}, {"a.gif", "GIF"},
        {"a.jsonl", "JSON"}, {"a.bmp", "BMP"},  {"a.png", "PNG"},   {"a.tif", "TIFF"}};
    for (const auto& [path, kind] : others) {
        EXPECT_EQ(otherKindOf(path, FileFormat::Fits), kind) << path;
    }
    EXPECT_EQ(otherKindOf("a.fits", FileFormat::Preview), "FITS");
    EXPECT_EQ(otherKindOf("a.jpg", FileFormat::Tiff), "JPEG");
    for (const char* path : {"a", "a.fit", "a.new", "a.raw.2", "raw", "x.h5/a", ""}) {
        EXPECT_EQ(otherKindOf(path, FileFormat::Fits), "") << path;
    }
}

TEST(FrameFile, IsMadeOfEachKindThatThereIs)
{
    const Frame frame(factsOf(2, 2));
    EXPECT_TRUE(isAvailable(FileFormat::Fits));
    for (const FileFormat format : {FileFormat::Fits, FileFormat::Tiff, FileFormat::Preview}) {
        if (isAvailable(format)) {
            EXPECT_GT(makeFile(format, frame).size(), 0u) << nameOf(format);
        } else {
            EXPECT_NE(refusalOf([&] { makeFile(format, frame); }, ErrorKind::Usage), "");
        }
    }
    const std::string tiff(makeFile(FileFormat::Tiff, frame).data(), 2);
    EXPECT_EQ(tiff, "II");
}

} // namespace vxcam

// Files of records, one kind after the other, read by others.
#include "record_support.h"

#include <vxcamkit/frame_file.h>

using testing::HasSubstr;

namespace vxcam {

TEST(Containers, KeepFramesOfAllWidths)
{
    const Folder folder;
    std::vector<std::string> names;
    std::string expected;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser"}) {
        record<uint16_t>(folder.path(name), 20, 33, 57);
        record<uint8_t>(folder.path("8" + name), 7, 5, 3);
        names.insert(names.end(), {name, "8" + name});
        expected += "20 complete\n7 complete\n";
        if (name == "a.ser") continue;
        record<uint32_t>(folder.path("32" + name), 9, 64, 64);
        names.push_back("32" + name);
        expected += "9 complete\n";
    }
    EXPECT_EQ(readBack(folder, names), expected);
    for (const std::string name : {"a.fits", "8a.fits", "32a.fits"}) {
        EXPECT_THAT(verified(folder.path(name)), HasSubstr("verification OK"));
        EXPECT_FALSE(std::filesystem::exists(folder.path(name + ".frames")));
    }
}

TEST(Containers, CompressHdf5)
{
    const Folder folder;
    RecordOptions options;
    options.compression = Compression::Gzip;
    record<uint16_t>(folder.path("a.h5"), 12, 64, 64, options);
    EXPECT_EQ(readBack(folder, {"a.h5"}), "12 complete\n");
    EXPECT_THAT(Output("h5dump -pH -d /entry/data/data " + folder.path("a.h5")),
                HasSubstr("COMPRESSION DEFLATE"));
}

TEST(Containers, CompressFitsByTiles)
{
    const Folder folder;
    RecordOptions options;
    options.compression = Compression::Rice;
    record<uint16_t>(folder.path("r16.fits"), 6, 64, 48, options);
    record<uint8_t>(folder.path("r8.fits"), 5, 64, 48, options);
    record<uint32_t>(folder.path("r32.fits"), 4, 64, 48, options);
    options.compression = Compression::Gzip;
    record<uint16_t>(folder.path("g16.fits"), 3, 64, 48, options);
    const std::vector<std::string> names = {"r16.fits", "r8.fits", "r32.fits", "g16.fits"};
    EXPECT_EQ(readBack(folder, names), "6 complete\n5 complete\n4 complete\n3 complete\n");
    for (const std::string& name : names) {
        EXPECT_THAT(verified(folder.path(name)), HasSubstr("verification OK"));
    }
    EXPECT_EQ(Output("grep -c RICE_1 " + folder.path("r16.fits")), "6\n");
}

TEST(Containers, FitsFilesHaveNamesOfTheirOwn)
{
    const Folder folder;
    Recorder recorder(folder.path("f-%03d.fits"));
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, 8, 9)));
    }
    recorder.finish();
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"f-001.fits", "f-002.fits", "f-003.fits"}));
    for (const std::string& name : folder.names()) {
        EXPECT_THAT(verified(folder.path(name)), HasSubstr("verification OK"));
    }
}

TEST(Containers, TiffPagesAreReadByItsLibrary)
{
    const Folder folder;
    record<uint32_t>(folder.path("a.tif"), 4, 10, 12);
    int status = -1;
    const std::string text = Output("tiffinfo -D " + folder.path("a.tif") + " 2>&1", &status);
    EXPECT_EQ(status, 0) << text;
    EXPECT_THAT(text, HasSubstr("TIFF directory 3"));
    EXPECT_THAT(text, testing::Not(HasSubstr("TIFF directory 4")));
    EXPECT_THAT(text, HasSubstr("Bits/Sample: 32"));
    EXPECT_THAT(text, HasSubstr("\"FRAMENO\":4"));
    EXPECT_THAT(text, testing::Not(HasSubstr("Warning")));
}

TEST(Containers, SerTakesNoPixelsOf32Bits)
{
    const Folder folder;
    Recorder recorder(folder.path("a.ser"));
    EXPECT_TRUE(recorder.write(numbered<uint32_t>(1, 8, 8)));
    EXPECT_THAT(refusalOf([&] { recorder.finish(); }, ErrorKind::Usage),
                HasSubstr("SER files take pixels of 16 bits at most"));
    EXPECT_TRUE(folder.names().empty());
}

} // namespace vxcam

// What the program measures of its pictures.
#include "grab_support.h"

#include <gmock/gmock.h>

#include <cmath>

using testing::HasSubstr;
using testing::Not;

namespace {

const std::vector<std::string> gaMeasured{"grab",    "--measure",        "-e", "5s", "--sim-sensor",
                                          "600x500", "--sim-time-scale", "100"};

std::vector<std::string> Measured(const std::vector<std::string>& more)
{
    std::vector<std::string> words = gaMeasured;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

std::vector<unsigned> PixelsOf(const std::string& path)
{
    fitsfile* file = nullptr;
    int status = 0, any = 0;
    long axes[2] = {0, 0};
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_get_img_size(file, 2, axes, &status);
    std::vector<unsigned> pixels(static_cast<size_t>(axes[0] * axes[1]));
    fits_read_img(file, TUINT, 1, axes[0] * axes[1], nullptr, pixels.data(), &any, &status);
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << path;
    return pixels;
}

double NumberOf(const std::string& path, const char* keyword)
{
    fitsfile* file = nullptr;
    int status = 0;
    double value = -1;
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_read_key(file, TDOUBLE, keyword, &value, nullptr, &status);
    EXPECT_EQ(status, 0) << keyword;
    status = 0;
    fits_close_file(file, &status);
    return value;
}

} // namespace

TEST(GrabMeasure, TellsWhatIsInThePixels)
{
    tcFolder folder;
    tcRun run(Measured({"--json"}), In(folder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json measures = run.Document()["frames"][0]["measures"];
    std::vector<unsigned> pixels = PixelsOf(folder.Path("frame.fits"));
    std::sort(pixels.begin(), pixels.end());
    EXPECT_EQ(measures["min"], pixels.front());
    EXPECT_EQ(measures["max"], pixels.back());
    const double median = pixels[(pixels.size() - 1) / 2];
    EXPECT_EQ(measures["median"], median);
    EXPECT_EQ(measures["saturated_pixels"], std::count(pixels.begin(), pixels.end(), 65535u));
    // The sky's own light and 6 electrons of the electronics; a count for each electron.
    const double noise = std::sqrt(median - 1000 + 36);
    EXPECT_NEAR(measures["noise"].get<double>(), noise, 0.05 * noise);
    // One star for 2500 pixels, most of them faint; gaussians of 1.2 to 1.5 pixels.
    EXPECT_GT(measures["stars"], 50);
    EXPECT_LT(measures["stars"], 130);
    for (const char* const width : {"hfd", "fwhm"}) {
        EXPECT_GT(measures[width], 2.35 * 1.2) << width;
        EXPECT_LT(measures[width], 2.36 * 1.5) << width;
    }
    EXPECT_GE(measures["elongation"], 1.0);
    EXPECT_LT(measures["elongation"], 1.25);
}

TEST(GrabMeasure, EachFrameHasItsFiguresInPrintAndInItsHeader)
{
    tcFolder folder;
    tcRun run(Measured({"--frames", "2"}), In(folder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Output(),
                testing::ContainsRegex("median [0-9.]+, noise [0-9.]+, [0-9]+ pixels saturated, "
                                       "[0-9]+ stars: HFD [0-9.]+, FWHM [0-9.]+, elongation "));
    for (const char* const name : {"frame-0001.fits", "frame-0002.fits"}) {
        const std::string path = folder.Path(name);
        ExpectVerified(path);
        const std::vector<unsigned> pixels = PixelsOf(path);
        const auto [least, most] = std::minmax_element(pixels.begin(), pixels.end());
        EXPECT_EQ(NumberOf(path, "DATAMIN"), *least);
        EXPECT_EQ(NumberOf(path, "DATAMAX"), *most);
        char text[80];
        std::snprintf(text, sizeof text, "%.0f stars: HFD %.2f, FWHM %.2f",
                      NumberOf(path, "NSTARS"), NumberOf(path, "HFD"), NumberOf(path, "FWHM"));
        EXPECT_THAT(run.Output(), HasSubstr(text));
    }
}

TEST(GrabMeasure, AlsoOfAFileOnStandardOutput)
{
    tcFolder folder, named;
    tcRun::tsHow how = In(folder);
    how.output = named.Path("piped.fits");
    tcRun run(Measured({"-o", "-"}), how);
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    ExpectVerified(how.output);
    EXPECT_GT(NumberOf(how.output, "NSTARS"), 50);
}

TEST(GrabMeasure, OnlyWhereItIsAskedFor)
{
    tcFolder folder;
    tcRun run({"grab", "--sim-sensor", "64x64", "-e", "1ms", "--json", "--header", "HFD=2"},
              In(folder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_FALSE(run.Document()["frames"][0].contains("measures"));
    EXPECT_THAT(FileText(folder.Path("frame.fits")), Not(HasSubstr("DATAMAX")));
    EXPECT_EQ(NumberOf(folder.Path("frame.fits"), "HFD"), 2);
}

TEST(GrabMeasure, WithoutStarsTheirWidthIsNull)
{
    tcFolder folder;
    tcRun run({"grab", "--bias", "--measure", "--sim-sensor", "64x64", "--json"}, In(folder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json measures = run.Document()["frames"][0]["measures"];
    EXPECT_EQ(measures["stars"], 0);
    EXPECT_TRUE(measures["hfd"].is_null());
    EXPECT_TRUE(measures["elongation"].is_null());
    EXPECT_NEAR(measures["noise"].get<double>(), 6, 0.3); // electrons of read noise
}

TEST(GrabMeasure, ItsWordsAreNotTheUsers)
{
    tcFolder folder;
    tcRun run(Measured({"--header", "fwhm=2"}), In(folder));
    EXPECT_EQ(run.Exit(), 1);
    EXPECT_EQ(run.Errors(), "vxcam: --header FWHM: --measure writes this word itself\n");
    tcRun recording(
        {"record", "sim", "--measure", "-n", "1", "-o", "a.fits", "--header", "NSTARS=7"},
        In(folder));
    EXPECT_EQ(recording.Exit(), 1);
    EXPECT_EQ(recording.Errors(), "vxcam: --header NSTARS: --measure writes this word itself\n");
    EXPECT_TRUE(folder.Names().empty());
}

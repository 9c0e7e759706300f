// Flat frames of a level, of the simulated camera before a lamp.
#include "grab_support.h"
#include "simulated_support.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Flat : public testing::Test
{
protected:
    Flat() : mCamera(Lamp(200, 100, 10)), msTarget(TargetOf(mCamera)) {}

    tcSimServer mCamera;
    const std::string msTarget;
    const tcFolder mFolder;
};

} // namespace

TEST_F(Flat, FindsTheExposureAndTakesNothingMore)
{
    tcRun run({"flat", msTarget, "--json"}, In(mFolder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_TRUE(mFolder.Names().empty());
    // Half of 65535 counts, without the 1000 that are there in the dark; a count for an electron of
    // the lamp and of the dark current.
    const double exposure = (65535 * 0.5 - 1000) / (gnLamp + 20);
    EXPECT_NEAR(run.Document()["exposure_s"].get<double>(), exposure, 0.03 * exposure);
    EXPECT_NEAR(run.Document()["tries"].back()["median_adu"].get<double>(), 65535 * 0.5, 700);
    EXPECT_EQ(run.Document()["level_adu"], 65535 * 0.5);
}

TEST_F(Flat, TakesFramesOfTheLevel)
{
    tcRun run({"flat", msTarget, "--level", "20000", "--frames", "2", "--header", "FILTER=R"},
              In(mFolder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(mFolder.Names(), ElementsAre("flat-0001.fits", "flat-0002.fits"));
    for (const std::string& name : mFolder.Names()) {
        const std::string path = mFolder.Path(name);
        ExpectVerified(path);
        const tsContent content = ReadFits(path);
        EXPECT_EQ(content.keys.at("IMAGETYP"), "Flat Field");
        const double mean = static_cast<double>(content.sum) / (200.0 * 100.0);
        EXPECT_NEAR(mean, 20000, 0.04 * 20000); // stars lie above the median
        EXPECT_THAT(FileText(path), HasSubstr("FILTER  = 'R"));
    }
    EXPECT_THAT(run.Output(), HasSubstr("1 s: median "));
    EXPECT_THAT(run.Output(), HasSubstr("flat-0002.fits: 200 x 100 pixels"));
}

TEST_F(Flat, LevelsArePartsOfTheScaleOfFewBits)
{
    tcRun run({"flat", msTarget, "--level", "25%", "--bits", "8", "--tolerance", "5%", "--json"},
              In(mFolder));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_NEAR(run.Document()["tries"].back()["median_adu"].get<double>(), 64, 4);
}

TEST_F(Flat, SaysWhereNoExposureDoesIt)
{
    tcRun dark({"flat", msTarget, "--longest", "20ms", "--json"}, In(mFolder));
    EXPECT_EQ(dark.Exit(), 4);
    EXPECT_EQ(dark.Errors(), "vxcam: too dark, even for 20ms\n");
    EXPECT_TRUE(dark.Document()["exposure_s"].is_null());
    ASSERT_EQ(tcRun({"set", msTarget, "offset=30000"}).Exit(), 0);
    tcRun low({"flat", msTarget, "--level", "20%"}, In(mFolder));
    EXPECT_EQ(low.Exit(), 1);
    EXPECT_THAT(low.Errors(), HasSubstr("the level lies between that without light and"));
}

TEST_F(Flat, ChecksWhatItIsTold)
{
    MakeFile(mFolder.Path("flat.fits"), "");
    const auto fails = [&](const std::vector<std::string>& more, int code, const char* why) {
        std::vector<std::string> words{"flat", msTarget};
        words.insert(words.end(), more.begin(), more.end());
        tcRun run(words, In(mFolder));
        EXPECT_EQ(run.Exit(), code) << why;
        EXPECT_THAT(run.Errors(), HasSubstr(why));
    };
    fails({"--level", "half"}, 1, "level 'half'");
    fails({"--level", "99%"}, 1, "at most 95 % of full scale");
    fails({"--level", "300", "--bits", "8"}, 1, "at most 95 % of full scale");
    fails({"--tolerance", "2"}, 1, "tolerance '2'");
    fails({"--bits", "12"}, 1, "--bits: 8 or 16");
    fails({"-o", "a.png"}, 1, "it would be a FITS file");
    fails({"-o", "a.raw"}, 1, "it would be a FITS file");
    fails({"-n", "1", "-o", "-"}, 1, "-: flat frames do not go to standard output; ./- is a file");
    fails({"--area", "150,0,100,10"}, 1, "beyond the sensor");
    fails({"--nonsense"}, 1, "--nonsense");
    fails({"-n", "1"}, 5, "flat.fits");
    fails({"-n", "1", "-o", "nowhere/a.fits"}, 5, "nowhere/a.fits");
}

// Applications whose numbers have a comma, as those with windows have in many countries.
#include "files_support.h"
#include "kit_support.h"

#include <vxcamkit/fits.h>
#include <vxcamkit/profile.h>

#include <clocale>

using namespace vxcam;
using testing::HasSubstr;

namespace {

class WithComma : public KitCamera
{
protected:
    void SetUp() override
    {
        KitCamera::SetUp();
        makeTextFile(folder_.path("source"), "LC_NUMERIC\ndecimal_point \"<U002C>\"\n"
                                             "thousands_sep \"\"\ngrouping -1\nEND LC_NUMERIC\n");
        Output("localedef -c -i " + folder_.path("source") + " -f ANSI_X3.4-1968 " +
               folder_.path("comma") + " 2>&1");
        ::setenv("LOCPATH", folder_.path().c_str(), 1);
        if (std::setlocale(LC_NUMERIC, "comma") == nullptr) {
            GTEST_SKIP() << "no locale can be made here (the package locales)";
        }
        char text[8];
        std::snprintf(text, sizeof text, "%.1f", 0.5);
        ASSERT_STREQ(text, "0,5");
    }
    void TearDown() override
    {
        std::setlocale(LC_NUMERIC, "C");
        ::unsetenv("LOCPATH");
    }

    const Folder folder_;
};

} // namespace

TEST_F(WithComma, ValuesAreWhatTheyAre)
{
    Camera& camera = open();
    EXPECT_EQ(camera.set("target-temp", -12.5).toDouble(), -12.5);
    EXPECT_EQ(camera.set("pid", "1.25,2.5,0.125").text(), "1.25,2.5,0.125");
    EXPECT_EQ(camera.set("exposure", "0.5").toTime(), 500ms);
    const Profile profile = Profile::parse(camera.profile().json());
    camera.set("target-temp", 0);
    camera.apply(profile);
    EXPECT_EQ(camera.get("target-temp").text(), "-12.5C");
}

TEST_F(WithComma, CardsOfFilesHavePoints)
{
    Camera& camera = open({"stall:readout=2,packet=20,seconds=0.25"});
    HeaderOptions options;
    options.cards = {parseCard("EQUINOX=2000.5")};
    const Frame frame = camera.grab(planOf(1, 20ms));
    const FileBytes file = makeFits(frame, options);
    const std::string header(reinterpret_cast<const char*>(file.data()), size_t{2880} * 2);
    EXPECT_THAT(header, HasSubstr("EXPTIME =             0.020000 / "));
    EXPECT_THAT(header, HasSubstr("LTM1_1  =                  1.0 / "));
    EXPECT_THAT(header, HasSubstr("EQUINOX =               2000.5 "));
}

TEST_F(WithComma, TextsForPeopleHavePointsToo)
{
    Camera& camera = open({"half-open:readout=1,packet=20"});
    Plan plan = planOf(1);
    plan.timeout = 150ms;
    EXPECT_THAT(errorOf([&] { camera.grab(plan); }).what(), HasSubstr("silent for 0.15 s"));
}

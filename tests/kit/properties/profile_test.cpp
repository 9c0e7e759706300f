// Profiles: a camera's settings in a file.
#include "opened_camera.h"
#include "property_samples.h"

#include <vxcamkit/profile.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using vxcam::findProperty;
using vxcam::Outcome;
using vxcam::Profile;
using vxcam::PropertyName;
using vxcam::Settings;
using vxcam::Value;

namespace {

const std::string kHead = R"({"format": "vxcam profile", "version": 1, "settings": )";

void setAll(SimulatedCamera& camera, bool first, Settings* made = nullptr)
{
    for (const Sample& sample : allSamples()) {
        const PropertyName name = findProperty(sample.name);
        const Value value = vxcam::parsedText(name.text, name.property->shape,
                                              first ? sample.first : sample.second);
        if (name.property->nature == vxcam::Nature::Identity) continue;
        vxcam::writeProperty(camera.access(), name, value);
        if (made != nullptr) made->set(name, value);
    }
}

std::vector<std::string> namesIn(const Profile& profile)
{
    std::vector<std::string> names;
    for (const vxcam::Setting& setting : profile.settings()) {
        names.push_back(setting.name.text);
    }
    return names;
}

} // namespace

// Each property that is a setting is in it, read from the camera or as the application made it.
TEST(Profile, HoldsEverySettingAndMakesItAgain)
{
    SimulatedCamera camera;
    Settings made;
    setAll(camera, true, &made);
    const Profile saved = Profile::of(camera.access(), made, true);
    EXPECT_TRUE(saved.gaps().empty());
    setAll(camera, false);
    const Profile loaded = Profile::parse(saved.json());
    EXPECT_EQ(namesIn(loaded), namesIn(saved));
    EXPECT_TRUE(loaded.gaps().empty());
    const std::vector<Outcome> outcomes = loaded.applyTo(camera.access());
    EXPECT_GT(outcomes.size(), 25u);
    for (const Outcome& outcome : outcomes) {
        EXPECT_TRUE(outcome.isRestored()) << outcome.name << ": " << outcome.why;
    }
    for (const vxcam::Property& property : vxcam::properties()) {
        if (property.nature != vxcam::Nature::Setting || property.key != nullptr) continue;
        EXPECT_TRUE(loaded.settings().has({&property, 0, property.name})) << property.name;
    }
}

TEST(Profile, LeavesOutWhatNobodyKnowsAndWhatIsTheCameraItself)
{
    SimulatedCamera camera;
    const Profile profile = Profile::of(camera.access());
    EXPECT_THAT(namesIn(profile), Not(Contains("area"))); // nobody has set one
    EXPECT_THAT(namesIn(profile), Not(Contains("fan")));
    EXPECT_THAT(namesIn(profile), Not(Contains("bin-mask")));
    EXPECT_THAT(namesIn(profile), Not(Contains("bin-table:0"))); // it has none
    EXPECT_THAT(namesIn(profile), Not(Contains("exposure-ex"))); // in other words
    EXPECT_THAT(namesIn(profile), Not(Contains("hardware-info")));
    EXPECT_THAT(namesIn(profile), Contains("exposure"));
}

TEST(Profile, IsJsonThatAPersonCanWrite)
{
    SimulatedCamera camera;
    Profile profile =
        Profile::parse(kHead + R"({"exposure": "1.5", "gain": 2, "mirroring": "on,off"}})");
    profile.setCamera("192.168.1.20:2000");
    const auto document = nlohmann::json::parse(profile.json());
    EXPECT_EQ(document["camera"], "192.168.1.20:2000");
    EXPECT_EQ(document["settings"]["exposure"], 1500);
    EXPECT_EQ(document["settings"]["mirroring"]["horizontal"], true);
    EXPECT_THAT(document["saved"], HasSubstr("Z"));
    EXPECT_EQ(Profile::parse(profile.json()).camera(), "192.168.1.20:2000");
}

TEST(Profile, TellsWhatItCannotRestore)
{
    SimulatedCamera camera;
    const Profile profile = Profile::parse(
        kHead + R"({"gain": 9, "exposure": 20, "speed": 1, "cooling": "maybe", "trigger": 1}})");
    std::map<std::string, std::string> troubles;
    for (const Outcome& outcome : profile.applyTo(camera.access())) {
        if (!outcome.isRestored()) troubles[outcome.name] = outcome.why;
    }
    EXPECT_EQ(troubles.size(), 4u);
    EXPECT_THAT(troubles["gain"], HasSubstr("gain 9 is above 7"));
    EXPECT_THAT(troubles["speed"], HasSubstr("unknown property 'speed'"));
    EXPECT_THAT(troubles["cooling"], HasSubstr("write on or off"));
    EXPECT_EQ(troubles["trigger"], "it is no setting");
}

TEST(Profile, RefusesWhatIsNone)
{
    const auto refusal = [](const std::string& text) {
        return refusalOf([&] { Profile::parse(text); });
    };
    EXPECT_EQ(refusal(""), "profile: it is no JSON object");
    EXPECT_EQ(refusal("[1]"), "profile: it is no JSON object");
    EXPECT_EQ(refusal("{}"), "profile: it is none of vxcam");
    EXPECT_EQ(refusal(R"({"format": "vxcam profile", "version": 2, "settings": {}})"),
              "profile: its version is not known here");
    EXPECT_EQ(refusal(kHead + "[]}"), "profile: it has no settings");
    EXPECT_EQ(refusal(R"({"format": "vxcam profile", "version": 1})"),
              "profile: it has no settings");
}

TEST(Profile, IsSavedAsAWholeOrNotAtAll)
{
    std::string folder = (std::filesystem::temp_directory_path() / "vxcamXXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string name = folder + "/night.json";
    const Profile first = Profile::parse(kHead + R"({"gain": 2}})");
    const Profile second = Profile::parse(kHead + R"({"exposure": 20}})");
    first.save(name);
    EXPECT_THAT(namesIn(Profile::load(name)), testing::ElementsAre("gain"));
    EXPECT_THAT(refusalOf([&] { second.save(name); }, vxcam::ErrorKind::File),
                HasSubstr("exists already"));
    EXPECT_THAT(namesIn(Profile::load(name)), testing::ElementsAre("gain"));
    second.save(name, true);
    EXPECT_THAT(namesIn(Profile::load(name)), testing::ElementsAre("exposure"));
    EXPECT_THAT(refusalOf([&] { first.save(folder + "/none/night.json"); }, vxcam::ErrorKind::File),
                HasSubstr("there is no folder"));
    const auto left = std::filesystem::directory_iterator(folder);
    EXPECT_EQ(std::distance(begin(left), end(left)), 1) << "nothing hidden stays beside it";
    std::filesystem::remove_all(folder);
}

TEST(Profile, IsLoadedFromAFile)
{
    std::string name = (std::filesystem::temp_directory_path() / "vxcamXXXXXX").string();
    close(mkstemp(name.data()));
    std::ofstream(name) << kHead << R"({"gain": 2}})";
    EXPECT_THAT(namesIn(Profile::load(name)), testing::ElementsAre("gain"));
    std::ofstream(name) << "nonsense";
    EXPECT_EQ(refusalOf([&] { Profile::load(name); }), name + ": profile: it is no JSON object");
    std::filesystem::remove(name);
    EXPECT_EQ(refusalOf([&] { Profile::load(name); }, vxcam::ErrorKind::File),
              name + ": No such file or directory");
    EXPECT_THAT(refusalOf([&] { Profile::load("/"); }, vxcam::ErrorKind::File),
                HasSubstr("Is a directory"));
}

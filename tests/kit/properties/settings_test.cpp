// Settings that are made again, on the same camera or another one.
#include "opened_camera.h"
#include "property_samples.h"

#include <vxcamkit/settings.h>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using vxcam::findProperty;
using vxcam::Outcome;
using vxcam::PropertyName;
using vxcam::Settings;
using vxcam::Value;

namespace {

void add(Settings* settings, const std::string& name, const Value& value)
{
    const PropertyName known = findProperty(name);
    settings->set(known, vxcam::fitted(name, known.property->shape, value));
}

std::vector<std::string> namesIn(const Settings& settings)
{
    std::vector<std::string> names;
    for (const vxcam::Setting& setting : settings) {
        names.push_back(setting.name.text);
    }
    return names;
}

std::vector<std::string> shown(const std::vector<Outcome>& outcomes)
{
    std::vector<std::string> lines;
    for (const Outcome& outcome : outcomes) {
        lines.push_back(outcome.name + " " + nameOf(outcome.how));
    }
    return lines;
}

} // namespace

TEST(Settings, StandInTheOrderOfTheTable)
{
    Settings settings;
    add(&settings, "gain", 2);
    add(&settings, "bin-table:3", "0x01");
    add(&settings, "bin-table:1", "0x01");
    add(&settings, "exposure", 2);
    add(&settings, "gain", 3);
    EXPECT_THAT(namesIn(settings), ElementsAre("exposure", "bin-table:1", "bin-table:3", "gain"));
    EXPECT_EQ(settings.find("gain")->value, Value(3));
    EXPECT_EQ(settings.find("fan"), nullptr);
    settings.remove(findProperty("bin-table:3"));
    EXPECT_THAT(namesIn(settings), ElementsAre("exposure", "bin-table:1", "gain"));
}

TEST(Settings, OfSeveralThatSetTheSameTheLastCounts)
{
    Settings settings;
    add(&settings, "exposure", 2);
    add(&settings, "exposure-ex", 5);
    EXPECT_THAT(namesIn(settings), ElementsAre("exposure-ex"));
    add(&settings, "exposure", 3);
    EXPECT_THAT(namesIn(settings), ElementsAre("exposure"));
    add(&settings, "area-regions", "0,0,1,1");
    add(&settings, "area", "0,0,1,1");
    add(&settings, "parameter:5", 1);
    add(&settings, "parameter-int:6", 1);
    add(&settings, "parameter-int:5", 1);
    EXPECT_THAT(namesIn(settings),
                ElementsAre("exposure", "area", "parameter-int:5", "parameter-int:6"));
    EXPECT_TRUE(settings.has(findProperty("area-regions")));
}

TEST(Settings, AreNotWhatActsOrIsTheCameraItself)
{
    Settings settings;
    for (const char* name : {"trigger", "cis-calibrate", "recording", "register:1", "ccd-temp",
                             "hardware-info", "network-config"}) {
        EXPECT_FALSE(settings.set(findProperty(name), 1)) << name;
    }
    EXPECT_TRUE(settings.empty());
}

// All that there are, on a camera that was set otherwise.
TEST(Settings, OfEveryPropertyAreRestored)
{
    SimulatedCamera camera;
    Settings settings;
    for (const Sample& sample : allSamples()) {
        const PropertyName name = findProperty(sample.name);
        vxcam::writeProperty(camera.access(), name,
                             vxcam::parsedText(name.text, name.property->shape, sample.second));
        settings.set(name, vxcam::parsedText(name.text, name.property->shape, sample.first));
    }
    for (const Outcome& outcome : settings.applyTo(camera.access())) {
        const bool canTell = findProperty(outcome.name).property->isReadable();
        EXPECT_EQ(outcome.how, canTell ? Outcome::How::Confirmed : Outcome::How::Sent)
            << outcome.name << ": " << outcome.why;
    }
}

TEST(Settings, OfNoAreaAreRestoredWithTheWholeSensor)
{
    SimulatedCamera camera;
    Settings settings;
    add(&settings, "area", "none");
    const std::vector<Outcome> outcomes = settings.applyTo(camera.access());
    EXPECT_THAT(shown(outcomes), ElementsAre("area confirmed")) << outcomes[0].why;
    add(&settings, "area", "1,2,5,2");
    EXPECT_THAT(shown(settings.applyTo(camera.access())), ElementsAre("area confirmed"));
}

TEST(Settings, ThatCannotBeRestoredAreTold)
{
    tcActor actor({{0x2A, MessageBytes(0x75, std::string("\3\x2Atoo much\0", 11))},
                   {0x4E, MessageBytes(0x7B, LittleEndian(static_cast<uint32_t>(-150), 4))}});
    OpenedCamera camera(actor.Port());
    Settings settings;
    add(&settings, "area", "6,0,4,4"); // the sensor has 8 columns
    add(&settings, "target-temp", -20);
    add(&settings, "fan", false);
    add(&settings, "gain", 9);
    const std::vector<Outcome> outcomes = settings.applyTo(camera);
    EXPECT_THAT(shown(outcomes),
                ElementsAre("area refused", "target-temp different", "fan sent", "gain refused"));
    EXPECT_THAT(outcomes[0].why, HasSubstr("reaches beyond the sensor"));
    EXPECT_EQ(outcomes[1].why, "the camera tells -15C");
    EXPECT_EQ(outcomes[1].told.text(), "-15C");
    EXPECT_THAT(outcomes[3].why, HasSubstr("too much"));
    EXPECT_FALSE(outcomes[1].isRestored());
    EXPECT_TRUE(outcomes[2].isRestored());
}

namespace {

// A camera that is gone after so many questions.
class Vanishing : public OpenedCamera
{
public:
    Vanishing(uint16_t port, int answers) : OpenedCamera(port), answers_(answers) {}
    void roundTrip() override
    {
        if (answers_-- <= 0) throw vxcam::Error(vxcam::ErrorKind::LinkLost, "the link is lost");
        OpenedCamera::roundTrip();
    }

private:
    int answers_;
};

} // namespace

TEST(Settings, AreNotTriedOnACameraThatIsGone)
{
    tcActor actor;
    Vanishing camera(actor.Port(), 1);
    Settings settings;
    add(&settings, "fan", true);
    add(&settings, "gain", 1);
    add(&settings, "cis-channel", "both");
    const std::vector<Outcome> outcomes = settings.applyTo(camera);
    EXPECT_THAT(shown(outcomes),
                ElementsAre("fan sent", "gain unanswered", "cis-channel unanswered"));
    EXPECT_EQ(outcomes[2].why, "the link is lost");
}

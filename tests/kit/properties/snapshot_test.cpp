// How a camera is set at one moment.
#include "opened_camera.h"
#include "property_samples.h"

#include <vxcamkit/property.h>
#include <vxcamkit/snapshot.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vxcam::findProperty;
using vxcam::Snapshot;
using vxcam::Value;

namespace {

void set(SimulatedCamera& camera, const std::string& name, const Value& value)
{
    vxcam::writeProperty(camera.access(), findProperty(name), value);
}

// A camera of whose answers some do not come, without the ten seconds that this takes to know.
class Deaf : public OpenedCamera
{
public:
    Deaf(uint16_t port, std::set<std::string> unanswered)
        : OpenedCamera(port), unanswered_(std::move(unanswered))
    {}

    void require(int result, const std::string& what) override
    {
        asked_.push_back(what);
        const bool isLost = unanswered_.count(what) != 0;
        if (isLost) throw vxcam::Error(vxcam::ErrorKind::Timeout, what + ": no answer");
        OpenedCamera::require(result, what);
    }
    // Since the last time.
    std::vector<std::string> asked()
    {
        std::vector<std::string> names = std::move(asked_);
        asked_.clear();
        names.erase(std::remove(names.begin(), names.end(), "round trip"), names.end());
        return names;
    }

private:
    std::set<std::string> unanswered_;
    std::vector<std::string> asked_;
};

tsSimOptions smallCamera()
{
    tsSimOptions options;
    options.columns = 64;
    options.rows = 32;
    options.heartbeatSeconds = 0;
    return options;
}

std::vector<std::string> unaskedIn(const Snapshot& snapshot)
{
    std::vector<std::string> names;
    for (const Snapshot::Entry& entry : snapshot) {
        if (!entry.isAsked) names.push_back(entry.name);
    }
    return names;
}

std::vector<std::string> namesIn(const Snapshot& snapshot)
{
    std::vector<std::string> names;
    for (const Snapshot::Entry& entry : snapshot) {
        names.push_back(entry.name);
    }
    return names;
}

} // namespace

TEST(Snapshot, HoldsAllThatIsListedInTheTablesOrder)
{
    SimulatedCamera camera;
    set(camera, "gain", 3);
    const Snapshot snapshot = Snapshot::of(camera.access());
    std::vector<std::string> expected;
    for (const vxcam::Property& property : vxcam::properties()) {
        const bool isListed = property.isListed && property.key == nullptr;
        if (isListed && property.isReadable()) expected.emplace_back(property.name);
    }
    EXPECT_EQ(namesIn(snapshot), expected);
    EXPECT_EQ(snapshot.value("gain"), Value(3));
    EXPECT_EQ(*snapshot.find("exposure"), "1s");
    EXPECT_EQ(*snapshot.find("area"), "none");
    EXPECT_EQ(snapshot.find("fan"), nullptr);
    EXPECT_TRUE(snapshot.value("fan").isNothing());
}

TEST(Snapshot, CostsAQuestionForEachAndLaterOneForEachThatChangesByItself)
{
    SimulatedCamera camera;
    const auto asked = [&] { return camera.server().Statistics().commands; };
    camera.access().roundTrip();
    const uint64_t before = asked();
    const Snapshot snapshot = Snapshot::of(camera.access());
    const uint64_t whole = asked() - before;
    EXPECT_LE(whole, snapshot.size());
    snapshot.again(camera.access(), Snapshot::Again::Changing);
    EXPECT_LE(asked() - before - whole, 4u); // intervals, pins, calibration
}

TEST(Snapshot, IsTakenAnewAsFarAsItIsAskedFor)
{
    SimulatedCamera camera;
    const Snapshot first = Snapshot::of(camera.access());
    set(camera, "gain", 3);
    set(camera, "gpio:0", "high"); // which changes the pins
    const Snapshot changing = first.again(camera.access(), Snapshot::Again::Changing);
    EXPECT_EQ(changing.value("gain"), Value(0));
    EXPECT_EQ(changing.value("gpio"), Value(1));
    const Snapshot all = first.again(camera.access(), Snapshot::Again::All);
    EXPECT_EQ(all.value("gain"), Value(3));
    EXPECT_EQ(namesIn(all), namesIn(first));
    EXPECT_EQ(first.value("gpio"), Value(0)); // a value of its own
}

// It complains about the mirroring and tells what is asked behind that.
TEST(Snapshot, NotesWhatTheCameraRefuses)
{
    tcActor actor({{0x52, MessageBytes(0x75, std::string("\3\x2Ano mirrors\0", 13)) +
                              MessageBytes(0x7C, words({1, 0}), 1)}});
    OpenedCamera camera(actor.Port());
    Snapshot snapshot;
    snapshot.set("mirroring", "off,off");
    const Snapshot told = snapshot.again(camera, Snapshot::Again::All);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_THAT(told.begin()->trouble, HasSubstr("no mirrors"));
    EXPECT_TRUE(told.value("mirroring").isNothing());
    EXPECT_THAT(told.text(), HasSubstr("mirroring: no mirrors\n"));
    EXPECT_EQ(told.json(), R"({"mirroring":null})");
    const uint64_t complaints = camera.complaints();
    EXPECT_EQ(told.again(camera, Snapshot::Again::All), told); // it is not asked again
    EXPECT_EQ(camera.complaints(), complaints);
}

TEST(Snapshot, OfSettingsHasNoneOfWhatChangesByItselfAndNoBytes)
{
    SimulatedCamera camera;
    const Snapshot settings = Snapshot::of(camera.access(), Snapshot::Scope::Settings);
    EXPECT_NE(settings.find("gain"), nullptr);
    EXPECT_NE(settings.find("area-regions"), nullptr);
    for (const char* const name : {"ccd-temp", "image-intervals", "readout-noise", "bin-table:0",
                                   "bin-mask", "timing-data", "hardware-info", "trigger", "fan"}) {
        EXPECT_EQ(settings.find(name), nullptr) << name;
    }
}

TEST(Snapshot, WaitsOnceForWhatDoesNotComeAndAsksForTheRestLater)
{
    tcSimServer server(smallCamera());
    Deaf camera(server.Start(), {"mirroring", "pid"});
    const Snapshot unasked = Snapshot::unasked(Snapshot::Scope::Settings);
    EXPECT_EQ(unaskedIn(unasked), namesIn(unasked));
    EXPECT_THAT(unasked.entry("gain")->trouble, HasSubstr("not asked"));

    const Snapshot first = unasked.again(camera, Snapshot::Again::Missing);
    EXPECT_EQ(camera.asked().back(), "mirroring");
    EXPECT_THAT(first.entry("mirroring")->trouble, HasSubstr("no answer"));
    EXPECT_TRUE(first.entry("image-interval")->trouble.empty());
    EXPECT_FALSE(first.entry("gain")->isAsked);

    const Snapshot second = first.again(camera, Snapshot::Again::Missing);
    EXPECT_EQ(camera.asked().back(), "pid");
    const Snapshot third = second.again(camera, Snapshot::Again::Missing);
    EXPECT_THAT(unaskedIn(third), IsEmpty());
    EXPECT_EQ(third.value("gain"), Value(0));
    camera.asked();
    EXPECT_EQ(third.again(camera, Snapshot::Again::Missing), third);
    EXPECT_THAT(camera.asked(), IsEmpty());
}

TEST(Snapshot, ForgottenIsAskedAnewButForWhatNeverCame)
{
    tcSimServer server(smallCamera());
    Deaf camera(server.Start(), {"pid"});
    Snapshot snapshot = Snapshot::of(camera, Snapshot::Scope::Settings);
    snapshot.set("filter", "on,off"); // which can only be set
    const Snapshot forgotten = snapshot.forgotten();
    EXPECT_FALSE(forgotten.entry("gain")->isAsked);
    EXPECT_TRUE(forgotten.entry("pid")->isAsked);
    EXPECT_EQ(*forgotten.find("filter"), "on,off");
    camera.asked();
    EXPECT_EQ(forgotten.again(camera, Snapshot::Again::All), snapshot);
    EXPECT_EQ(camera.asked().size(), snapshot.size() - 2);
}

TEST(Snapshot, OfOneNameIsTakenAnew)
{
    tcSimServer server(smallCamera());
    Deaf camera(server.Start(), {"pid"});
    const Snapshot snapshot = Snapshot::of(camera, Snapshot::Scope::Settings);
    vxcam::writeProperty(camera, findProperty("gain"), 3);
    vxcam::writeProperty(camera, findProperty("cooling"), "on");
    camera.asked();
    const Snapshot again = snapshot.again(camera, "gain");
    EXPECT_THAT(camera.asked(), ElementsAre("gain"));
    EXPECT_EQ(again.value("gain"), Value(3));
    EXPECT_EQ(again.value("cooling"), snapshot.value("cooling"));
    EXPECT_EQ(snapshot.again(camera, "pid"), snapshot);
    EXPECT_EQ(snapshot.again(camera, "fan"), snapshot);
    EXPECT_THAT(camera.asked(), IsEmpty());
}

TEST(Snapshot, IsWrittenAsTextAndJson)
{
    Snapshot snapshot;
    snapshot.set("gain", Value(2));
    snapshot.set("area", Value());
    EXPECT_EQ(snapshot.text(), "gain=2\narea=none\n");
    EXPECT_EQ(snapshot.json(), R"({"gain":2,"area":null})");
    SimulatedCamera camera;
    const auto whole = nlohmann::json::parse(Snapshot::of(camera.access()).json());
    EXPECT_EQ(whole["exposure"], 1000);
    EXPECT_EQ(whole["mirroring"]["horizontal"], false);
}

TEST(Snapshot, KeepsOneValueOfEachName)
{
    Snapshot snapshot;
    EXPECT_TRUE(snapshot.empty());
    snapshot.set("gain", "2");
    Snapshot other = snapshot;
    other.set("gain", "3");
    other.set("offset", "1");
    EXPECT_EQ(*snapshot.find("gain"), "2");
    EXPECT_EQ(*other.find("gain"), "3");
    EXPECT_EQ(other.size(), 2u);
    EXPECT_FALSE(snapshot == other);
}

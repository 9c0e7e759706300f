// The table of properties: each can be set and read back, and each sends what it should.
#include "opened_camera.h"
#include "property_samples.h"

#include "values/field_values.h"

#include <vxcamkit/property.h>

#include <gmock/gmock.h>

#include <cmath>
#include <set>

using testing::HasSubstr;
using testing::StartsWith;
using vxcam::FieldKind;
using vxcam::findProperty;
using vxcam::Property;
using vxcam::PropertyName;
using vxcam::Value;
using namespace std::chrono_literals;

namespace {

Value parsed(const PropertyName& name, const std::string& text)
{
    return vxcam::parsedText(name.text, name.property->shape, text);
}

std::string told(vxcam::Access& access, const std::string& name)
{
    return vxcam::readProperty(access, findProperty(name)).text();
}

void set(vxcam::Access& access, const std::string& name, const Value& value)
{
    vxcam::writeProperty(access, findProperty(name), value);
}

} // namespace

TEST(Properties, HaveASampleHereWhenTheyCanBeSet)
{
    std::vector<std::string> sampled, settable;
    for (const Sample& sample : allSamples()) {
        sampled.push_back(findProperty(sample.name).property->fullName());
    }
    for (const Property& property : vxcam::properties()) {
        if (property.isWritable()) settable.push_back(property.fullName());
    }
    EXPECT_THAT(sampled, testing::UnorderedElementsAreArray(settable));
}

TEST(Properties, HaveNamesOfTheirOwnAndSomeUse)
{
    std::set<std::string> names;
    for (const Property& property : vxcam::properties()) {
        EXPECT_TRUE(names.insert(property.fullName()).second) << property.name;
        EXPECT_TRUE(property.isReadable() || property.isWritable()) << property.name;
        EXPECT_STRNE(property.help, "") << property.name;
        EXPECT_FALSE(property.shape.fields.empty()) << property.name;
    }
    EXPECT_EQ(names.count("get") + names.count("set"), 0u); // words of the program's verbs
}

TEST(Properties, WhoseNatureIsAStateOrDerivedCannotBeSet)
{
    for (const Property& property : vxcam::properties()) {
        const bool isTold =
            property.nature == vxcam::Nature::State || property.nature == vxcam::Nature::Derived;
        EXPECT_EQ(isTold, !property.isWritable()) << property.name;
    }
}

// A later value replaces an earlier one, so that what is read is what was set.
TEST(Properties, ThatCanBeSetReadBackWhatWasSet)
{
    SimulatedCamera camera;
    for (const Sample& sample : allSamples()) {
        const PropertyName name = findProperty(sample.name);
        ASSERT_NE(sample.first, sample.second);
        for (const std::string& text : {sample.first, sample.second, sample.first}) {
            const Value asked = parsed(name, text);
            const Value answer = vxcam::writeProperty(camera.access(), name, asked);
            EXPECT_TRUE(vxcam::isAsAsked(asked, answer)) << sample.name;
            if (!name.property->isReadable()) continue;
            if (name.property->field().kind == FieldKind::Bytes) { // may be longer
                EXPECT_THAT(told(camera.access(), sample.name), StartsWith(text)) << sample.name;
            } else {
                EXPECT_EQ(told(camera.access(), sample.name), text) << sample.name;
            }
        }
    }
}

TEST(Properties, SendTheirMessages)
{
    for (const Sample& sample : allSamples()) {
        tcActor actor({{0x3B, MessageBytes(0x6A, "")}, {0x34, HardwareAnswer(32, 64)}});
        OpenedCamera camera(actor.Port());
        const PropertyName name = findProperty(sample.name);
        const vxcam::FieldValues values =
            vxcam::fieldsOf(name.text, name.property->shape, parsed(name, sample.first));
        EXPECT_EQ(0, name.property->write(camera, name.key, values));
        ASSERT_TRUE(WaitUntil([&] {
            camera.roundTrip();
            return !actor.Payload(sample.id).empty();
        })) << sample.name;
        EXPECT_EQ(hex(actor.Payload(sample.id)).substr(0, 2 + 2 * sample.payload.size()),
                  hex(sample.payload))
            << sample.name;
    }
}

TEST(Properties, ThatCanOnlyBeReadAreReadable)
{
    SimulatedCamera camera;
    const auto text = [&](const std::string& name) { return told(camera.access(), name); };
    EXPECT_EQ(text("ccd-temp"), "20C");
    EXPECT_EQ(text("board-temp"), "25C");
    EXPECT_EQ(text("readout-noise"), "6,6");
    EXPECT_EQ(text("gain-config"), "0,1,7");
    EXPECT_EQ(text("image-intervals"), "0s,0s,0s,0s");
    EXPECT_EQ(text("cis-calibration-state"), "0");
    EXPECT_EQ(text("gpio"), "0x00000000");
    EXPECT_EQ(text("area"), "none");
    EXPECT_EQ(text("parameter-text:3"), "vxcamsim");
    EXPECT_EQ(text("parameter:2"), "1");
    EXPECT_EQ(text("parameter-float:5"), "20");
}

TEST(Properties, TakeWhateverAProgramHasAtHand)
{
    SimulatedCamera camera;
    set(camera.access(), "gain", 2);
    set(camera.access(), "exposure", 90s);
    set(camera.access(), "target-temp", -20.3);
    set(camera.access(), "cooling", true);
    set(camera.access(), "trigger-mode", Value::list({"frame", 3}));
    set(camera.access(), "area", Value::list({1, 2, 5, 2}));
    set(camera.access(), "parameter-text:1003", "C:\\temp\n");
    EXPECT_EQ(told(camera.access(), "gain"), "2");
    EXPECT_EQ(told(camera.access(), "exposure"), "90s");
    EXPECT_EQ(told(camera.access(), "target-temp"), "-20.3C");
    EXPECT_EQ(told(camera.access(), "cooling"), "on");
    EXPECT_EQ(told(camera.access(), "trigger-mode"), "frame,3,0");
    EXPECT_EQ(told(camera.access(), "area"), "1,2,5,2");
    EXPECT_EQ(told(camera.access(), "parameter-text:1003"), "C:\\\\temp\\n");
}

TEST(Properties, TargetTemperaturesAreSentToTheNearestTenth)
{
    SimulatedCamera camera;
    const PropertyName name = findProperty("target-temp");
    for (int tenths = -600; tenths <= 500; ++tenths) {
        const Value answer = vxcam::writeProperty(camera.access(), name, tenths / 10.0);
        ASSERT_EQ(tenths, std::lround(answer.toDouble() * 10.0));
    }
}

TEST(Properties, NamesThatAreUnknownBringNearOnes)
{
    const auto text = [](const std::string& name) {
        return refusalOf([&] { findProperty(name); });
    };
    EXPECT_EQ(text("gian"), "unknown property 'gian', did you mean gain?");
    EXPECT_THAT(text("temp"), HasSubstr("did you mean target-temp, ccd-temp, board-temp"));
    EXPECT_THAT(text("expossure"), HasSubstr("did you mean exposure"));
    EXPECT_EQ(text("qqqq"), "unknown property 'qqqq' (vxcam get --help lists them)");
    EXPECT_LT(text(std::string(100000, 'q')).size(), 200u);
}

TEST(Properties, KeysAreChecked)
{
    const auto text = [](const std::string& name) {
        return refusalOf([&] { findProperty(name); });
    };
    EXPECT_EQ(text("register"), "property 'register': write register:ADDRESS");
    EXPECT_EQ(text("gain:1"), "property 'gain:1': write gain");
    EXPECT_EQ(text("gpio:32"), "gpio:32: PIN is a number from 0 to 31");
    EXPECT_EQ(text("register:x"), "register:x: ADDRESS is a number from 0 to 4294967295");
    EXPECT_EQ(text("register:"), "register:: ADDRESS is a number from 0 to 4294967295");
    EXPECT_EQ(findProperty("register:0xFFFFFFFF").key, 0xFFFFFFFF);
    EXPECT_EQ(findProperty("gpio").property->key, nullptr);
}

TEST(Properties, ParametersOfAnotherSizeAndUnknownOnesAreCameraErrors)
{
    SimulatedCamera camera;
    const auto text = [&](const std::string& name) {
        return refusalOf([&] { told(camera.access(), name); }, vxcam::ErrorKind::Camera);
    };
    EXPECT_EQ(text("parameter:3"), "parameter 3: it has not 4 bytes, try parameter-bytes:3");
    EXPECT_THAT(text("parameter:99"), StartsWith("parameter 99: the camera answers status 1"));
    EXPECT_THAT(text("parameter-bytes:99"), StartsWith("parameter 99: the camera answers"));
}

TEST(Properties, WhatIsImpossibleIsRefusedBeforeItIsSent)
{
    SimulatedCamera camera;
    const auto refusal = [&](const std::string& name, const Value& value) {
        return refusalOf([&] { set(camera.access(), name, value); });
    };
    const uint64_t before = camera.server().Statistics().commands;
    EXPECT_EQ(refusal("gain", -1), "gain '-1': out of range, it is 0 to 2147483647");
    EXPECT_EQ(refusal("exposure", 900us),
              "exposure: time '900us': below 1 ms, the finest step is 1 ms");
    EXPECT_EQ(refusal("area", "60,0,8,4"), "area: reaches beyond the sensor of 64 x 32 pixels");
    EXPECT_EQ(refusal("ccd-temp", 5), "property 'ccd-temp' can only be read");
    EXPECT_EQ(refusalOf([&] { told(camera.access(), "fan"); }), "property 'fan' can only be set");
    EXPECT_EQ(camera.server().Statistics().commands, before);
}

TEST(Properties, WhatTheCameraRefusesIsACameraErrorWithItsCode)
{
    SimulatedCamera camera;
    try {
        set(camera.access(), "gain", 9);
        FAIL() << "taken";
    } catch (const vxcam::Error& error) {
        EXPECT_EQ(error.kind(), vxcam::ErrorKind::Camera);
        EXPECT_EQ(error.code(), 3);
        EXPECT_EQ(error.subCode(), 0x2A);
        EXPECT_THAT(error.what(), HasSubstr("gain 9 is above 7"));
    }
    set(camera.access(), "gain", 7); // a complaint of before is none about this
}

TEST(Properties, OneOfManyMayBeUnknownToTheCamera)
{
    SimulatedCamera camera;
    std::string why;
    EXPECT_FALSE(vxcam::tryProperty(camera.access(), findProperty("parameter:99"), &why));
    EXPECT_THAT(why, HasSubstr("parameter 99"));
    EXPECT_EQ(vxcam::tryProperty(camera.access(), findProperty("gain"), &why), Value(0));
}

// The library remembers an area, and forgets it when regions are asked for.
TEST(Properties, AreaOutlivesThatRegionsAreRead)
{
    SimulatedCamera camera;
    set(camera.access(), "area", "1,2,5,2");
    EXPECT_EQ(told(camera.access(), "area-regions"), "none");
    EXPECT_EQ(told(camera.access(), "area"), "1,2,5,2");
    set(camera.access(), "area-regions", "none");
    EXPECT_EQ(told(camera.access(), "area"), "1,2,5,2");
}

TEST(Properties, AreaIsNotToldWhileTheCameraHasRegions)
{
    SimulatedCamera camera;
    set(camera.access(), "area", "1,2,5,2");
    set(camera.access(), "area-regions", "0,0,8,4/0,8,8,4");
    EXPECT_EQ(told(camera.access(), "area"), "none");
    EXPECT_EQ(told(camera.access(), "area-regions"), "0,0,8,4/0,8,8,4");
    EXPECT_EQ(told(camera.access(), "area"), "none");
    set(camera.access(), "area", "none"); // the whole sensor
    EXPECT_EQ(told(camera.access(), "area"), "0,0,64,32");
    EXPECT_EQ(told(camera.access(), "area-regions"), "none");
}

TEST(Properties, TextsOfACameraAreShownWithoutControlCharacters)
{
    tcActor actor({{0x14, MessageBytes(0x8D, words({7, 0}) + "a\x1b[2J\n\x80\xc2\x9b")}});
    OpenedCamera camera(actor.Port());
    const Value value = vxcam::readProperty(camera, findProperty("parameter-text:7"));
    EXPECT_EQ(value.toText(), "a\x1b[2J\n\x80\xc2\x9b");
    EXPECT_EQ(value.text(), R"(a\x1b[2J\n\x80\xc2\x9b)");
    EXPECT_EQ(parsed(findProperty("parameter-text:7"), value.text()), value);
}

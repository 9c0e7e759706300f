// What properties are called in other systems.
#include <vxcamkit/property.h>

#include <gmock/gmock.h>

#include <regex>
#include <set>

using vxcam::findProperty;
using vxcam::Property;

namespace {

const Property& named(const char* name)
{
    return *findProperty(name).property;
}

using NameFunction = std::string (Property::*)() const;

// Those that have the same name as an earlier one. A property with a key is another one.
std::vector<std::string> doubled(NameFunction function)
{
    std::set<std::string> names;
    std::vector<std::string> twice;
    for (const Property& property : vxcam::properties()) {
        const std::string name = (property.*function)();
        const std::string key = property.key != nullptr ? ":" : "";
        if (!name.empty() && !names.insert(name + key).second) twice.emplace_back(property.name);
    }
    return twice;
}

void expectAll(NameFunction function, const std::string& pattern)
{
    for (const Property& property : vxcam::properties()) {
        const std::string name = (property.*function)();
        EXPECT_TRUE(std::regex_match(name, std::regex(pattern))) << name;
    }
}

} // namespace

TEST(PropertyNames, FollowFromTheName)
{
    EXPECT_EQ(named("target-temp").pythonName(), "target_temp");
    EXPECT_EQ(named("target-temp").tangoName(), "TargetTemp");
    EXPECT_EQ(named("board-temp").indiName(), "BOARD_TEMP");
    EXPECT_EQ(named("fan").fitsName(), "HIERARCH VX FAN");
    EXPECT_EQ(named("hor-bin-table:1").tangoName(), "HorBinTable");
    EXPECT_EQ(named("target-temp").label(), "Target temp");
}

TEST(PropertyNames, AreTheCustomaryOnesWhereThereAreSuch)
{
    EXPECT_EQ(named("target-temp").indiName(), "CCD_TEMPERATURE");
    EXPECT_EQ(named("target-temp").fitsName(), "SET-TEMP");
    EXPECT_EQ(named("target-temp").alpacaName(), "setccdtemperature");
    EXPECT_EQ(named("ccd-temp").alpacaName(), "ccdtemperature");
    EXPECT_EQ(named("ccd-temp").fitsName(), "CCD-TEMP");
    EXPECT_EQ(named("gain").fitsName(), "GAIN");
    EXPECT_EQ(named("exposure").indiName(), "CCD_EXPOSURE");
    EXPECT_EQ(named("exposure").fitsName(), "EXPTIME");
    EXPECT_STREQ(named("exposure").names.tangoAlias, "acq_expo_time");
    EXPECT_EQ(named("gain").alpacaName(), "gain");
    EXPECT_EQ(named("pid").alpacaName(), "");
}

TEST(PropertyNames, AreDistinctEverywhere)
{
    using testing::ElementsAre;
    EXPECT_THAT(doubled(&Property::pythonName), ElementsAre());
    EXPECT_THAT(doubled(&Property::tangoName), ElementsAre());
    EXPECT_THAT(doubled(&Property::fitsName), ElementsAre());
    EXPECT_THAT(doubled(&Property::alpacaName), ElementsAre());
    EXPECT_THAT(doubled(&Property::label), ElementsAre());
    // One property there: setting it sets the target, reading it tells the temperature.
    EXPECT_THAT(doubled(&Property::indiName), ElementsAre("ccd-temp"));
}

TEST(PropertyNames, ArePossibleOnes)
{
    expectAll(&Property::pythonName, "[a-z][a-z0-9_]*");
    expectAll(&Property::tangoName, "[A-Z][A-Za-z0-9]*");
    expectAll(&Property::indiName, "[A-Z][A-Z0-9_]{0,62}");
    expectAll(&Property::fitsName, "[A-Z0-9_-]{1,8}|HIERARCH VX [A-Z0-9-]{1,40}");
    expectAll(&Property::alpacaName, "[a-z]*");
}

TEST(PropertyNames, OfFieldsCanBeKeysOfJson)
{
    for (const Property& property : vxcam::properties()) {
        std::set<std::string> names;
        for (const vxcam::Field& field : property.shape.fields) {
            EXPECT_TRUE(std::regex_match(field.name, std::regex("[a-z][a-z_]*"))) << field.name;
            EXPECT_TRUE(names.insert(field.name).second) << property.name;
        }
    }
}

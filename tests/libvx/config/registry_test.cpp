#include "config_fixture.h"

namespace {

class ConfigRegistry : public ConfigTest
{};

} // namespace

TEST_F(ConfigRegistry, HoldsEachObjectUnderItsName)
{
    Write("a.cfg", "a=1\n");
    tcLoaded first("a.cfg");
    tcLoaded second("./a.cfg");
    EXPECT_EQ(tcConfigFile::FindInstance("a.cfg"), &first);
    EXPECT_EQ(tcConfigFile::FindInstance("./a.cfg"), &second);
    EXPECT_EQ(tcConfigFile::GetMap().at("a.cfg"), &first);
    EXPECT_EQ(&tcConfigFile::mmConfigMap, &tcConfigFile::GetMap());
}

TEST_F(ConfigRegistry, EntersANameThatWasNeverRegistered)
{
    EXPECT_EQ(tcConfigFile::GetMap().count("never.cfg"), 0u);
    EXPECT_EQ(tcConfigFile::FindInstance("never.cfg"), nullptr);
    EXPECT_EQ(tcConfigFile::GetMap().count("never.cfg"), 1u);
    EXPECT_EQ(tcConfigFile::FindInstance(nullptr), nullptr);
}

TEST_F(ConfigRegistry, LetsTheSecondObjectOfANameReplaceTheFirst)
{
    auto first = std::make_unique<tcLoaded>("a.cfg");
    tcLoaded second("a.cfg");
    EXPECT_EQ(tcConfigFile::FindInstance("a.cfg"), &second);
    first.reset();
    EXPECT_EQ(tcConfigFile::FindInstance("a.cfg"), nullptr);
}

TEST_F(ConfigRegistry, KeepsTheEntryOfADestroyedObjectAsNull)
{
    std::make_unique<tcLoaded>("gone.cfg");
    ASSERT_EQ(tcConfigFile::GetMap().count("gone.cfg"), 1u);
    EXPECT_EQ(tcConfigFile::GetMap().at("gone.cfg"), nullptr);
    {
        tcLoaded file("erased.cfg");
        tcConfigFile::GetMap().erase("erased.cfg");
    }
    EXPECT_EQ(tcConfigFile::GetMap().count("erased.cfg"), 1u);
}

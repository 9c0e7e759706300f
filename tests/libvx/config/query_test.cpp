#include "config_fixture.h"

#include <climits>

namespace {

class ConfigQuery : public ConfigTest
{};
class ConfigUpdate : public ConfigTest
{};
class ConfigWalk : public ConfigTest
{};

std::string Stored(tcConfigFile& file, const std::string& name)
{
    return file.findItem("s/" + name);
}

} // namespace

TEST_F(ConfigQuery, ReadsTexts)
{
    auto file = Load("[s]\na = some text\n");
    EXPECT_EQ(file->GetItemInSection("s", "a", "default"), "some text");
    EXPECT_EQ(file->GetItemInSection("s", "a", std::string("default")), "some text");
    EXPECT_EQ(file->GetItemInSection("s", "b", "default"), "default");
    EXPECT_EQ(file->GetItemInSection("s", "b", std::string("default")), "default");
    EXPECT_EQ(file->GetItemInSection("", "a", ""), "");
}

TEST_F(ConfigQuery, ReadsIntegersByTheirPrefix)
{
    auto file = Load("[s]\nhex=0x10\nHEX=0XfF\noct=010\nbad=08\npart=12abc\nnone=abc\nminus=-7\n");
    EXPECT_EQ(file->GetItemInSection("s", "hex", 5), 16);
    EXPECT_EQ(file->GetItemInSection("s", "HEX", 5), 255);
    EXPECT_EQ(file->GetItemInSection("s", "oct", 5), 8);
    EXPECT_EQ(file->GetItemInSection("s", "bad", 5), 0);
    EXPECT_EQ(file->GetItemInSection("s", "part", 5), 12);
    EXPECT_EQ(file->GetItemInSection("s", "none", 5), 0);
    EXPECT_EQ(file->GetItemInSection("s", "minus", 5), -7);
    EXPECT_EQ(file->GetItemInSection("s", "missing", 5), 5);
}

TEST_F(ConfigQuery, ReadsNumbersWithFractions)
{
    auto file = Load("[s]\na=0.1\nb=1e3x\nc=x\n");
    EXPECT_EQ(file->GetItemInSection("s", "a", 5.0), 0.1);
    EXPECT_EQ(file->GetItemInSection("s", "a", 5.0F), 0.1F);
    EXPECT_EQ(file->GetItemInSection("s", "b", 5.0), 1000.0);
    EXPECT_EQ(file->GetItemInSection("s", "b", 5.0F), 1000.0F);
    EXPECT_EQ(file->GetItemInSection("s", "c", 5.0), 0.0);
    EXPECT_EQ(file->GetItemInSection("s", "c", 5.0F), 0.0F);
    EXPECT_EQ(file->GetItemInSection("s", "missing", 5.5), 5.5);
    EXPECT_EQ(file->GetItemInSection("s", "missing", 5.5F), 5.5F);
}

TEST_F(ConfigQuery, ReadsTruthValuesByTheirFirstLetter)
{
    auto file = Load("[s]\na=yes\nb=True\nc=t\nd=Y\nno=no\none=1\non=on\nfalse=False\n");
    for (const char* name : {"a", "b", "c", "d"}) {
        EXPECT_TRUE(file->GetItemInSection("s", name, false)) << name;
    }
    for (const char* name : {"no", "one", "on", "false"}) {
        EXPECT_FALSE(file->GetItemInSection("s", name, true)) << name;
    }
    file->SetItemInSection("s", "nul", std::string("\0T", 2));
    EXPECT_FALSE(file->GetItemInSection("s", "nul", true));
    EXPECT_TRUE(file->GetItemInSection("s", "missing", true));
    EXPECT_FALSE(file->GetItemInSection("s", "missing", false));
}

TEST_F(ConfigQuery, GivesTheDefaultForAnEmptyItem)
{
    auto file = Load("");
    file->SetItemInSection("s", "a", "");
    EXPECT_EQ(file->GetItemInSection("s", "a", "default"), "default");
    EXPECT_EQ(file->GetItemInSection("s", "a", 7), 7);
    EXPECT_EQ(file->GetItemInSection("s", "a", 7.5), 7.5);
    EXPECT_EQ(file->GetItemInSection("s", "a", 7.5F), 7.5F);
    EXPECT_TRUE(file->GetItemInSection("s", "a", true));
}

TEST_F(ConfigQuery, LeavesAnEmptyItemBehindEveryLookupOfAMissingOne)
{
    auto file = Load("[s]\na=1\n");
    EXPECT_TRUE(file->Validate());
    EXPECT_EQ(file->GetItemInSection("s", "b", 3), 3);
    EXPECT_FALSE(file->Validate());
    EXPECT_EQ(file->Items(), (tcConfigFile::tItems{{"s/a", "1"}, {"s/b", ""}}));
    EXPECT_EQ(file->findItem("s/c"), "");
    EXPECT_EQ(file->Items().count("s/c"), 1u);
}

TEST_F(ConfigQuery, ValidatesWithoutItems)
{
    EXPECT_TRUE(Load("")->Validate());
}

TEST_F(ConfigUpdate, StoresTextsAsTheyAre)
{
    auto file = Load("[s]\na=1\n");
    file->SetItemInSection("s", "a", std::string(" two "));
    file->SetItemInSection("s", "b", "three");
    EXPECT_EQ(file->Items(), (tcConfigFile::tItems{{"s/a", " two "}, {"s/b", "three"}}));
}

TEST_F(ConfigUpdate, StoresIntegersInDecimal)
{
    auto file = Load("");
    file->SetItemInSection("s", "a", 0x10);
    file->SetItemInSection("s", "b", INT_MIN);
    EXPECT_EQ(Stored(*file, "a"), "16");
    EXPECT_EQ(Stored(*file, "b"), "-2147483648");
}

TEST_F(ConfigUpdate, StoresNumbersAlikeInEveryLocale)
{
    const tcGroupedNumbers grouped;
    auto file = Load("");
    file->SetItemInSection("s", "a", 1234567);
    file->SetItemInSection("s", "b", 12345.0);
    EXPECT_EQ(Stored(*file, "a"), "1234567");
    EXPECT_EQ(Stored(*file, "b"), "12345");
}

TEST_F(ConfigUpdate, StoresFractionsWithSixDigits)
{
    auto file = Load("");
    file->SetItemInSection("s", "tenth", 0.1F);
    file->SetItemInSection("s", "pi", 3.14159265);
    file->SetItemInSection("s", "half", 0.5);
    file->SetItemInSection("s", "small", 1e-07);
    file->SetItemInSection("s", "large", 123456789.0);
    file->SetItemInSection("s", "largef", 123456789.0F);
    file->SetItemInSection("s", "whole", 2.0);
    EXPECT_EQ(Stored(*file, "tenth"), "0.1");
    EXPECT_EQ(Stored(*file, "pi"), "3.14159");
    EXPECT_EQ(Stored(*file, "half"), "0.5");
    EXPECT_EQ(Stored(*file, "small"), "1e-07");
    EXPECT_EQ(Stored(*file, "large"), "1.23457e+08");
    EXPECT_EQ(Stored(*file, "largef"), "1.23457e+08");
    EXPECT_EQ(Stored(*file, "whole"), "2");
}

TEST_F(ConfigUpdate, StoresTruthValuesAsDigitsThatReadBackAsFalse)
{
    auto file = Load("");
    file->SetItemInSection("s", "on", true);
    file->SetItemInSection("s", "off", false);
    EXPECT_EQ(Stored(*file, "on"), "1");
    EXPECT_EQ(Stored(*file, "off"), "0");
    EXPECT_FALSE(file->GetItemInSection("s", "on", true));
    EXPECT_FALSE(file->GetItemInSection("s", "off", true));
}

TEST_F(ConfigUpdate, MakesTopLevelItemsThatVariablesFind)
{
    auto file = Load("");
    file->SetItemInSection("", "vxc_x", "value");
    EXPECT_EQ(file->ExpandVars("<$(vxc_x)>"), "<value>");
    EXPECT_EQ(file->Items(), (tcConfigFile::tItems{{"/vxc_x", "value"}}));
}

TEST_F(ConfigWalk, VisitsEveryItemInKeyOrder)
{
    auto file = Load("z=1\n[b]\ny=2\n[a]\nx=3\n");
    std::string seen;
    for (auto item = file->Iterator(); !file->Key(item).empty(); file->NextItem(item)) {
        seen += file->Key(item) + ":" + file->Value(item) + " ";
    }
    EXPECT_EQ(seen, "/z:1 a/x:3 b/y:2 ");
}

TEST_F(ConfigWalk, ShowsAnItemThatWasOnlyLookedUp)
{
    auto file = Load("");
    file->GetItemInSection("s", "missing", 1);
    auto item = file->Iterator();
    EXPECT_EQ(file->Key(item), "s/missing");
    EXPECT_EQ(file->Value(item), "");
}

TEST_F(ConfigWalk, IsEmptyAtTheEndAndStaysThere)
{
    auto file = Load("");
    auto item = file->Iterator();
    EXPECT_EQ(file->Key(item), "");
    EXPECT_EQ(file->Value(item), "");
    file->NextItem(item);
    EXPECT_EQ(file->Key(item), "");
}

TEST(ConfigEnvironment, GivesTheDefaultOnlyWhenUnset)
{
    unsetenv("VXC_E");
    EXPECT_STREQ(tcConfigFile::GetEnv("VXC_E", "default"), "default");
    EXPECT_EQ(tcConfigFile::GetEnv("VXC_E", nullptr), nullptr);
    setenv("VXC_E", "", 1);
    EXPECT_STREQ(tcConfigFile::GetEnv("VXC_E", "default"), "");
    setenv("VXC_E", "set", 1);
    EXPECT_STREQ(tcConfigFile::GetEnv("VXC_E", "default"), "set");
}

TEST(ConfigEnvironment, IsSetAlsoToTheEmptyText)
{
    tcConfigFile::PutEnv("VXC_E", "value");
    EXPECT_STREQ(getenv("VXC_E"), "value");
    tcConfigFile::PutEnv("VXC_E", "");
    EXPECT_STREQ(getenv("VXC_E"), "");
}

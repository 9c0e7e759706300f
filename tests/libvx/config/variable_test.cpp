#include "config_fixture.h"
#include "load_support.h"

#include <cstring>

namespace {

class ConfigVariable : public ConfigTest
{};

} // namespace

TEST_F(ConfigVariable, ComesFromTheEnvironment)
{
    setenv("HOME", "/home/me", 1);
    EXPECT_EQ(Load("d = $(HOME)/x\n")->Items(), (tItems{{"/d", "/home/me/x"}}));
}

TEST_F(ConfigVariable, ComesFromAnEarlierTopLevelItem)
{
    auto file = Load("vxc_a = 1\n[s]\nb = <$(vxc_a)>\n");
    EXPECT_EQ(file->Items(), (tItems{{"/vxc_a", "1"}, {"s/b", "<1>"}}));
    EXPECT_EQ(file->Errors(), "");
}

TEST_F(ConfigVariable, ComesFromAFileReadBefore)
{
    Write("b.cfg", "vxc_a=1\n");
    EXPECT_EQ(Load("!include b.cfg\nb=$(vxc_a)\n")->GetItemInSection("", "b", ""), "1");
}

TEST_F(ConfigVariable, PrefersTheEnvironmentUnlessItIsEmptyThere)
{
    setenv("vxc_a", "env", 1);
    EXPECT_EQ(Load("vxc_a=item\nb=$(vxc_a)\n")->GetItemInSection("", "b", ""), "env");
    setenv("vxc_a", "", 1);
    EXPECT_EQ(Load("vxc_a=item\nb=$(vxc_a)\n")->GetItemInSection("", "b", ""), "item");
    unsetenv("vxc_a");
}

TEST_F(ConfigVariable, NeverComesFromASection)
{
    auto file = Load("[s]\nvxc_a=1\nb=$(vxc_a)\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Undefined variable found: b=$(vxc_a)\n");
    EXPECT_EQ(file->Items(), (tItems{{"/vxc_a", ""}, {"s/b", "$(vxc_a)"}, {"s/vxc_a", "1"}}));
    EXPECT_FALSE(file->Validate());
}

TEST_F(ConfigVariable, ReplacesSeveralAndReportsTheLineAsExpandedSoFar)
{
    auto file = Load("vxc_a=1\nb=$(vxc_a)$(vxc_n)$(vxc_a)\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Undefined variable found: b=1$(vxc_n)$(vxc_a)\n");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), "1$(vxc_n)1");
}

TEST_F(ConfigVariable, ReportsAMissingParenthesisAndKeepsTheLine)
{
    auto file = Load("vxc_a=1\nb=$(vxc_a)$(vxc_a\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Malformed variable found: b=1$(vxc_a\n");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), "1$(vxc_a");
}

TEST_F(ConfigVariable, ReplacesNamesToo)
{
    EXPECT_EQ(Load("vxc_a=b\n$(vxc_a)=c\n")->Items(), (tItems{{"/b", "c"}, {"/vxc_a", "b"}}));
}

TEST_F(ConfigVariable, ExpandsAReferenceInsideAValueButNotAtItsStart)
{
    setenv("VXC_IN", "1", 1);
    setenv("VXC_LATER", "x$(VXC_IN)", 1);
    setenv("VXC_FIRST", "$(VXC_IN)", 1);
    auto file = Load("a=$(VXC_LATER)\nb=$(VXC_FIRST)\n");
    EXPECT_EQ(file->Items(), (tItems{{"/a", "x1"}, {"/b", "$(VXC_IN)"}}));
    for (const char* name : {"VXC_IN", "VXC_LATER", "VXC_FIRST"}) {
        unsetenv(name);
    }
}

TEST_F(ConfigVariable, EndsWhenItRefersToItself)
{
    setenv("VXC_SELF", "x$(VXC_SELF)", 1);
    auto file = Load("a=$(VXC_SELF)\nb=1\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Variable expansion too long: VXC_SELF\n");
    EXPECT_EQ(file->GetItemInSection("", "a", ""), std::string(1001, 'x') + "$(VXC_SELF)");
    EXPECT_EQ(file->GetItemInSection("", "b", 0), 1);
    unsetenv("VXC_SELF");
}

TEST_F(ConfigVariable, IsReplacedAsOftenAsALineNamesIt)
{
    std::string line = "b=", expected;
    for (int i = 0; i < 3000; ++i) {
        line += "$(vxc_a)";
        expected += "<1>";
    }
    auto file = Load("vxc_a=<1>\n" + line + "\n");
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), expected);
}

TEST_F(ConfigVariable, MayStandInAVeryLongLine)
{
    const std::string text(2000000, 't');
    auto file = Load("vxc_a=1\nb=" + text + "$(vxc_a)\n");
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), text + "1");
}

TEST_F(ConfigVariable, IsStillReplacedBehindManyUnknownOnesOfALongLine)
{
    const std::string text(2000000, 't');
    auto file = Load("vxc_a=1\nb=" + text + "$(vxcnone)$(vxcnone)$(vxcnone)$(vxc_a)\n");
    EXPECT_EQ(Count(file->Errors(), ": Undefined variable found: "), 1);
    EXPECT_EQ(file->GetItemInSection("", "b", ""), text + "$(vxcnone)$(vxcnone)$(vxcnone)1");
}

TEST_F(ConfigVariable, IsFoundAcrossTheEndOfAValue)
{
    setenv("VXC_OPEN", "x$", 1);
    auto file = Load("vxc_a=1\nb=$(VXC_OPEN)(vxc_a)$(vxc_a)\n");
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), "x11");
    unsetenv("VXC_OPEN");
}

TEST_F(ConfigVariable, DoesNotFloodTheErrorText)
{
    std::string line = "a=";
    for (int i = 0; i < 60000; ++i) {
        line += "$(";
    }
    auto file = Load(line + ")\nb=1\n");
    EXPECT_LT(file->Errors().size(), 3000000u);
    EXPECT_EQ(Count(file->Errors(), ": Too many errors in one line! some are left out\n"), 1);
    EXPECT_EQ(file->GetItemInSection("", "b", 0), 1);
}

TEST_F(ConfigVariable, ComesUnderItsWholeNameOnly)
{
    setenv("vxc_a", "env", 1);
    auto file = Load(std::string("b=$(vxc_a\0x)\n", 13));
    EXPECT_EQ(Count(file->Errors(), "Undefined variable found"), 1);
    unsetenv("vxc_a");
}

TEST_F(ConfigVariable, ReportsOnlySoMuchWhenLongLinesHaveManyErrors)
{
    std::string text = "long=" + std::string(100000, 'x') + "\n";
    for (int i = 0; i < 500; ++i) {
        text += "a=$(long)$(vxcnone)$(vxcnone)\n";
    }
    auto file = Load(text + "b=1\n");
    const std::string errors = file->Errors(), last = "Too many errors! the rest is left out\n";
    EXPECT_TRUE(file->HasErrors());
    EXPECT_LT(errors.size(), 17u << 20);
    EXPECT_EQ(errors.substr(errors.size() - last.size()), last);
    EXPECT_EQ(file->GetItemInSection("", "b", 0), 1);
}

TEST_F(ConfigVariable, EndsWhenItDoublesWithEveryLine)
{
    std::string text = "vxc0=0123456789\n";
    for (int i = 1; i < 60; ++i) {
        const std::string before = "$(vxc" + std::to_string(i - 1) + ")";
        text += "vxc" + std::to_string(i) + "=" + before + before + "\n";
    }
    auto file = Load(text);
    for (const auto& [key, value] : file->Items()) {
        EXPECT_LE(value.size(), 1024u * 1024u + 1000) << key;
    }
    EXPECT_EQ(file->GetItemInSection("", "vxc3", "").size(), 80u);
    EXPECT_TRUE(file->HasErrors());
}

TEST_F(ConfigVariable, ReportsAnEmptyName)
{
    auto file = Load("a=$()\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Undefined variable found: a=$()\n");
    EXPECT_EQ(file->Items(), (tItems{{"/", ""}, {"/a", "$()"}}));
}

#include "config_fixture.h"
#include "load_support.h"

namespace {

class ConfigDirective : public ConfigTest
{};

} // namespace

TEST_F(ConfigDirective, TracesEveryDirectiveLine)
{
    auto file = Load("\n!env VXC_A=1\n!include  x y \n!nothing\n!\n");
    EXPECT_EQ(file->Trace(), "line: 2:!env VXC_A=1  -- contains 2 tokens.\n"
                             "line: 3:!include  x y   -- contains 3 tokens.\n"
                             "line: 4:!nothing  -- contains 1 tokens.\n"
                             "line: 5:!  -- contains 1 tokens.\n");
    EXPECT_TRUE(file->Items().empty());
}

TEST_F(ConfigDirective, ReportsAnUnknownOne)
{
    auto file = Load("a=1\n!nothing to see\n! include b\n!include\tb\n");
    EXPECT_EQ(file->Errors(), "a.cfg:2:Invalid directive >> !nothing to see\n"
                              "a.cfg:3:Invalid directive >> ! include b\n"
                              "a.cfg:4:Invalid directive >> !include\tb\n");
}

TEST_F(ConfigDirective, IncludesAFileIntoTheSameItems)
{
    Write("b.cfg", "x=1\n[s]\ny=2\na=3\n");
    auto file = Load("[s]\na=1\n!include b.cfg\nz=4\n");
    EXPECT_EQ(file->Items(), (tItems{{"/x", "1"}, {"s/a", "3"}, {"s/y", "2"}, {"s/z", "4"}}));
    EXPECT_EQ(file->Files(), (std::vector<std::string>{"", "a.cfg", "b.cfg"}));
    EXPECT_FALSE(file->HasErrors());
}

TEST_F(ConfigDirective, LeavesTheSectionOfTheIncluderAlone)
{
    Write("b.cfg", "top=1\n[other]\n");
    EXPECT_EQ(Load("[s]\n!include b.cfg\nz=4\n")->Items(), (tItems{{"/top", "1"}, {"s/z", "4"}}));
}

TEST_F(ConfigDirective, FindsAnIncludeBesideTheTopFile)
{
    std::filesystem::create_directories("etc/deep");
    Write("etc/top.cfg", "!include deep/one.cfg\n");
    Write("etc/deep/one.cfg", "one=1\n!include two.cfg\n");
    Write("etc/two.cfg", "two=2\n");
    tcLoaded file("etc/top.cfg");
    EXPECT_EQ(file.Items(), (tItems{{"/one", "1"}, {"/two", "2"}}));
    EXPECT_EQ(file.Files(),
              (std::vector<std::string>{"", "etc/top.cfg", "etc/deep/one.cfg", "etc/two.cfg"}));
    EXPECT_EQ(file.Errors(), "");
}

TEST_F(ConfigDirective, ReportsAnIncludeThatIsNotFound)
{
    auto file = Load("\n!include nowhere.cfg\na=1\n");
    EXPECT_EQ(file->Errors(), "a.cfg:2:Cannot find include file nowhere.cfg\n");
    EXPECT_EQ(file->Items(), (tItems{{"/a", "1"}}));
}

TEST_F(ConfigDirective, IgnoresAnIncludeWithoutExactlyTwoTokens)
{
    Write("b.cfg", "x=1\n");
    auto file = Load("!include\n!include b.cfg b.cfg\n!include b.cfg # why\n");
    EXPECT_TRUE(file->Items().empty());
    EXPECT_EQ(file->Errors(), "");
}

TEST_F(ConfigDirective, NamesTheLastFileOpenedInLaterErrorsOfTheIncluder)
{
    Write("b.cfg", "x=1\n");
    auto file = Load("!include b.cfg\n!bad\ny=$(\nz=$(vxc_none)\n=\n");
    EXPECT_EQ(file->Errors(), "b.cfg:2:Invalid directive >> !bad\n"
                              "b.cfg: Malformed variable found: y=$(\n"
                              "b.cfg: Undefined variable found: z=$(vxc_none)\n"
                              "a.cfg: Malformed line in file @ line 5\n");
}

TEST_F(ConfigDirective, NamesTheIncludedFileInItsOwnErrors)
{
    Write("b.cfg", "\n\n=1\n");
    EXPECT_EQ(Load("!include b.cfg\n")->Errors(), "b.cfg: Malformed line in file @ line 3\n");
}

TEST_F(ConfigDirective, ReportsAFileIncludedTwiceAndReadsItAgain)
{
    Write("b.cfg", "x=1\n");
    Write("c.cfg", "c=1\n");
    auto file = Load("!include b.cfg\n!include c.cfg\nx=2\n!include b.cfg\n");
    EXPECT_EQ(file->Errors(), "b.cfg Already included! skipping to prevent recursion\n"
                              "Last file read was c.cfg\n");
    EXPECT_EQ(file->Items(), (tItems{{"/c", "1"}, {"/x", "1"}}));
    EXPECT_EQ(file->Files(), (std::vector<std::string>{"", "a.cfg", "b.cfg", "c.cfg", "b.cfg"}));
}

TEST_F(ConfigDirective, EndsACycleAtDepth64WithOneMoreErrorLine)
{
    auto file = Load("!include a.cfg\nx=1\n");
    const std::string again = "a.cfg Already included! skipping to prevent recursion\n"
                              "Last file read was a.cfg\n";
    std::string expected;
    for (int i = 0; i < 64; ++i) {
        expected += again;
    }
    expected += "a.cfg Not included! includes are nested too deeply or too many\n";
    EXPECT_EQ(file->Errors(), expected);
    EXPECT_EQ(file->Items(), (tItems{{"/x", "1"}}));
    EXPECT_EQ(file->Files().size(), 66u);
}

TEST_F(ConfigDirective, AllowsSixtyFourNestedIncludes)
{
    for (int i = 0; i <= 65; ++i) {
        Write("n" + std::to_string(i),
              "!include n" + std::to_string(i + 1) + "\nk" + std::to_string(i) + "=1\n");
    }
    tcLoaded file("n0");
    EXPECT_EQ(file.Errors(), "n65 Not included! includes are nested too deeply or too many\n");
    EXPECT_EQ(file.Items().size(), 65u);
    EXPECT_EQ(file.GetItemInSection("", "k64", 0), 1);
}

TEST_F(ConfigDirective, EndsABranchingCycle)
{
    auto file = Load("!include a.cfg\n!include a.cfg\n!include a.cfg\nx=1\n");
    EXPECT_EQ(Count(file->Errors(), "Not included!"), 1);
    EXPECT_LT(file->Files().size(), 20000u);
    EXPECT_EQ(file->Items(), (tItems{{"/x", "1"}}));
}

TEST_F(ConfigDirective, SetsAnEnvironmentVariable)
{
    auto file = Load("!env VXC_X=1=2 3\nx=$(VXC_X)\n");
    EXPECT_STREQ(getenv("VXC_X"), "1=2 3");
    EXPECT_EQ(file->Items(), (tItems{{"/x", "1=2 3"}}));
    unsetenv("VXC_X");
}

TEST_F(ConfigDirective, KeepsBlanksAroundTheEqualsOfAnEnvironmentVariable)
{
    Load("!env VXC X = 1\n");
    EXPECT_STREQ(getenv("VXC X "), " 1");
    unsetenv("VXC X ");
}

TEST_F(ConfigDirective, RemovesAnEnvironmentVariableWithoutValue)
{
    setenv("VXC_X", "old", 1);
    Load("!env VXC_X\n");
    EXPECT_EQ(getenv("VXC_X"), nullptr);
}

TEST_F(ConfigDirective, TakesATrailingEqualsAsTheValue)
{
    setenv("VXC_X", "old", 1);
    auto file = Load("!env VXC_X=\n");
    EXPECT_STREQ(getenv("VXC_X"), "=");
    EXPECT_FALSE(file->HasErrors());
    unsetenv("VXC_X");
}

TEST_F(ConfigDirective, DoesNothingForAnEnvironmentVariableWithoutName)
{
    auto file = Load("!env\n!env =\n");
    for (char** variable = environ; *variable != nullptr; ++variable) {
        EXPECT_NE(**variable, '=') << *variable;
    }
    EXPECT_FALSE(file->HasErrors());
    EXPECT_TRUE(file->Items().empty());
}

TEST_F(ConfigDirective, MayComeOutOfAVariable)
{
    setenv("VXC_D", "!include", 1);
    Write("b.cfg", "x=1\n");
    auto file = Load("$(VXC_D) b.cfg\n");
    EXPECT_EQ(file->Items(), (tItems{{"/x", "1"}}));
    EXPECT_EQ(file->Trace(), "line: 1:!include b.cfg  -- contains 2 tokens.\n");
    unsetenv("VXC_D");
}

TEST_F(ConfigDirective, HasItsVariablesReplacedFirst)
{
    Write("b.cfg", "x=1\n");
    auto file = Load("vxc_name=b\n!include $(vxc_name).cfg\n");
    EXPECT_EQ(file->GetItemInSection("", "x", ""), "1");
    EXPECT_EQ(file->Trace(), "line: 2:!include b.cfg  -- contains 2 tokens.\n");
}

TEST_F(ConfigDirective, MustBeginTheLine)
{
    EXPECT_EQ(Load(" !env VXC_X=1\n")->Items(), (tItems{{"/!env VXC_X", "1"}}));
}

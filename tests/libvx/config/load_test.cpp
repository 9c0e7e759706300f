#include "config_fixture.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using tItems = tcConfigFile::tItems;

class ConfigLoad : public ConfigTest
{};
class ConfigDirective : public ConfigTest
{};
class ConfigVariable : public ConfigTest
{};
class ConfigFindFile : public ConfigTest
{};
class ConfigRegistry : public ConfigTest
{};

// What `look` says to a process that may not read everything.
bool AsNobody(const std::function<bool()>& look)
{
    const pid_t child = fork();
    if (child == 0) _exit((getuid() == 0 && setuid(65534) != 0) || !look() ? 1 : 0);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

int Count(const std::string& text, const std::string& part)
{
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

TEST_F(ConfigLoad, SplitsAtTheFirstEquals)
{
    auto file = Load("a = b = c\n");
    EXPECT_EQ(file->Items(), (tItems{{"/a", "b = c"}}));
    EXPECT_FALSE(file->HasErrors());
    EXPECT_EQ(file->Errors(), "");
}

TEST_F(ConfigLoad, FilesItemsUnderTheirSection)
{
    auto file = Load("top=1\n[ net ]\nport=80\n[\tlog]\nport=90\n");
    EXPECT_EQ(file->Items(), (tItems{{"/top", "1"}, {"log/port", "90"}, {"net/port", "80"}}));
}

TEST_F(ConfigLoad, TakesAHeaderWithoutClosingBracketToTheEndOfTheLine)
{
    EXPECT_EQ(Load("[net\nport=80\n")->Items(), (tItems{{"net/port", "80"}}));
}

TEST_F(ConfigLoad, LooksAtNothingBehindTheBracket)
{
    EXPECT_EQ(Load("[a]b]=c\nx=1\n")->Items(), (tItems{{"a/x", "1"}}));
    EXPECT_EQ(Load("[]\nx=1\n")->Items(), (tItems{{"/x", "1"}}));
    EXPECT_EQ(Load("[\nx=1\n")->Items(), (tItems{{"/x", "1"}}));
    EXPECT_EQ(Load("[a=b\nx=1\n")->Items(), (tItems{{"a=b/x", "1"}}));
}

TEST_F(ConfigLoad, ExpandsNothingInHeaders)
{
    auto file = Load("n=1\n[$(n)]\nx=2\n");
    EXPECT_EQ(file->Items(), (tItems{{"$(n)/x", "2"}, {"/n", "1"}}));
    EXPECT_FALSE(file->HasErrors());
}

TEST_F(ConfigLoad, StripsBlanksAndTabsOnly)
{
    EXPECT_EQ(Load(" \tname \t= \tsome value\t \n")->Items(), (tItems{{"/name", "some value"}}));
    EXPECT_EQ(Load("port = 80\r\n")->Items(), (tItems{{"/port", "80\r"}}));
    EXPECT_EQ(Load("port = \v80\f\n")->Items(), (tItems{{"/port", "\v80\f"}}));
}

TEST_F(ConfigLoad, SkipsEmptyLinesAndComments)
{
    auto file = Load("# one = 1\n\n; two = 2\n#\n;\nthree = 3\n");
    EXPECT_EQ(file->Items(), (tItems{{"/three", "3"}}));
    EXPECT_FALSE(file->HasErrors());
}

TEST_F(ConfigLoad, StoresAnIndentedCommentAsItsOwnValue)
{
    EXPECT_EQ(Load("[s]\n  # note\n\t; more \n")->Items(),
              (tItems{{"s/# note", "# note"}, {"s/; more", "; more"}}));
}

TEST_F(ConfigLoad, StoresALineWithoutEqualsAsItsOwnValue)
{
    EXPECT_EQ(Load(" flag \n")->Items(), (tItems{{"/flag", "flag"}}));
}

TEST_F(ConfigLoad, TakesALastLineWithoutLineEnd)
{
    EXPECT_EQ(Load("a=1\nb=2")->Items(), (tItems{{"/a", "1"}, {"/b", "2"}}));
}

TEST_F(ConfigLoad, LetsALaterLineWin)
{
    EXPECT_EQ(Load("a=1\n[s]\na=2\n[]\na=3\n")->Items(), (tItems{{"/a", "3"}, {"s/a", "2"}}));
}

TEST_F(ConfigLoad, ReportsAnEmptyNameOrValueWithTheLineCountingEveryLine)
{
    auto file = Load("# comment\n\n= 5\nok = 1\n[s]\nname =\n=\n \t \n");
    EXPECT_EQ(file->Items(), (tItems{{"/ok", "1"}}));
    EXPECT_TRUE(file->HasErrors());
    EXPECT_EQ(file->Errors(), "a.cfg: Malformed line in file @ line 3\n"
                              "a.cfg: Malformed line in file @ line 6\n"
                              "a.cfg: Malformed line in file @ line 7\n"
                              "a.cfg: Malformed line in file @ line 8\n");
}

TEST_F(ConfigLoad, ReportsAMissingTopFile)
{
    tcLoaded file("missing.cfg");
    EXPECT_TRUE(file.Items().empty());
    EXPECT_TRUE(file.HasErrors());
    EXPECT_EQ(file.Errors(), "Error opening missing.cfg : No such file or directory\n");
    EXPECT_EQ(file.Files(), (std::vector<std::string>{""}));
}

TEST_F(ConfigLoad, ReportsAFolderAsAFileThatCannotBeOpened)
{
    std::filesystem::create_directory("sub");
    tcLoaded folder("sub");
    EXPECT_EQ(folder.Errors(), "Error opening sub : Is a directory\n");
    EXPECT_EQ(folder.FilesUsed(), "\n");
    auto file = Load("!include sub\na=1\n");
    EXPECT_EQ(file->Errors(), "Error opening sub : Is a directory\n");
    EXPECT_EQ(file->Items(), (tItems{{"/a", "1"}}));
}

TEST_F(ConfigLoad, TakesAnEmptyFileForNoItems)
{
    auto file = Load("");
    EXPECT_TRUE(file->Items().empty());
    EXPECT_FALSE(file->HasErrors());
    EXPECT_EQ(file->FilesUsed(), "\na.cfg\n");
}

TEST_F(ConfigLoad, TakesLinesOfAnyLength)
{
    const std::string value(3000000, 'v');
    EXPECT_EQ(Load("a=" + value + "\nb=1\n")->Items(), (tItems{{"/a", value}, {"/b", "1"}}));
}

TEST_F(ConfigLoad, WritesLineNumbersInPlainDecimalInEveryLocale)
{
    const tcGroupedNumbers grouped;
    auto file = Load(std::string(1233, '\n') + "=\n!what\n!include none.cfg\n");
    EXPECT_EQ(file->Errors(), "a.cfg: Malformed line in file @ line 1234\n"
                              "a.cfg:1235:Invalid directive >> !what\n"
                              "a.cfg:1236:Cannot find include file none.cfg\n");
    EXPECT_EQ(file->Trace(), "line: 1235:!what  -- contains 1 tokens.\n"
                             "line: 1236:!include none.cfg  -- contains 2 tokens.\n");
}

TEST_F(ConfigLoad, DoesNotSearchForTheTopFile)
{
    std::filesystem::create_directory("sub");
    Write("sub/a.cfg", "a=1\n");
    EXPECT_EQ(tcLoaded("sub/a.cfg").Items().size(), 1u);
    EXPECT_TRUE(tcLoaded("sub/b.cfg").HasErrors());
    EXPECT_TRUE(tcLoaded("a.cfg").HasErrors());
}

TEST_F(ConfigLoad, ReportsAnEmptyNameAsAlreadyIncluded)
{
    for (const char* name : {"", static_cast<const char*>(nullptr)}) {
        tcLoaded file(name);
        EXPECT_EQ(file.Errors(), " Already included! skipping to prevent recursion\n"
                                 "Last file read was \n"
                                 "Error opening  : No such file or directory\n");
    }
}

TEST_F(ConfigLoad, TakesAFileThatCouldNotBeOpenedForOneNotIncluded)
{
    std::filesystem::create_directory("folder");
    const auto file = Load("!include folder\n!include folder\n");
    EXPECT_EQ(file->Errors(), "Error opening folder : Is a directory\n"
                              "Error opening folder : Is a directory\n");
}

TEST_F(ConfigLoad, ReturnsOneOnEveryPath)
{
    auto file = Load("a=1\n");
    Write("b.cfg", "b=2\n");
    EXPECT_EQ(file->LoadConfigFile("b.cfg", false), 1);
    EXPECT_EQ(file->Items(), (tItems{{"/a", "1"}, {"/b", "2"}}));
    EXPECT_EQ(file->LoadConfigFile("missing.cfg", true), 1);
    EXPECT_EQ(file->Items().size(), 2u);
    EXPECT_EQ(file->LoadConfigFile("b.cfg", true), 1);
    EXPECT_EQ(file->Items(), (tItems{{"/b", "2"}}));
    EXPECT_EQ(file->Errors(), "Error opening missing.cfg : No such file or directory\n"
                              "b.cfg Already included! skipping to prevent recursion\n"
                              "Last file read was b.cfg\n");
}

TEST_F(ConfigLoad, TakesValuesFromTheEnvironmentWhenOverridden)
{
    setenv("CONFIGFILE_ENV_OVERIDE", "", 1);
    setenv("port", "8080", 1);
    setenv("gone", "", 1);
    auto file = Load("[net]\nport = 80\nhost = h\ngone = x\nport2=\n");
    EXPECT_TRUE(file->IsEnvOverride());
    EXPECT_EQ(file->Items(), (tItems{{"net/host", "h"}, {"net/port", "8080"}}));
    EXPECT_EQ(file->Errors(), "a.cfg: Malformed line in file @ line 4\n"
                              "a.cfg: Malformed line in file @ line 5\n");
    unsetenv("port");
    unsetenv("gone");
}

TEST_F(ConfigLoad, OverridesWholeNamesOnly)
{
    setenv("CONFIGFILE_ENV_OVERIDE", "1", 1);
    setenv("port", "8080", 1);
    auto file = Load(std::string("port\0x=1\nhost=a\0b\n", 18));
    EXPECT_EQ(file->Items(),
              (tItems{{std::string("/port\0x", 7), "1"}, {"/host", std::string("a\0b", 3)}}));
    EXPECT_EQ(Load("net/port=1\n")->Items(), (tItems{{"/net/port", "1"}}));
    unsetenv("port");
}

TEST_F(ConfigLoad, LeavesTheEnvironmentAloneWithoutOverride)
{
    setenv("port", "8080", 1);
    auto file = Load("port = 80\n");
    EXPECT_FALSE(file->IsEnvOverride());
    EXPECT_EQ(file->Items(), (tItems{{"/port", "80"}}));
    unsetenv("port");
}

TEST_F(ConfigLoad, SurvivesBinaryContent)
{
    std::string text;
    for (int i = 0; i < 4096; ++i) {
        text.push_back(static_cast<char>((i * 7919) >> 3));
    }
    auto file = Load(text + "\n\n[end]\nz=1\n" + std::string("n\0m=v\0w\n", 8));
    EXPECT_EQ(file->GetItemInSection("end", "z", 0), 1);
    EXPECT_EQ(file->findItem(std::string("end/n\0m", 7)), std::string("v\0w", 3));
}

TEST_F(ConfigLoad, OpensFilesCloseOnExec)
{
    struct tcWatch : std::streambuf {
        int overflow(int c) override
        {
            for (int fd = 3; fd < 64; ++fd) {
                const std::string link = "/proc/self/fd/" + std::to_string(fd);
                std::error_code error;
                if (std::filesystem::read_symlink(link, error).filename() != "a.cfg") continue;
                ++Seen;
                if ((fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) ++Inherited;
            }
            return c;
        }
        int Seen = 0;
        int Inherited = 0;
    } watch;
    Write("a.cfg", "!include missing\n");
    std::streambuf* before = std::cout.rdbuf(&watch);
    tcConfigFile file("a.cfg");
    std::cout.rdbuf(before);
    EXPECT_GT(watch.Seen, 0);
    EXPECT_EQ(watch.Inherited, 0);
}

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

TEST_F(ConfigFindFile, TakesAReadableNameAsItIs)
{
    Write("b.cfg", "");
    EXPECT_STREQ(Load("")->FindFile("b.cfg"), "b.cfg");
    const std::string absolute = mFolder / "b.cfg";
    EXPECT_EQ(Load("")->FindFile(absolute.c_str()), absolute);
}

TEST_F(ConfigFindFile, LooksBesideTheTopFile)
{
    std::filesystem::create_directory("etc");
    Write("etc/b.cfg", "");
    tcLoaded file("etc/missing.cfg");
    EXPECT_STREQ(file.FindFile("b.cfg"), "etc/b.cfg");
    EXPECT_EQ(file.FindFile("c.cfg"), nullptr);
    EXPECT_EQ(file.FindFile(nullptr), nullptr);
}

TEST_F(ConfigFindFile, RemembersABackslashAsTheSeparator)
{
    Write("etc\\b.cfg", "");
    tcLoaded file("etc\\missing.cfg");
    EXPECT_STREQ(file.FindFile("b.cfg"), "etc\\b.cfg");
}

TEST_F(ConfigFindFile, KeepsTheWholeNameOfATopFileWithoutSeparator)
{
    std::filesystem::create_directory("top");
    Write("top/b.cfg", "");
    EXPECT_STREQ(tcLoaded("top").FindFile("b.cfg"), "top/b.cfg");
}

TEST_F(ConfigFindFile, NeverCutsAtTheFirstCharacter)
{
    std::filesystem::create_directory("\\top");
    Write("\\top/b.cfg", "");
    EXPECT_STREQ(tcLoaded("\\top").FindFile("b.cfg"), "\\top/b.cfg");
}

TEST_F(ConfigFindFile, LooksInTheWorkingDirectoryForAnEmptyTopName)
{
    tcLoaded file("");
    std::filesystem::create_directory("sub");
    Write("sub/b.cfg", "");
    EXPECT_STREQ(file.FindFile("sub/b.cfg"), "sub/b.cfg");
    EXPECT_EQ(file.FindFile("b.cfg"), nullptr);
    EXPECT_EQ(file.FindFile("etc/passwd"), nullptr);
}

TEST_F(ConfigFindFile, PassesOverFilesThatCannotBeRead)
{
    std::filesystem::permissions(".", std::filesystem::perms(0755));
    std::filesystem::create_directory("etc");
    for (const char* name : {"b.cfg", "etc/b.cfg", "etc/c.cfg"}) {
        Write(name, "");
    }
    tcLoaded file("etc/missing.cfg");
    for (const char* name : {"b.cfg", "etc/c.cfg"}) {
        std::filesystem::permissions(name, std::filesystem::perms::none);
    }
    EXPECT_TRUE(AsNobody([&file] { return file.FindFile("b.cfg") == std::string("etc/b.cfg"); }));
    EXPECT_TRUE(AsNobody([&file] { return file.FindFile("c.cfg") == nullptr; }));
}

TEST_F(ConfigLoad, ReportsAFileThatMayNotBeRead)
{
    std::filesystem::permissions(".", std::filesystem::perms(0755));
    Write("a.cfg", "a=1\n");
    std::filesystem::permissions("a.cfg", std::filesystem::perms::none);
    EXPECT_TRUE(AsNobody(
        [] { return tcLoaded("a.cfg").Errors() == "Error opening a.cfg : Permission denied\n"; }));
}

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

TEST(ConfigTrimLine, CutsAtTheFirstHashAndStripsTheEnd)
{
    auto trim = [](std::string text, int expected) {
        EXPECT_EQ(tcConfigFile::TrimLine(text.data()), expected) << text;
        return std::string(text.c_str());
    };
    EXPECT_EQ(trim("abc # note # more", 2), "abc");
    EXPECT_EQ(trim("  a b\t\r\n", 4), "  a b");
    EXPECT_EQ(trim("a", 0), "a");
    EXPECT_EQ(trim("ab", 1), "ab");
    EXPECT_EQ(trim("#abc", 0), "");
    EXPECT_EQ(trim("  \t", 0), "");
    EXPECT_EQ(trim("", 0), "");
    EXPECT_EQ(trim("a\xE9", 0), "a");
    EXPECT_EQ(tcConfigFile::TrimLine(nullptr), 0);
}

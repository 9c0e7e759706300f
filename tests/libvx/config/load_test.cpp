#include "config_fixture.h"
#include "load_support.h"

#include <cstring>
#include <fcntl.h>

namespace {

class ConfigLoad : public ConfigTest
{};

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

TEST_F(ConfigLoad, ReportsAFileThatMayNotBeRead)
{
    std::filesystem::permissions(".", std::filesystem::perms(0755));
    Write("a.cfg", "a=1\n");
    std::filesystem::permissions("a.cfg", std::filesystem::perms::none);
    EXPECT_TRUE(AsNobody(
        [] { return tcLoaded("a.cfg").Errors() == "Error opening a.cfg : Permission denied\n"; }));
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

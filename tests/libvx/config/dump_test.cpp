#include "config_fixture.h"
#include "tcLogConsumer.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

class ConfigDump : public ConfigTest
{
protected:
    std::string Dumped(const tcConfigFile& file) const
    {
        std::ostringstream text;
        file.Dump(text);
        return WithoutTime(text.str(), mnStart);
    }
    const std::time_t mnStart = std::time(nullptr);
};

class ConfigRewrite : public ConfigDump
{
protected:
    std::string Rewritten(const tcConfigFile& file)
    {
        file.WriteFile("out.cfg");
        return WithoutTime(Read("out.cfg"), mnStart);
    }
    static std::string Head()
    {
        return "#-- START OF CONFIGURATION DATA --\n"
               "# File      : out.cfg\n"
               "# Created by: Unknown\n"
               "# Date      : TIME\n";
    }
};

class ConfigList : public ConfigDump
{
protected:
    // The lines the listing prints for the objects now registered.
    static std::string Listing()
    {
        std::ostringstream text;
        text << "####      Listing tcConfigFile Objects.... \n";
        int number = 0;
        for (const auto& [name, file] : tcConfigFile::GetMap()) {
            text << ++number << " " << name << " @ " << static_cast<const void*>(file) << "\n";
        }
        return text.str();
    }
};

} // namespace

TEST_F(ConfigDump, ShowsFilesItemsAndCreator)
{
    setenv("USERNAME", "somebody", 1);
    Write("b.cfg", "[s]\nx=1\n");
    auto file = Load("!include b.cfg\ntop=2\n");
    file->GetItemInSection("s", "missing", 1);
    EXPECT_EQ(Dumped(*file), "#-- START OF CONFIGURATION DATA --\n"
                             "# Generated : TIME\n"
                             "# Created by: somebody\n"
                             "#-- Config File info from a.cfg\n"
                             "#-- Included Config Files \n"
                             "#--    \n"
                             "#--    a.cfg\n"
                             "#--    b.cfg\n"
                             "/top = 2\n"
                             "s/missing = \n"
                             "s/x = 1\n"
                             "#-- END OF CONFIGURATION DATA --\n");
}

TEST_F(ConfigDump, HasTheTimeOfTheZoneThatTheFileSet)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    auto file = Load("!env TZ=XYZ-5:30\n");
    const std::time_t start = std::time(nullptr) + 19800;
    std::ostringstream dump;
    file->Dump(dump);
    const std::string text = dump.str();
    const std::time_t end = std::time(nullptr) + 19800;
    bool found = false;
    for (std::time_t t = start; t <= end; ++t) {
        tm there;
        char expected[64];
        asctime_r(gmtime_r(&t, &there), expected);
        found = found || text.find(std::string("# Generated : ") + expected) != std::string::npos;
    }
    EXPECT_TRUE(found) << text;

    std::ostringstream line;
    tcLogEvent event{};
    event.seconds = 1000000000;
    tcLogStream(line).Output(event);
    EXPECT_EQ(line.str().substr(0, 17), "20010909-07:16:40");
    unsetenv("TZ");
    tzset();
}

TEST_F(ConfigDump, ShowsTheErrorsWithOneMarker)
{
    auto file = Load("=1\n=2\na=3\n");
    EXPECT_EQ(Dumped(*file), "#-- START OF CONFIGURATION DATA --\n"
                             "# Generated : TIME\n"
                             "# Created by: Unknown\n"
                             "#-- Config File info from a.cfg\n"
                             "#-- Included Config Files \n"
                             "#--    \n"
                             "#--    a.cfg\n"
                             "#-- Errors found loading config \n"
                             "#-- a.cfg: Malformed line in file @ line 1\n"
                             "a.cfg: Malformed line in file @ line 2\n"
                             "\n"
                             "/a = 3\n"
                             "#-- END OF CONFIGURATION DATA --\n");
}

TEST_F(ConfigDump, ShowsAnEmptyUserName)
{
    setenv("USERNAME", "", 1);
    EXPECT_NE(Dumped(*Load("")).find("# Created by: \n"), std::string::npos);
}

TEST_F(ConfigDump, IsWhatTheStreamOperatorWrites)
{
    auto file = Load("a=1\n");
    std::ostringstream text;
    text << *file << "after";
    EXPECT_EQ(WithoutTime(text.str(), mnStart), Dumped(*file) + "after");
}

TEST_F(ConfigDump, GoesToStandardOutputForANullName)
{
    auto file = Load("a=1\n");
    tcCapturedOutput output;
    file->Dump(nullptr);
    EXPECT_EQ(WithoutTime(output.Text(), mnStart), Dumped(*file));
}

TEST_F(ConfigDump, GoesOnlyToAFileForAName)
{
    auto file = Load("a=1\n");
    Write("out.txt", std::string(5000, 'x'));
    tcCapturedOutput output;
    file->Dump("out.txt");
    EXPECT_EQ(WithoutTime(Read("out.txt"), mnStart), Dumped(*file));
    EXPECT_EQ(output.Text(), "");
}

TEST_F(ConfigDump, SkipsAFileThatCannotBeOpened)
{
    auto file = Load("a=1\n");
    tcCapturedOutput output;
    file->Dump("missing/out.txt");
    file->Dump("");
    EXPECT_FALSE(std::filesystem::exists("missing"));
    EXPECT_EQ(output.Text(), "");
}

TEST_F(ConfigDump, FlushesEveryLine)
{
    struct tcCounting : std::stringbuf {
        int sync() override
        {
            ++Flushes;
            return 0;
        }
        int Flushes = 0;
    } buffer;
    auto file = Load("a=1\nb=2\n");
    std::ostream stream(&buffer);
    file->Dump(stream);
    EXPECT_EQ(buffer.Flushes, 10);
}

TEST_F(ConfigDump, ListsTheFilesUsed)
{
    Write("b.cfg", "");
    EXPECT_EQ(Load("!include b.cfg\n")->FilesUsed(), "\na.cfg\nb.cfg\n");
    EXPECT_EQ(tcLoaded("missing.cfg").FilesUsed(), "\n");
}

TEST_F(ConfigRewrite, WritesTopLevelItemsFirstAndWithoutHeader)
{
    EXPECT_EQ(Rewritten(*Load("b=2\na = 1 = x\n")), Head() + "a=1 = x\nb=2\n\n");
}

TEST_F(ConfigRewrite, WritesSectionsAndItemsInNameOrder)
{
    auto file = Load("[z]\nb=1\na=2\n[a]\nq=3\n[]\nt=4\n");
    EXPECT_EQ(Rewritten(*file), Head() + "t=4\n\n[a]\nq=3\n\n[z]\na=2\nb=1\n\n");
}

TEST_F(ConfigRewrite, WritesAHeaderWhenThereIsNoTopLevelItem)
{
    EXPECT_EQ(Rewritten(*Load("[s]\na=1\n")), Head() + "[s]\na=1\n\n");
}

TEST_F(ConfigRewrite, WritesNothingButTheHeadWithoutItems)
{
    EXPECT_EQ(Rewritten(*Load("")), Head());
}

TEST_F(ConfigRewrite, TurnsAnEmptyItemIntoAComment)
{
    auto file = Load("[s]\na=1\n");
    file->GetItemInSection("s", "missing", 1);
    EXPECT_EQ(Rewritten(*file), Head() + "[s]\na=1\n# ERR: Undefined Key missing=\n\n");
    tcLoaded again("out.cfg");
    EXPECT_FALSE(again.HasErrors());
    EXPECT_EQ(again.Items(), (tcConfigFile::tItems{{"s/a", "1"}}));
}

TEST_F(ConfigRewrite, TakesASlashInATopLevelNameForASection)
{
    EXPECT_EQ(Rewritten(*Load("x/y=1\n")), Head() + "[x]\ny=1\n\n");
}

TEST_F(ConfigRewrite, CutsANameAtItsFirstSlashOtherwise)
{
    auto file = Load("x/y/z=1\n[s]\na/b=2\n");
    EXPECT_EQ(Rewritten(*file), Head() + "s=2\nx=1\n\n");
}

TEST_F(ConfigRewrite, NamesTheCreator)
{
    setenv("USERNAME", "somebody", 1);
    EXPECT_NE(Rewritten(*Load("")).find("# Created by: somebody\n"), std::string::npos);
}

TEST_F(ConfigRewrite, ReplacesTheFileAndLoadsBackIntoTheSameItems)
{
    setenv("VXC_V", "expanded", 1);
    Write("out.cfg", std::string(5000, 'x'));
    Write("b.cfg", "[inc]\nq=1\n");
    auto file = Load("t=$(VXC_V)\n!include b.cfg\n[s]\na=b = c\n");
    EXPECT_EQ(Rewritten(*file), Head() + "t=expanded\n\n[inc]\nq=1\n\n[s]\na=b = c\n\n");
    tcLoaded again("out.cfg");
    EXPECT_EQ(again.Items(), file->Items());
    EXPECT_FALSE(again.HasErrors());
    unsetenv("VXC_V");
}

TEST_F(ConfigRewrite, SkipsAFileThatCannotBeOpened)
{
    auto file = Load("a=1\n");
    tcCapturedOutput output;
    file->WriteFile("");
    file->WriteFile("missing/out.cfg");
    EXPECT_EQ(output.Text(), "");
    EXPECT_FALSE(std::filesystem::exists("missing"));
}

TEST_F(ConfigList, ListsTheRegisteredObjects)
{
    tcLoaded one("one.cfg");
    tcLoaded two("two.cfg");
    tcCapturedOutput output;
    ListConfigs(false);
    EXPECT_EQ(output.Text(), Listing());
    EXPECT_NE(output.Text().find(" one.cfg @ 0x"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists("dump.dat"));
}

TEST_F(ConfigList, NumbersFromOne)
{
    tcConfigFile::FindInstance("none.cfg");
    tcCapturedOutput output;
    ListConfigs(false);
    EXPECT_EQ(output.Text(), "####      Listing tcConfigFile Objects.... \n1 none.cfg @ 0\n");
}

TEST_F(ConfigList, DumpsEachObjectOverTheOneBefore)
{
    Write("one.cfg", "a=1\nb=2\nc=3\n");
    Write("two.cfg", "d=4\n");
    tcLoaded one("one.cfg");
    tcLoaded two("two.cfg");
    tcConfigFile::FindInstance("three.cfg");
    std::ostringstream expected;
    expected << "####      Listing tcConfigFile Objects.... \n"
             << "1 one.cfg @ " << static_cast<tcConfigFile*>(&one) << "\n"
             << "2 three.cfg @ 0\n"
             << "Oops... no config object for config file three.cfg\n"
             << "3 two.cfg @ " << static_cast<tcConfigFile*>(&two) << "\n";
    {
        tcCapturedOutput output;
        ListConfigs(true);
        EXPECT_EQ(output.Text(), expected.str());
    }
    EXPECT_EQ(WithoutTime(Read("dump.dat"), mnStart), Dumped(two));
}

TEST_F(ConfigList, DumpsAConfigurationByItsName)
{
    auto file = Load("a=1\n");
    tcCapturedOutput output;
    DumpConfig("a.cfg");
    EXPECT_EQ(WithoutTime(output.Text(), mnStart), Dumped(*file));
}

TEST_F(ConfigList, SaysWhenThereIsNothingToDump)
{
    tcCapturedOutput output;
    DumpConfig("never.cfg");
    EXPECT_EQ(output.Text(), "Oops... no config object for config file never.cfg\n" + Listing());
}

TEST_F(ConfigList, SaysSoForANullNameToo)
{
    const std::string listing = Listing();
    {
        tcCapturedOutput output;
        DumpConfig(nullptr);
        EXPECT_EQ(output.Text(), "Oops... no config object for config file \n" + listing);
    }
    tcCapturedOutput output;
    EXPECT_EQ(ValidConfig(nullptr), 0);
    EXPECT_EQ(output.Text(), "Oops... no config object for config file \n" + listing);
}

TEST_F(ConfigList, ValidatesAConfigurationByItsName)
{
    auto file = Load("a=1\n");
    tcCapturedOutput output;
    EXPECT_EQ(ValidConfig("a.cfg"), 1);
    file->GetItemInSection("", "b", 0);
    EXPECT_EQ(ValidConfig("a.cfg"), 0);
    EXPECT_EQ(output.Text(), "");
    EXPECT_EQ(ValidConfig("never.cfg"), 0);
    EXPECT_EQ(output.Text(), "Oops... no config object for config file never.cfg\n" + Listing());
}

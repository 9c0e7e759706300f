// The manual page, as it is installed.
#include "document.h"
#include "pages_support.h"
#include "program.h"
#include "tool_support.h"

#include <vxcamkit/property.h>

#include <gmock/gmock.h>

#include <regex>
#include <set>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string gsManual = VX_PREFIX "/share/man/man1/vxcam.1";

std::string Dashes(std::string text)
{
    for (size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2) {
        text.insert(at, "\\");
    }
    return text;
}

// A section of the manual as it is printed, in one line.
std::string Printed(const std::string& section)
{
    std::string errors, text;
    bool isInside = false;
    for (const std::string& line : Command(
             {"groff", "-man", "-Tascii", "-P-c", "-P-b", "-P-u", "-rHY=0", gsManual}, &errors)) {
        if (!line.empty() && line[0] != ' ') isInside = line == section;
        if (isInside) text += line + " ";
    }
    return text;
}

bool Holds(const std::string& text, const std::string& word)
{
    return std::regex_search(text, std::regex("(^|[^A-Za-z0-9_-])" + word + "($|[^A-Za-z0-9_-])"));
}

// The names in a document; not those of properties and of the parts of their values.
void AddKeys(const nlohmann::json& document, std::set<std::string>* keys)
{
    static const std::set<std::string> values{"values", "properties", "settings", "value", "asked"};
    for (const auto& [key, value] : document.items()) {
        if (document.is_object()) keys->insert(key);
        if (value.is_structured() && values.count(key) == 0) AddKeys(value, keys);
    }
}

// Of the cards of a FITS file; not those that say how the pixels are stored.
std::set<std::string> KeywordsOf(const std::string& file)
{
    static const std::set<std::string> storage{"SIMPLE", "BITPIX", "NAXIS", "NAXIS1",  "NAXIS2",
                                               "EXTEND", "BSCALE", "BZERO", "COMMENT", "HISTORY"};
    std::set<std::string> keywords;
    for (size_t at = 0; at + 80 <= file.size(); at += 80) {
        const std::string card = file.substr(at, 80);
        const std::string word = card.substr(0, card.find_first_of(" ="));
        if (card.rfind("END ", 0) == 0) break;
        if (!word.empty() && storage.count(word) == 0) keywords.insert(word);
    }
    return keywords;
}

} // namespace

TEST(Pages, ManualNamesEveryVerbAndOptionAndProperty)
{
    const std::string manual = FileText(gsManual);
    EXPECT_THAT(manual, HasSubstr("vxcam \\- drives cameras"));
    for (const tsVerb& verb : Verbs()) {
        EXPECT_THAT(manual, HasSubstr(std::string("\n.SS vxcam ") + verb.name + "\n"));
        tcCommandLine line;
        const std::unique_ptr<tcVerb> run = verb.make();
        run->Declare(line);
        for (const tsOptionText& option : line.Options()) {
            EXPECT_THAT(manual, HasSubstr(Dashes(option.names.back()))) << verb.name;
        }
    }
    for (const vxcam::Property& property : vxcam::properties()) {
        EXPECT_THAT(manual, HasSubstr("\n\\fB" + Dashes(property.fullName())));
    }
}

TEST(Pages, ManualIsFormattedWithoutAWarning)
{
    if (std::system("command -v groff >/dev/null") != 0) GTEST_SKIP() << "no groff here";
    std::string errors;
    const std::vector<std::string> lines =
        Command({"groff", "-man", "-Tutf8", "-ww", "-rLL=200n", gsManual}, &errors);
    EXPECT_EQ(errors, "");
    EXPECT_GT(lines.size(), 200u);
}

TEST(Pages, ManualIsShownByManWithoutAWarning)
{
    if (IsMissing("man")) GTEST_SKIP() << "no man here";
    for (const char* width : {"60", "80", "200"}) {
        std::string errors;
        const auto lines = Command({"env", "LC_ALL=C.UTF-8", std::string("MANWIDTH=") + width,
                                    "man", "--warnings", "-E", "UTF-8", "-l", gsManual},
                                   &errors);
        EXPECT_EQ(errors, "") << width;
        EXPECT_GT(lines.size(), 300u);
    }
}

TEST(Pages, ManualNamesEveryKeywordOfAFile)
{
    if (IsMissing("groff")) GTEST_SKIP() << "no groff here";
    tcFolder folder;
    tcRun run({"grab", "--sim-sensor", "16x8", "-e", "1ms", "--target-temp", "-5", "--measure",
               "-o", folder.Path("a.fits")});
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    const std::string section = Printed("FITS HEADER");
    const std::set<std::string> keywords = KeywordsOf(FileText(folder.Path("a.fits")));
    EXPECT_GT(keywords.size(), 10u);
    for (const std::string& keyword : keywords) {
        EXPECT_TRUE(Holds(section, keyword)) << keyword;
    }
}

TEST(Pages, ManualNamesWhatIsInDocuments)
{
    if (IsMissing("groff")) GTEST_SKIP() << "no groff here";
    tcFolder folder;
    const std::string section = Printed("JSON");
    for (std::vector<std::string> arguments : std::vector<std::vector<std::string>>{
             {"grab", "--sim-sensor", "16x8", "-e", "1ms", "-o", folder.Path("a.fits"), "--preview",
              folder.Path("a.png"), "--measure"},
             {"get", "sim", "exposure", "gpio", "set", "gain=2"},
             {"info"},
             {"ping", "-n", "2"},
             {"list"},
             {"doctor"},
             {"profile", "save", "sim", folder.Path("a.json")},
             {"profile", "load", "sim", folder.Path("a.json")},
             {"get", "nowhere"}}) {
        arguments.emplace_back("--json");
        tcRun run(arguments);
        EXPECT_EQ(run.Exit(), arguments[1] == "nowhere" ? 1 : 0) << run.Errors();
        std::set<std::string> keys;
        AddKeys(run.Document(), &keys);
        EXPECT_FALSE(keys.empty());
        for (const std::string& key : keys) {
            EXPECT_TRUE(Holds(section, key)) << arguments[0] << ": " << key;
        }
    }
}

TEST(Pages, ManualTellsOfTheEnvironmentAndOfFiles)
{
    if (IsMissing("groff")) GTEST_SKIP() << "no groff here";
    for (const char* variable : {"TERM", "TZ", "DBGD_PORTNUM", "DBGD_BIND", "DBGD_ANNOUCE_GROUP",
                                 "TCLOG_SUPPRESS_ERR_CONSOLE"}) {
        EXPECT_TRUE(Holds(Printed("ENVIRONMENT"), variable)) << variable;
    }
    EXPECT_THAT(Printed("FILES"), HasSubstr(".vxcam-PID-N.part"));
    EXPECT_THAT(Printed("EXIT STATUS"), HasSubstr("130"));
}

TEST(Document, HasSectionsTablesAndParagraphs)
{
    const std::string document = "# A\n\ntop\n\n## B\n\nOne\ntwo.\n\n| word | x | meaning |\n"
                                 "|---|---|---|\n| `a` | 1 | b\\|c |\n\n```\nx\n```\n### C\n\n"
                                 "    code\n\nThree.\n## D\n| other | m |\n|---|---|\n| e | f |\n";
    const std::string section = SectionOf(document, "## B");
    EXPECT_THAT(section, Not(HasSubstr("top")));
    EXPECT_THAT(section, Not(HasSubstr("other")));
    EXPECT_THAT(ParagraphsOf(section), ElementsAre("One two.", "Three."));
    EXPECT_THAT(RowsOf(section, "word"), ElementsAre(std::make_pair("`a`", "b|c")));
    EXPECT_THAT(RowsOf(document, "other"), ElementsAre(std::make_pair("e", "f")));
    EXPECT_TRUE(RowsOf(section, "meaning").empty());
    EXPECT_THROW(SectionOf(document, "## E"), std::runtime_error);
}

TEST(Pages, OfTheSimulatedCameraAreInstalledToo)
{
    EXPECT_THAT(FileText(VX_PREFIX "/share/man/man1/vxcamsim.1"), HasSubstr("a simulated camera"));
    EXPECT_THAT(FileText(VX_PREFIX "/share/bash-completion/completions/vxcamsim"),
                HasSubstr("complete -o filenames -F _vxcamsim vxcamsim"));
}

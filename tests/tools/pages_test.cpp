// The manual page and the completion, as they are installed.
#include "document.h"
#include "program.h"
#include "tool_support.h"

#include <vxcamkit/property.h>

#include <gmock/gmock.h>

#include <regex>
#include <set>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

namespace {

const std::string gsManual = VX_PREFIX "/share/man/man1/vxcam.1";
const std::string gsCompletion = VX_PREFIX "/share/bash-completion/completions/vxcam";
const std::string gsZshFolder = VX_PREFIX "/share/zsh/site-functions";
const std::string gsFishCompletion = VX_PREFIX "/share/fish/vendor_completions.d/vxcam.fish";

std::string Dashes(std::string text)
{
    for (size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2) {
        text.insert(at, "\\");
    }
    return text;
}

std::vector<std::string> Command(const std::vector<std::string>& arguments, std::string* errors)
{
    tcRun::tsHow how;
    how.program = arguments[0];
    tcRun run({arguments.begin() + 1, arguments.end()}, how);
    EXPECT_EQ(run.Exit(), 0);
    *errors = run.Errors();
    std::vector<std::string> lines;
    std::istringstream in(run.Output());
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What bash offers behind this beginning of a command line.
std::vector<std::string> Offers(const std::string& line)
{
    std::string errors;
    std::vector<std::string> offers = Command(
        {"bash", "--norc", "-c",
         "source \"$0\" && complete -p vxcam >/dev/null && COMP_LINE=$1 && COMP_POINT=${#1} && "
         "_vxcam && [ ${#COMPREPLY[@]} -gt 0 ] && printf '%s\\n' \"${COMPREPLY[@]}\"; true",
         gsCompletion, line},
        &errors);
    EXPECT_EQ(errors, "") << line;
    return offers;
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

bool IsMissing(const std::string& program)
{
    return std::system(("command -v " + program + " >/dev/null").c_str()) != 0;
}

using tpOffers = std::vector<std::string>;

// What zsh offers behind each of these beginnings, in order.
std::vector<tpOffers> ZshOffers(const std::vector<std::string>& lines)
{
    std::string errors;
    std::vector<std::string> command{"zsh", "-f", VX_ZSH_OFFERS, gsZshFolder};
    command.insert(command.end(), lines.begin(), lines.end());
    std::vector<tpOffers> all(1);
    for (const std::string& line : Command(command, &errors)) {
        if (line == ".") {
            all.emplace_back();
        } else {
            all.back().push_back(line);
        }
    }
    EXPECT_EQ(errors, "");
    all.pop_back();
    for (tpOffers& offers : all) {
        std::sort(offers.begin(), offers.end());
    }
    return all;
}

// In order, without what they mean.
tpOffers FishOffers(const std::string& line)
{
    std::string errors;
    tpOffers offers = Command({"fish", "--no-config", "-c", "source $argv[1]; complete -C$argv[2]",
                               gsFishCompletion, line},
                              &errors);
    EXPECT_EQ(errors, "") << line;
    for (std::string& offer : offers) {
        offer = offer.substr(0, offer.find('\t'));
    }
    std::sort(offers.begin(), offers.end());
    return offers;
}

tpOffers VerbNames()
{
    tpOffers verbs{"help"};
    for (const tsVerb& verb : Verbs()) {
        verbs.emplace_back(verb.name);
    }
    std::sort(verbs.begin(), verbs.end());
    return verbs;
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

TEST(Pages, CompletionNamesEveryVerbAndProperty)
{
    const std::string completion = FileText(gsCompletion);
    for (const tsVerb& verb : Verbs()) {
        EXPECT_THAT(completion, HasSubstr(std::string("\n    ") + verb.name + ") options='"));
    }
    for (const vxcam::Property& property : vxcam::properties()) {
        EXPECT_THAT(completion, HasSubstr(property.name)) << property.name;
    }
}

TEST(Pages, BashCompletesVerbs)
{
    std::vector<std::string> verbs{"help"};
    for (const tsVerb& verb : Verbs()) {
        verbs.emplace_back(verb.name);
    }
    EXPECT_THAT(Offers("vxcam "), testing::UnorderedElementsAreArray(verbs));
    EXPECT_THAT(Offers("vxcam gr"), ElementsAre("grab"));
    EXPECT_THAT(Offers("vxcam help pi"), ElementsAre("ping"));
    EXPECT_THAT(Offers("vxcam --v"), ElementsAre("--version"));
    EXPECT_THAT(Offers("vxcam nonsense "), ElementsAre());
}

TEST(Pages, BashCompletesOptionsAndTargets)
{
    EXPECT_THAT(Offers("vxcam grab --exp"), ElementsAre("--exposure"));
    EXPECT_THAT(Offers("vxcam grab sim --f"),
                testing::UnorderedElementsAre("--frames", "--force", "--flat", "--flight"));
    EXPECT_THAT(Offers("vxcam ping "), ElementsAre("sim"));
    EXPECT_THAT(Offers("vxcam get "), ElementsAre("sim"));
    EXPECT_THAT(Offers("vxcam log "), IsSupersetOf({"list", "tail"}));
}

TEST(Pages, BashCompletesProperties)
{
    EXPECT_THAT(Offers("vxcam set sim exp"), ElementsAre("exposure=", "exposure-ex="));
    EXPECT_THAT(Offers("vxcam get sim exp"), ElementsAre("exposure", "exposure-ex"));
    EXPECT_THAT(Offers("vxcam get sim regi"), ElementsAre("register:"));
    EXPECT_THAT(Offers("vxcam set sim gain=2 get cc"), ElementsAre("ccd-temp"));
    EXPECT_THAT(Offers("vxcam get sim gain set fa"), ElementsAre("fan="));
    EXPECT_THAT(Offers("vxcam set sim "), Contains("get"));
    EXPECT_THAT(Offers("vxcam set sim "), Not(Contains("ccd-temp=")));
    EXPECT_THAT(Offers("vxcam get sim "), Not(Contains("fan")));
}

TEST(Pages, BashCompletesFiles)
{
    tcFolder folder;
    MakeFile(folder.Path("timing.bin"), "");
    EXPECT_THAT(Offers("vxcam set sim timing-data=@" + folder.Path("tim")),
                ElementsAre("@" + folder.Path("timing.bin")));
    EXPECT_THAT(Offers("vxcam grab -o " + folder.Path("tim")),
                ElementsAre(folder.Path("timing.bin")));
}

TEST(Pages, BashCompletesFilesWhereAnOptionTakesOne)
{
    tcFolder folder;
    MakeFile(folder.Path("timing.bin"), "");
    const std::string file = folder.Path("timing.bin");
    EXPECT_THAT(Offers("vxcam grab -o " + folder.Path() + "/"), ElementsAre(file));
    EXPECT_THAT(Offers("vxcam grab sim --preview " + folder.Path("t")), ElementsAre(file));
    EXPECT_THAT(Offers("vxcam grab --output=" + folder.Path("t")), ElementsAre(file));
    EXPECT_THAT(Offers("vxcam profile save sim " + folder.Path("t")), ElementsAre(file));
    EXPECT_THAT(Offers("vxcam grab -o "), Not(Contains("sim")));
    EXPECT_THAT(Offers("vxcam grab -e "), ElementsAre());
    EXPECT_THAT(Offers("vxcam grab --frames "), ElementsAre());
    EXPECT_THAT(Offers("vxcam ping " + folder.Path("t")), ElementsAre());
}

TEST(Pages, BashCompletesValues)
{
    EXPECT_THAT(Offers("vxcam set sim trigger-mode="),
                ElementsAre("off", "start", "frame", "exposure"));
    EXPECT_THAT(Offers("vxcam set sim gain=2 trigger-mode=s"), ElementsAre("start"));
    EXPECT_THAT(Offers("vxcam set sim mirroring=on,"), ElementsAre("on,on", "on,off"));
    EXPECT_THAT(Offers("vxcam set sim gpio:3="), ElementsAre("low", "high"));
    EXPECT_THAT(Offers("vxcam set sim area="), ElementsAre("none"));
    EXPECT_THAT(Offers("vxcam set sim gain="), ElementsAre());
    EXPECT_THAT(Offers("vxcam get sim set fan=o"), ElementsAre("on", "off"));
    EXPECT_THAT(Offers("vxcam log host enable o"), ElementsAre("off", "on"));
    EXPECT_THAT(Offers("vxcam fault 127.0.0.1:7010 dr"), ElementsAre("drip"));
}

TEST(Pages, ZshCompletes)
{
    if (IsMissing("zsh")) GTEST_SKIP() << "no zsh here";
    tcFolder folder;
    MakeFile(folder.Path("timing.bin"), "");
    const std::string start = folder.Path("tim");
    const auto offers = ZshOffers(
        {"vxcam ", "vxcam grab --exp", "vxcam grab -o " + start, "vxcam grab --preview=" + start,
         "vxcam grab -e ", "vxcam set sim trigger-mode=", "vxcam set sim mirroring=on,",
         "vxcam set sim timing-data=@" + start, "vxcam get sim exp", "vxcam set sim gain=2 get cc",
         "vxcam profile load sim " + start, "vxcam fault host dr", "vxcam ping "});
    ASSERT_EQ(offers.size(), 13u);
    EXPECT_EQ(offers[0], VerbNames());
    EXPECT_EQ(offers[1], tpOffers{"--exposure"});
    EXPECT_EQ(offers[2], tpOffers{"timing.bin"});
    EXPECT_EQ(offers[3], tpOffers{"timing.bin"});
    EXPECT_EQ(offers[4], tpOffers{});
    EXPECT_THAT(offers[5], ElementsAre("exposure", "frame", "off", "start"));
    EXPECT_THAT(offers[6], ElementsAre("off", "on"));
    EXPECT_EQ(offers[7], tpOffers{"timing.bin"});
    EXPECT_THAT(offers[8], ElementsAre("exposure", "exposure-ex"));
    EXPECT_EQ(offers[9], tpOffers{"ccd-temp"});
    EXPECT_EQ(offers[10], tpOffers{"timing.bin"});
    EXPECT_EQ(offers[11], tpOffers{"drip"});
    EXPECT_EQ(offers[12], tpOffers{"sim"});
}

TEST(Pages, FishCompletes)
{
    if (IsMissing("fish")) GTEST_SKIP() << "no fish here";
    tcFolder folder;
    MakeFile(folder.Path("timing.bin"), "");
    const std::string start = folder.Path("tim"), file = folder.Path("timing.bin");
    EXPECT_EQ(FishOffers("vxcam "), VerbNames());
    EXPECT_EQ(FishOffers("vxcam help pi"), tpOffers{"ping"});
    EXPECT_EQ(FishOffers("vxcam grab --exp"), tpOffers{"--exposure"});
    EXPECT_EQ(FishOffers("vxcam grab -o " + start), tpOffers{file});
    EXPECT_EQ(FishOffers("vxcam grab -e "), tpOffers{});
    EXPECT_THAT(FishOffers("vxcam set sim trigger-mode="),
                IsSupersetOf({"trigger-mode=off", "trigger-mode=start", "trigger-mode=frame",
                              "trigger-mode=exposure"}));
    EXPECT_EQ(FishOffers("vxcam set sim timing-data=@" + start), tpOffers{"timing-data=@" + file});
    EXPECT_THAT(FishOffers("vxcam get sim exp"), ElementsAre("exposure", "exposure-ex"));
    EXPECT_EQ(FishOffers("vxcam set sim gain=2 get cc"), tpOffers{"ccd-temp"});
    EXPECT_EQ(FishOffers("vxcam profile load sim " + start), tpOffers{file});
    EXPECT_EQ(FishOffers("vxcam fault host dri"), tpOffers{"drip"});
}

TEST(Pages, OfTheSimulatedCameraAreInstalledToo)
{
    EXPECT_THAT(FileText(VX_PREFIX "/share/man/man1/vxcamsim.1"), HasSubstr("a simulated camera"));
    EXPECT_THAT(FileText(VX_PREFIX "/share/bash-completion/completions/vxcamsim"),
                HasSubstr("complete -o filenames -F _vxcamsim vxcamsim"));
}

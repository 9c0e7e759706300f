// The manual page and the completion, as they are installed.
#include "program.h"
#include "tool_support.h"

#include <vxcamkit/property.h>

#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

namespace {

const std::string gsManual = VX_PREFIX "/share/man/man1/vxcam.1";
const std::string gsCompletion = VX_PREFIX "/share/bash-completion/completions/vxcam";

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
    EXPECT_THAT(Offers("vxcam grab sim --f"), testing::UnorderedElementsAre("--frames", "--force"));
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

TEST(Pages, OfTheSimulatedCameraAreInstalledToo)
{
    EXPECT_THAT(FileText(VX_PREFIX "/share/man/man1/vxcamsim.1"), HasSubstr("a simulated camera"));
    EXPECT_THAT(FileText(VX_PREFIX "/share/bash-completion/completions/vxcamsim"),
                HasSubstr("complete -o filenames -F _vxcamsim vxcamsim"));
}

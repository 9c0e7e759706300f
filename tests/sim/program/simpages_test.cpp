// The manual page and the completion of vxcamsim.
#include "faultkinds.h"
#include "shell.h"

#include <gmock/gmock.h>

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

namespace {

const std::string gsManual = ReadFile(VXCAMSIM_PAGES "/vxcamsim.1");

std::string Dashed(std::string text)
{
    for (size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2) {
        text.insert(at, "\\");
    }
    return text;
}

// The options as the program's help has them.
std::vector<std::string> OptionsOfTheHelp()
{
    std::vector<std::string> options;
    for (const std::string& line : Split(Output(VXCAMSIM_PROGRAM " --help"), '\n')) {
        const size_t dashes = line.rfind("  -", 8) == 0 ? line.find("--") : std::string::npos;
        if (dashes != std::string::npos) {
            options.push_back(line.substr(dashes, line.find_first_of(" =", dashes) - dashes));
        }
    }
    return options;
}

// What bash offers behind this beginning of a command line.
std::vector<std::string> Offers(const std::string& line)
{
    const std::string command =
        "bash --norc -c 'source " VXCAMSIM_PAGES
        "/vxcamsim.bash && complete -p vxcamsim >/dev/null "
        "&& COMP_LINE=$0 && COMP_POINT=${#0} && _vxcamsim && [ ${#COMPREPLY[@]} -gt 0 ] && "
        "printf \"%s\\n\" \"${COMPREPLY[@]}\"; true' '" +
        line + "'";
    return Split(Output(command), '\n');
}

} // namespace

TEST(SimPages, ManualTellsEveryOptionAndEveryFault)
{
    const std::vector<std::string> options = OptionsOfTheHelp();
    EXPECT_THAT(options, IsSupersetOf({"--help", "--version", "--sensor", "--fault", "--defocus",
                                       "--item-port", "--quiet"}));
    for (const std::string& option : options) {
        EXPECT_THAT(gsManual, HasSubstr(Dashed(option)));
    }
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        const tsSimKind& kind = KindOf(static_cast<teSimFault>(i));
        EXPECT_THAT(gsManual, HasSubstr("\n.B " + Dashed(kind.name)));
        EXPECT_THAT(gsManual, HasSubstr(Dashed(kind.effect)));
    }
    for (const char* section : {"EXIT STATUS", "ENVIRONMENT", "SEE ALSO"}) {
        EXPECT_THAT(gsManual, HasSubstr(std::string("\n.SH ") + section));
    }
}

TEST(SimPages, ManualIsFormattedWithoutAWarning)
{
    if (std::system("command -v groff >/dev/null") != 0) GTEST_SKIP() << "no groff here";
    EXPECT_EQ(Output("groff -man -ww -b -z " VXCAMSIM_PAGES "/vxcamsim.1 2>&1"), "");
    const std::string text =
        Output("groff -man -Tascii -P-c -P-b -P-u -P-o " VXCAMSIM_PAGES "/vxcamsim.1 2>/dev/null");
    EXPECT_THAT(text, HasSubstr("vxcamsim - a simulated camera"));
    EXPECT_THAT(text, HasSubstr("--drift"));
}

TEST(SimPages, CompletionOffersOptionsFaultsAndFiles)
{
    EXPECT_THAT(Offers("vxcamsim "), IsSupersetOf(OptionsOfTheHelp()));
    EXPECT_THAT(Offers("vxcamsim --defo"), testing::ElementsAre("--defocus"));
    EXPECT_THAT(Offers("vxcamsim --quiet --fault "), Contains("discovery-conflict"));
    EXPECT_THAT(Offers("vxcamsim --fault no-"),
                testing::UnorderedElementsAre("no-answer", "no-last-frame"));
    EXPECT_THAT(Offers("vxcamsim --fault no-answer --sc"), testing::ElementsAre("--scenario"));
    EXPECT_THAT(Offers("vxcamsim --scenario " VXCAMSIM_PAGES "/vxcamsim.b"),
                testing::ElementsAre(VXCAMSIM_PAGES "/vxcamsim.bash"));
    EXPECT_THAT(Offers("vxcamsim --port "), Not(Contains("no-answer")));
}

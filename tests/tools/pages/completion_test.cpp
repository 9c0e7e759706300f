// The completion of the shells, as it is installed.
#include "pages_support.h"
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

const std::string gsCompletion = VX_PREFIX "/share/bash-completion/completions/vxcam";
const std::string gsZshFolder = VX_PREFIX "/share/zsh/site-functions";
const std::string gsFishCompletion = VX_PREFIX "/share/fish/vendor_completions.d/vxcam.fish";

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

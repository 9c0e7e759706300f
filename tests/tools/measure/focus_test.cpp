// The focus loop, with the simulated camera in and out of focus.
#include "graph.h"
#include "tcSimServer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::vector<std::string> gaLook{
    "focus", "sim", "-e", "2s", "--sim-sensor", "400x300", "--sim-time-scale", "100"};

std::vector<std::string> Look(const std::vector<std::string>& more)
{
    std::vector<std::string> words = gaLook;
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

} // namespace

TEST(Graph, HasAColumnForEachValueAndGapsForNone)
{
    EXPECT_THAT(GraphLines({4, 0, 2, 3}, 40, 3),
                ElementsAre("   4.00 |*   ", "        |   *", "   2.00 |  * "));
    EXPECT_THAT(GraphLines({9, 9, 4, 2}, 11, 2), ElementsAre("   4.00 |* ", "   2.00 | *"));
    EXPECT_TRUE(GraphLines({0, 0}, 40, 3).empty());
}

TEST(Focus, TellsOfEachFrameInALine)
{
    tcRun run(Look({"--frames", "3"}));
    ASSERT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(run.Errors(), "");
    EXPECT_EQ(Lines(run.Output()), 3);
    EXPECT_THAT(run.Output(), HasSubstr("frame 3: HFD "));
}

TEST(Focus, DrawsAGraphOnATerminalThatTakesOne)
{
    for (const char* const terminal : {"xterm", "dumb"}) {
        tcRun::tsHow how;
        how.terminal = true;
        how.environment = {{"TERM", terminal}};
        tcRun run(Look({"--frames", "2"}), how);
        ASSERT_EQ(run.Exit(), 0);
        EXPECT_EQ(Lines(run.Output()), 2);
        if (terminal == std::string("dumb")) {
            EXPECT_EQ(run.Terminal(), "");
        } else {
            EXPECT_THAT(run.Terminal(), HasSubstr("HFD"));
            EXPECT_THAT(run.Terminal(), HasSubstr("|*"));
        }
    }
}

TEST(Focus, StarsOutOfFocusAreWider)
{
    std::vector<double> widths;
    for (const double defocus : {0.0, 3.0}) {
        tsSimOptions options;
        options.columns = 400;
        options.rows = 300;
        options.timeScale = 100;
        options.defocus = defocus;
        tcSimServer camera(options);
        tcRun run({"focus", "127.0.0.1:" + std::to_string(camera.Start()), "-e", "5s", "-n", "1",
                   "--json"});
        ASSERT_EQ(run.Exit(), 0) << run.Errors();
        EXPECT_EQ(run.Document()["frame"], 1);
        EXPECT_EQ(run.Document()["best_hfd"], run.Document()["hfd"]);
        widths.push_back(run.Document()["hfd"].get<double>());
    }
    EXPECT_GT(widths[1], widths[0] + 1);
}

TEST(Focus, EndsAsItsCameraDoes)
{
    EXPECT_EQ(tcRun({"focus", "127.0.0.1:1"}).Exit(), 2);
    EXPECT_EQ(tcRun({"focus", "--nonsense"}).Exit(), 1);
    EXPECT_EQ(tcRun({"focus", "--sim-sensor", "64x64", "--area", "60,0,8,8"}).Exit(), 1);
}

// Recordings of the wire, played back by the program to itself.
#include "../../wire/tcByteLink.h"
#include "tool_support.h"
#include "wire_support.h"

#include <gmock/gmock.h>

#include <memory>

using testing::HasSubstr;

namespace {

// A replay that runs, and where.
class tcPlayer
{
public:
    explicit tcPlayer(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "replay");
        mpRun = std::make_unique<tcRun>(arguments);
        const std::string label = " at ";
        EXPECT_TRUE(WaitUntil([&] { return Lines(mpRun->Output()) > 0; }));
        const std::string line = mpRun->Output();
        const size_t at = line.find(label) + label.size();
        msTarget = line.substr(at, line.find('\n') - at);
    }
    const std::string& Target() const { return msTarget; }
    tcRun& Run() { return *mpRun; }

private:
    std::unique_ptr<tcRun> mpRun;
    std::string msTarget;
};

} // namespace

TEST(Replaying, GivesTheFrameThatWasRecorded)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw");
    const std::vector<std::string> grab{"-e", "20ms", "--frames", "2", "--json", "-o"};
    std::vector<std::string> first{"capture", "sim?sensor=64x32", "-o", file, "grab"};
    first.insert(first.end(), grab.begin(), grab.end());
    first.push_back(folder.Path("first-%d.fits"));
    tcRun recorded(first);
    ASSERT_EQ(recorded.Exit(), 0) << recorded.Errors();
    for (const char* speed : {"1", "max"}) {
        tcPlayer player({file, "--speed", speed});
        std::vector<std::string> second{"grab", player.Target(), "--force"};
        second.insert(second.end(), grab.begin(), grab.end());
        second.push_back(folder.Path("second-%d.fits"));
        tcRun played(second);
        EXPECT_EQ(played.Exit(), 0) << speed << played.Errors();
        for (int i = 0; i < 2; ++i) {
            const auto sumOf = [i](tcRun& run) { return run.Document()["frames"][i]["sum"]; };
            EXPECT_TRUE(sumOf(recorded).is_number());
            EXPECT_EQ(sumOf(recorded), sumOf(played)) << speed << " " << i;
        }
        EXPECT_EQ(player.Run().Exit(), 0) << player.Run().Errors();
        EXPECT_THAT(player.Run().Output(), HasSubstr(" messages sent, "));
    }
}

TEST(Replaying, TellsWhatIsMissingOfADamagedRecording)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw");
    MakeFile(file,
             wireHead() + wireBlock(0, 0, 0, wireRecord(2, 1, wireMessage(0x60, low(5, 4))), 1));
    const auto play = [](tcPlayer& player) {
        const std::string port = player.Target().substr(player.Target().find(':') + 1);
        tcByteLink link = tcByteLink::Connect(static_cast<unsigned short>(std::stoi(port)));
        EXPECT_EQ(link.Read().Id, 0x60u);
    };
    tcPlayer player({file});
    play(player);
    EXPECT_EQ(player.Run().Exit(), 4);
    EXPECT_THAT(player.Run().Errors(), HasSubstr("run.vxw: 1 block is whole; it was not ended\n"));
    tcPlayer loop({file, "--loop"});
    play(loop);
    play(loop);
    EXPECT_TRUE(WaitUntil([&] { return Lines(loop.Run().Output()) == 3; }));
    loop.Run().Signal(SIGINT);
    EXPECT_EQ(loop.Run().Exit(), 130);
    EXPECT_THAT(loop.Run().Errors(), HasSubstr("1 block is whole; it was not ended\n"));
}

TEST(Replaying, RefusesRecordingsInWhichNothingHappens)
{
    tcFolder folder;
    const std::string file = folder.Path("run.vxw");
    for (const std::string& recording : {wireHead(), wireHead() + wireEnd(0)}) {
        MakeFile(file, recording);
        tcRun run({"replay", file, "--loop"});
        EXPECT_EQ(run.Exit(), 5);
        EXPECT_EQ(run.Output(), "");
        EXPECT_THAT(run.Errors(), HasSubstr("run.vxw: has nothing to play: "));
    }
}

TEST(Replaying, RefusesWhatCannotBe)
{
    tcFolder folder;
    MakeFile(folder.Path("none.vxw"), "SIMPLE  = T");
    tcRun none({"replay", folder.Path("none.vxw")});
    EXPECT_EQ(none.Exit(), 5);
    tcRun speed({"replay", folder.Path("none.vxw"), "--speed", "soon"});
    EXPECT_EQ(speed.Exit(), 1);
    EXPECT_THAT(speed.Errors(), HasSubstr("speed 'soon'"));
    const std::string file = folder.Path("run.vxw");
    MakeFile(file, wireHead() +
                       wireBlock(0, 0, 0, wireRecord(2, 1, wireMessage(0x60, low(5, 4))), 1) +
                       wireEnd(1));
    const tcPlayer player({file});
    const std::string port = player.Target().substr(player.Target().find(':') + 1);
    tcRun taken({"replay", file, "--port", port});
    EXPECT_EQ(taken.Exit(), 2);
    EXPECT_EQ(taken.Errors(), "vxcam: port " + port + ": Address already in use\n");
}

TEST(Replays, GiveWhatIsWrittenBesideThem)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VX_REPLAYS)) {
        if (entry.path().extension() != ".vxw") continue;
        ++count;
        std::ifstream told(std::filesystem::path(entry.path()).replace_extension(".txt"));
        std::string command, code, word, output;
        std::getline(told, command);
        std::getline(told, code);
        for (std::string line; std::getline(told, line);) {
            output += line + "\n";
        }
        tcPlayer player({entry.path().string(), "--speed", "max"});
        std::vector<std::string> arguments;
        std::istringstream words(command);
        while (words >> word) {
            arguments.push_back(word == "TARGET" ? player.Target() : word);
        }
        tcRun run(arguments);
        EXPECT_EQ(std::to_string(run.Exit()), code) << entry.path() << run.Errors();
        EXPECT_EQ(run.Output(), output) << entry.path();
    }
    EXPECT_GE(count, 1);
}

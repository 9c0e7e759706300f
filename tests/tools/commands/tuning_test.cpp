// The simulated camera while it is being looked into: vxcamsim as a process with debug services.
#include "service_support.h"

using testing::HasSubstr;

namespace {

class SimulatedCamera : public testing::Test
{
protected:
    SimulatedCamera()
        : mtRun({"--sensor", "64x48", "--heartbeat", "0.05", "--time-scale", "1000", "--item-port",
                 std::to_string(mnItemPort), "--quiet"},
                How())
    {
        EXPECT_TRUE(WaitUntil([this] { return Lines(mtRun.Output()) > 0; })) << mtRun.Errors();
        msCamera = "127.0.0.1:" + mtRun.Output().substr(mtRun.Output().rfind(':') + 1);
        msCamera.pop_back();
        EXPECT_TRUE(WaitUntil([this] { return tcRun({"items", msItems, "list"}).Exit() == 0; }));
    }

    // Statistics of a frame.
    nlohmann::json Frame(const char* exposure)
    {
        const auto document =
            nlohmann::json::parse(Printed({"grab", msCamera, "-e", exposure, "--json", "--force",
                                           "-o", mtFolder.Path("frame.fits")}));
        return document["frames"][0];
    }
    void Set(const char* name, const char* value)
    {
        EXPECT_EQ(Printed({"items", msItems, "set", name, value, "-q"}), "");
    }

    static tcRun::tsHow How()
    {
        tcRun::tsHow how;
        how.program = VXCAMSIM_PROGRAM;
        return how;
    }

    const uint16_t mnItemPort = FreeTcpPort();
    const std::string msItems = "127.0.0.1:" + std::to_string(mnItemPort);
    tcFolder mtFolder;
    tcRun mtRun;
    std::string msCamera;
};

} // namespace

TEST_F(SimulatedCamera, ShowsInTheNextFrameWhatIsChangedOverTheNetwork)
{
    Set("read_noise", "0");
    auto frame = Frame("0");
    EXPECT_EQ(frame["min"], 1000);
    EXPECT_EQ(frame["max"], 1000);
    Set("read_noise", "200");
    frame = Frame("0");
    EXPECT_GT(frame["max"].get<int>() - frame["min"].get<int>(), 800);
    Set("read_noise", "0");
    Set("stars", "0");
    const double empty = Frame("1s")["mean"];
    Set("stars", "500");
    EXPECT_GT(Frame("1s")["mean"].get<double>(), empty + 100);
}

TEST_F(SimulatedCamera, PutsImpossibleValuesBack)
{
    ExpectPutBack({"items", msItems, "set", "hot_pixels", "7"},
                  "vxcam: the process does not take 7: hot_pixels is 1\n");
    ExpectPutBack({"items", msItems, "set", "sky", "-1"}, "sky is 0.000000\n");
}

TEST(SimProgramServices, AreOffUnlessAskedFor)
{
    tcRun::tsHow how;
    how.program = VXCAMSIM_PROGRAM;
    tcUdpPort announcements;
    how.environment = {{"DBGD_ANNOUCE_GROUP", "127.0.0.1:" + std::to_string(announcements.Port())}};
    tcRun run({"--sensor", "8x8"}, how);
    EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 0; }));
    ExpectFailure({"items", "127.0.0.1", "list"}, 2, "Connection refused");
    ExpectFailure({"log", "127.0.0.1", "list"}, 2, "Connection refused");
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Exit(), 0);
}

// Ports that others have do not keep the camera from working.
TEST(SimProgramServices, MayFailWithoutHarm)
{
    tcFixedService other("", false);
    const std::string port = other.Target().substr(other.Target().rfind(':') + 1);
    tcRun::tsHow how;
    how.program = VXCAMSIM_PROGRAM;
    tcRun run({"--sensor", "8x8", "--heartbeat", "0.05", "--item-port", port, "--debug-port", port},
              how);
    EXPECT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 0; }));
    const std::string camera = run.Output().substr(run.Output().find("127.0.0.1:"));
    EXPECT_THAT(Printed({"ping", camera.substr(0, camera.find('\n')), "-n", "1"}),
                HasSubstr("1 round trips"));
    run.Signal(SIGTERM);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Errors(), HasSubstr("Cannot bind input port"));
    EXPECT_THAT(run.Errors(), HasSubstr("Error creating socket on port " + port));
}

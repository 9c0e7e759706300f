// Pictures taken by the program, from end to end.
#include "grab_support.h"
#include "tcSimServer.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST(Grab, WritesOneFrameWithoutAnyOption)
{
    tcFolder folder;
    tcRun run({"grab"}, In(folder));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_THAT(run.Output(), HasSubstr("frame.fits: 2048 x 2048 pixels, 1 s at 20.0 C"));
    EXPECT_THAT(run.Output(), HasSubstr("the camera's own sum is the same"));
    EXPECT_THAT(folder.Names(), ElementsAre("frame.fits"));
    ExpectVerified(folder.Path("frame.fits"));
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.columns, 2048);
    EXPECT_EQ(content.rows, 2048);
    EXPECT_EQ(content.type, USHORT_IMG);
    EXPECT_EQ(content.keys.at("EXPTIME"), "1.000000");
    EXPECT_EQ(content.keys.at("CCD-TEMP"), "20.0");
    EXPECT_EQ(content.keys.at("INSTRUME"), "simulated camera");
}

TEST(Grab, SumsOfFileDocumentAndCameraAreEqual)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "20ms", "--sim-sensor", "300x200", "--json", "--preview", "f.png"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0);
    const nlohmann::json document = run.Document();
    const nlohmann::json& frame = document["frames"][0];
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_GT(content.sum, 0u);
    EXPECT_EQ(frame["sum"], content.sum);
    EXPECT_EQ(frame["sim_sum"], content.sum);
    EXPECT_EQ(document["sum"], content.sum);
    EXPECT_EQ(document["sim_sum"], content.sum);
    EXPECT_DOUBLE_EQ(frame["mean"], static_cast<double>(content.sum) / (300 * 200));
    EXPECT_LE(frame["min"], frame["mean"]);
    EXPECT_GE(frame["max"], frame["mean"]);
    EXPECT_EQ(frame["temperature_c"], 20.0);
    EXPECT_EQ(frame["packets"], 200);
    EXPECT_EQ(frame["packets_missing"], 0);
    EXPECT_EQ(document["exposure_s"], 0.02);
    EXPECT_EQ(document["files"], nlohmann::json::array({"frame.fits"}));
    EXPECT_EQ(frame["date_obs"], content.keys.at("DATE-OBS"));
    EXPECT_GE(document["timing_s"]["total"], 0.02);
    EXPECT_EQ(FileText(folder.Path("f.png")).substr(1, 3), "PNG");
}

TEST(Grab, ExposureBeginsWhenItSays)
{
    tcFolder folder;
    const auto before = std::chrono::system_clock::now();
    tcRun run({"grab", "-e", "300ms", "--sim-sensor", "64x64", "--json"}, In(folder));
    EXPECT_EQ(run.Exit(), 0);
    const auto after = std::chrono::system_clock::now() - std::chrono::milliseconds(300);
    const std::string date = run.Document()["frames"][0]["date_obs"];
    std::tm utc{};
    ASSERT_NE(strptime(date.c_str(), "%Y-%m-%dT%H:%M:%S", &utc), nullptr) << date;
    EXPECT_GE(timegm(&utc), std::chrono::system_clock::to_time_t(before));
    EXPECT_LE(timegm(&utc), std::chrono::system_clock::to_time_t(after));
}

TEST(Grab, OnlyTheAreaIsWritten)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "100x80", "--area", "90,70,10,10", "--json"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    ExpectVerified(folder.Path("frame.fits"));
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.columns, 10);
    EXPECT_EQ(content.rows, 10);
    EXPECT_EQ(content.keys.at("XORGSUBF"), "90");
    EXPECT_EQ(content.keys.at("YORGSUBF"), "70");
    EXPECT_EQ(run.Document()["sim_sum"], content.sum);
    EXPECT_THAT(run.Document()["frames"][0]["area"], ElementsAre(90, 70, 10, 10));
}

TEST(Grab, SensorsTooWideForOnePacketARowAreWhole)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "9000x64", "--json"}, In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.columns, 9000);
    EXPECT_EQ(content.rows, 64);
    EXPECT_EQ(run.Document()["sim_sum"], content.sum);
}

TEST(Grab, TargetsSayWhatTheSimulatedCameraIsLike)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "sim?sensor=100x80&fault=missing-packet:packet=20"},
              In(folder));
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_THAT(run.Errors(), HasSubstr("1 of 80 packets are missing"));
    EXPECT_EQ(ReadFits(folder.Path("frame.fits")).columns, 100);
}

TEST(Grab, BinnedFramesHave32Bits)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "200x100", "--binned", "--json"}, In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    ExpectVerified(folder.Path("frame.fits"));
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.type, LONG_IMG);
    EXPECT_EQ(content.columns, 100);
    EXPECT_EQ(content.rows, 50);
    EXPECT_EQ(content.keys.at("XBINNING"), "2");
    EXPECT_EQ(run.Document()["sim_sum"], content.sum);
    EXPECT_EQ(run.Document()["frames"][0]["bits"], 32);
}

TEST(Grab, BinnedRowsInSeveralPacketsAreWhole)
{
    tcFolder folder;
    tcRun run(
        {"grab", "-e", "1ms", "--sim-sensor", "9000x60", "--binned", "--frames", "2", "--json"},
        In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    for (const char* name : {"frame-0001.fits", "frame-0002.fits"}) {
        EXPECT_EQ(ReadFits(folder.Path(name)).columns, 4500);
        EXPECT_EQ(ReadFits(folder.Path(name)).rows, 30);
    }
    EXPECT_EQ(run.Document()["sim_sum"], run.Document()["sum"]);
}

TEST(Grab, SeveralFramesFollowThePattern)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "64x64", "--frames", "3", "-o", "n%02d.fits",
               "--preview", "p.png", "--json"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(folder.Names(), ElementsAre("n01.fits", "n02.fits", "n03.fits", "p-0001.png",
                                            "p-0002.png", "p-0003.png"));
    const nlohmann::json document = run.Document();
    for (int i = 0; i < 3; ++i) {
        const nlohmann::json& frame = document["frames"][i];
        const tsContent content = ReadFits(folder.Path(frame["file"]));
        EXPECT_EQ(frame["frame"], i + 1);
        EXPECT_EQ(content.keys.at("FRAMENO"), std::to_string(i + 1));
        EXPECT_EQ(content.keys.at("NFRAMES"), "3");
        EXPECT_EQ(frame["sum"], content.sum);
        EXPECT_EQ(frame["sim_sum"], content.sum);
    }
    EXPECT_NE(document["frames"][0]["sum"], document["frames"][1]["sum"]);
}

TEST(Grab, ManyFramesLoseNothing)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "0", "--sim-sensor", "256x128", "--frames", "60", "--json"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(folder.Names().size(), 60u);
    const nlohmann::json document = run.Document();
    for (const nlohmann::json& frame : document["frames"]) {
        EXPECT_EQ(frame["sum"], frame["sim_sum"]);
    }
}

TEST(Grab, SameSeedSameFrame)
{
    tcFolder folder;
    std::vector<uint64_t> sums;
    for (const char* seed : {"5", "5", "6"}) {
        tcRun run(
            {"grab", "-e", "1ms", "--sim-sensor", "64x64", "--sim-seed", seed, "--force", "--json"},
            In(folder));
        EXPECT_EQ(run.Exit(), 0);
        sums.push_back(run.Document()["sum"]);
    }
    EXPECT_EQ(sums[0], sums[1]);
    EXPECT_NE(sums[0], sums[2]);
}

TEST(Grab, ForceReplacesFiles)
{
    tcFolder folder;
    MakeFile(folder.Path("frame.fits"), "before");
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "64x64", "--force"}, In(folder));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(folder.Names(), ElementsAre("frame.fits"));
    EXPECT_EQ(ReadFits(folder.Path("frame.fits")).columns, 64);
}

TEST(Grab, WaitsUntilTheSensorIsCold)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "64x64", "--target-temp", "-20.5",
               "--wait-cool", "--sim-time-scale", "2000", "--json"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_NEAR(run.Document()["frames"][0]["temperature_c"], -20.5, 0.5);
    EXPECT_EQ(run.Document()["target_temperature_c"], -20.5);
    EXPECT_EQ(ReadFits(folder.Path("frame.fits")).keys.at("SET-TEMP"), "-20.5");
}

TEST(Grab, TellsTheCameraTheTenthsThatAreAskedFor)
{
    constexpr uint32_t setTarget = 0x4D, readArea = 0x36;
    for (const auto& [asked, tenths] :
         {std::pair("-19.9", -199), {"20.1", 201}, {"-19.97", -200}}) {
        tcFolder folder;
        tcActor camera(AnswersWithSettings());
        tcRun run({"grab", camera.Target(), "--target-temp", asked}, In(folder));
        ASSERT_TRUE(WaitUntil([&] { return camera.Saw(readArea); }));
        EXPECT_EQ(camera.Payload(setTarget), LittleEndian(static_cast<uint32_t>(tenths), 4));
        run.Signal(SIGTERM);
        EXPECT_EQ(run.Exit(), 128 + SIGTERM);
    }
}

TEST(Grab, ExposureFollowsTheSimulatedClock)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1min", "--sim-sensor", "64x64", "--sim-time-scale", "600", "--json"},
              In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(ReadFits(folder.Path("frame.fits")).keys.at("EXPTIME"), "60.000000");
    EXPECT_GE(run.Document()["timing_s"]["expose_and_read"], 0.1);
    EXPECT_LT(run.Document()["timing_s"]["expose_and_read"], 30.0);
}

TEST(Grab, QuietPrintsNothing)
{
    tcFolder folder;
    tcRun run({"grab", "-e", "1ms", "--sim-sensor", "64x64", "-q"}, In(folder));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output() + run.Errors(), "");
}

TEST(Grab, ProgressIsDrawnOnATerminalAndWiped)
{
    tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.terminal = true;
    tcRun run({"grab", "-e", "500ms", "--sim-sensor", "64x64"}, how);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Terminal(), HasSubstr("exposing ["));
    EXPECT_THAT(run.Terminal(), HasSubstr(" of 500 ms"));
    EXPECT_THAT(run.Terminal(), testing::EndsWith("\r\x1b[K"));
    EXPECT_THAT(run.Output(), Not(HasSubstr("\x1b")));
}

TEST(Grab, DumbTerminalsGetNoEscapes)
{
    tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.terminal = true;
    how.environment = {{"TERM", "dumb"}};
    tcRun run({"grab", "-e", "200ms", "--sim-sensor", "64x64"}, how);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Terminal(), "");
}

TEST(Grab, QuietDrawsNoProgress)
{
    tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.terminal = true;
    tcRun run({"grab", "-e", "200ms", "--sim-sensor", "64x64", "-q"}, how);
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Terminal(), "");
}

TEST(Grab, TakesFramesFromACameraOnTheNetwork)
{
    tcFolder folder;
    tsSimOptions options;
    options.columns = 120;
    options.rows = 90;
    options.heartbeatSeconds = 0.05;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun run({"grab", target, "-e", "30ms", "--json", "--instrument", "my camera"}, In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.keys.at("INSTRUME"), "my camera");
    ASSERT_EQ(camera.Frames().size(), 1u);
    EXPECT_EQ(camera.Frames()[0].pixelSum, content.sum);
    EXPECT_EQ(run.Document()["target"], target);
    EXPECT_FALSE(run.Document().contains("sim_sum"));
    EXPECT_TRUE(WaitUntil([&] { return !camera.Statistics().connected; }));
}

TEST(Grab, FramesWithoutSomePacketsAreWrittenAndAreAFailure)
{
    tcFolder folder;
    tsSimOptions options;
    options.columns = 120;
    options.rows = 90;
    options.heartbeatSeconds = 0.05;
    options.faults = {ParseSimFault("missing-packet:frame=2,packet=7"),
                      ParseSimFault("missing-packet:frame=2,packet=60")};
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun run({"grab", target, "-e", "1ms", "--frames", "3"}, In(folder));
    const std::string missing = "incomplete: 2 of 90 packets are missing";
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_EQ(run.Errors(), "vxcam: frame-0002.fits: the frame is " + missing + "\n");
    EXPECT_THAT(run.Output(), HasSubstr(missing));
    EXPECT_THAT(folder.Names(),
                ElementsAre("frame-0001.fits", "frame-0002.fits", "frame-0003.fits"));
    EXPECT_EQ(ReadFits(folder.Path("frame-0002.fits")).rows, 90);
}

TEST(Grab, FramesWithoutSomePacketsMayBeAllowed)
{
    tcFolder folder;
    for (bool allowed : {false, true}) {
        tsSimOptions options;
        options.columns = 120;
        options.rows = 90;
        options.heartbeatSeconds = 0.05;
        options.faults = {ParseSimFault("missing-packet:packet=7")};
        tcSimServer camera(options);
        const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
        std::vector<std::string> arguments = {"grab", target, "-e", "1ms", "--force", "--json"};
        if (allowed) arguments.emplace_back("--allow-incomplete");
        tcRun run(arguments, In(folder));
        EXPECT_EQ(run.Exit(), allowed ? 0 : 4) << run.Errors();
        const nlohmann::json document = run.Document();
        EXPECT_EQ(document["frames"][0]["packets"], 90);
        EXPECT_EQ(document["frames"][0]["packets_missing"], 1);
        EXPECT_EQ(document.contains("error"), !allowed);
        ExpectVerified(folder.Path("frame.fits"));
    }
}

TEST(Grab, CameraInUseIsNoCamera)
{
    tcFolder folder;
    tcSimServer camera(tsSimOptions{});
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun first({"grab", target, "-e", "20s", "-o", "first.fits"}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return camera.Statistics().connected; }));
    tcRun second({"ping", target}, In(folder));
    EXPECT_EQ(second.Exit(), 2);
    first.Signal(SIGINT);
    EXPECT_EQ(first.Exit(), 130);
}

TEST(Grab, CtrlCAbortsTheReadoutInTheCamera)
{
    tcFolder folder;
    tsSimOptions options;
    options.columns = options.rows = 256;
    options.lineRate = 100; // the frame takes 2.5 s
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun run({"grab", target, "-e", "1ms"}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return camera.Statistics().bytesSent > 20000; }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_TRUE(WaitUntil([&] { return camera.Statistics().framesAborted == 1; }));
    EXPECT_THAT(folder.Names(), ElementsAre());
}

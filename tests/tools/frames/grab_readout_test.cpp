// Readouts that are not all as they should be, and cameras that are set somehow.
#include "grab_support.h"
#include "tcSimServer.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// A simulated camera of 120 x 90 pixels for several runs of the program.
class GrabFrom : public testing::Test
{
protected:
    void Start(const std::vector<std::string>& faults = {})
    {
        tsSimOptions options;
        options.columns = 120;
        options.rows = 90;
        options.heartbeatSeconds = 0.05;
        for (const std::string& fault : faults) {
            options.faults.push_back(ParseSimFault(fault));
        }
        camera = std::make_unique<tcSimServer>(options);
        target = "127.0.0.1:" + std::to_string(camera->Start());
    }
    void Set(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"set", target});
        tcRun run(words);
        EXPECT_EQ(run.Exit(), 0) << run.Errors();
    }
    std::string Get(const std::string& name) const
    {
        tcRun run({"get", target, name});
        EXPECT_EQ(run.Exit(), 0) << run.Errors();
        return run.Output();
    }
    // A run that ends with this code, and its document.
    nlohmann::json Grab(std::vector<std::string> words, int code = 0)
    {
        words.insert(words.begin(), {"grab", target, "--json", "--force"});
        tcRun run(words, In(folder));
        EXPECT_EQ(run.Exit(), code) << run.Errors();
        errors = run.Errors();
        return run.Document();
    }
    tsContent Content() const { return ReadFits(folder.Path("frame.fits")); }

    tcFolder folder;
    std::unique_ptr<tcSimServer> camera;
    std::string target, errors;
};

// Seconds since 1970 of "2026-01-31T23:59:59.123456".
double SecondsOf(const std::string& date)
{
    std::tm utc{};
    const char* const rest = strptime(date.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    EXPECT_NE(rest, nullptr) << date;
    return rest == nullptr ? 0 : static_cast<double>(timegm(&utc)) + std::atof(rest);
}

} // namespace

TEST_F(GrabFrom, BinsAsTheCameraIsSetToUnlessToldOtherwise)
{
    Start();
    const auto sizeWith = [this](const std::vector<std::string>& words) {
        Grab(words);
        const tsContent content = Content();
        return std::to_string(content.columns) + "x" + std::to_string(content.rows) + " bins of " +
               content.keys.at("XBINNING");
    };
    Set({"exposure=10ms", "simple-binning=2,3"});
    EXPECT_EQ(sizeWith({}), "40x45 bins of 3");
    EXPECT_EQ(sizeWith({"--binned"}), "40x45 bins of 3");
    EXPECT_EQ(sizeWith({"--binning", "1"}), "120x90 bins of 1");
    EXPECT_EQ(sizeWith({"--bits", "16"}), "120x90 bins of 1");
    EXPECT_EQ(sizeWith({"--area", "0,0,60,40"}), "60x40 bins of 1");
    EXPECT_EQ(sizeWith({"--binning", "5,1"}), "24x90 bins of 5");
    EXPECT_EQ(sizeWith({"--binning", "10"}), "12x9 bins of 10");
    EXPECT_THAT(Get("simple-binning"), HasSubstr("=2,3,"));
    Set({"simple-binning=1,1"});
    EXPECT_EQ(sizeWith({}), "120x90 bins of 1");
}

TEST(Grab, WritesTheNameOfTheCameraAsFarAsAsciiGoes)
{
    tsSimOptions options;
    options.columns = options.rows = 16;
    options.name = "Überkamera";
    options.serial = 1207;
    tcSimServer camera(options);
    tcFolder folder;
    tcRun run({"grab", "127.0.0.1:" + std::to_string(camera.Start()), "-e", "1ms"}, In(folder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Errors(), HasSubstr("INSTRUME: 'Überkamera' is written as 'Ueberkamera'"));
    const tsContent content = ReadFits(folder.Path("frame.fits"));
    EXPECT_EQ(content.keys.at("INSTRUME"), "Ueberkamera");
    EXPECT_THAT(FileText(folder.Path("frame.fits")), HasSubstr("SERIAL  = '1207"));
    ExpectVerified(folder.Path("frame.fits"));
}

TEST(Grab, RefusesBinsBesideWhatIsNotBinned)
{
    const std::vector<std::vector<std::string>> wrong = {{"--binning", "2", "--bits", "16"},
                                                         {"--binning", "2", "--area", "0,0,8,8"},
                                                         {"--binning", "2", "--mask-binned"},
                                                         {"--binning", "0"},
                                                         {"--binning", "2,2,2"},
                                                         {"--binning", "2x2"}};
    for (std::vector<std::string> words : wrong) {
        words.insert(words.begin(), {"grab", "sim"});
        tcRun run(words);
        EXPECT_EQ(run.Exit(), 1) << testing::PrintToString(words);
        EXPECT_THAT(run.Errors(), HasSubstr("binning"));
    }
}

TEST_F(GrabFrom, TimesAreTrueWithAnImageInterval)
{
    Start();
    Set({"image-interval=400ms"});
    const nlohmann::json frames = Grab({"-e", "10ms", "--frames", "3"})["frames"];
    const std::vector<tsSimFrame> truth = camera->Frames();
    ASSERT_EQ(frames.size(), 3u);
    ASSERT_EQ(truth.size(), 3u);
    double least = 1;
    for (size_t i = 0; i < 3; ++i) {
        const double begin = static_cast<double>(truth[i].begin.realtime) * 1e-9;
        const double end = static_cast<double>(truth[i].end.realtime) * 1e-9;
        const double allowed = frames[i]["times"]["uncertainty_s"].get<double>() + 2e-6;
        least = std::min(least, allowed);
        EXPECT_NEAR(SecondsOf(frames[i]["date_obs"]), begin, allowed) << i;
        EXPECT_NEAR(SecondsOf(frames[i]["times"]["end"]), end, allowed) << i;
    }
    EXPECT_LT(least, 0.1);
    EXPECT_EQ(frames[1]["times"]["how"], "interval");
    EXPECT_EQ(frames[0]["date_obs"], ReadFits(folder.Path("frame-0001.fits")).keys.at("DATE-OBS"));
}

TEST_F(GrabFrom, ImageIntervalsAreNoSilence)
{
    Start();
    Set({"image-interval=800ms"});
    const nlohmann::json document = Grab({"-e", "1ms", "--frames", "2", "--timeout", "300ms"});
    EXPECT_EQ(document["files"].size(), 2u);
}

TEST_F(GrabFrom, FilesSayWhatIsMissing)
{
    Start({"missing-packet:packet=7"});
    const nlohmann::json frame = Grab({"-e", "1ms", "--allow-incomplete"})["frames"][0];
    EXPECT_EQ(frame["complete"], false);
    EXPECT_EQ(frame["missing_rows"], "6");
    const tsContent content = Content();
    EXPECT_EQ(content.keys.at("COMPLETE"), "F");
    EXPECT_EQ(content.keys.at("NMISSING"), "1");
    EXPECT_EQ(content.keys.at("MISSROWS"), "6");
    Start();
    Grab({"-e", "1ms"});
    EXPECT_EQ(Content().keys.at("COMPLETE"), "T");
    EXPECT_EQ(Content().keys.at("MISSROWS"), "absent");
}

TEST_F(GrabFrom, PacketsOutsideTheImageAreAFailure)
{
    Start({"outside:packet=3,row=5000"});
    const nlohmann::json document = Grab({"-e", "1ms"}, 4);
    EXPECT_THAT(errors, HasSubstr("1 packet lies outside the image\n"));
    EXPECT_EQ(document["frames"][0]["packets_misplaced"], 1);
    EXPECT_EQ(Content().keys.at("COMPLETE"), "F");
}

TEST_F(GrabFrom, CameraErrorsWhileItReadsOutAreAFailure)
{
    Start({"error-storm:readout=1,frame=2,packet=1,count=3,code=9,subcode=4"});
    const nlohmann::json document = Grab({"-e", "50ms", "--frames", "3"}, 4);
    EXPECT_THAT(errors, HasSubstr("vxcam: the camera reports error 9-4: "));
    EXPECT_EQ(Lines(errors), 1);
    EXPECT_GE(document["files"].size(), 1u);
}

TEST_F(GrabFrom, WhatIsNotGivenIsWhatTheCameraIsSetTo)
{
    Start();
    Set({"exposure=30ms", "area-regions=10,5,20,4/60,50,8,10"});
    const nlohmann::json frame = Grab({})["frames"][0];
    EXPECT_EQ(camera->Frames().back().exposure, 0.03);
    EXPECT_EQ(frame["regions"].size(), 2u);
    EXPECT_THAT(frame["area"], ElementsAre(10, 5, 58, 55));
    EXPECT_EQ(frame["sum"], camera->Frames().back().pixelSum);
    EXPECT_EQ(Content().rows, 4 + 10);
    EXPECT_EQ(Content().columns, 20);
}

TEST_F(GrabFrom, WhatIsGivenHoldsForOneRun)
{
    Start();
    Set({"exposure=30ms", "area-regions=10,5,20,4/60,50,8,10"});
    const nlohmann::json frame = Grab({"-e", "7ms", "--area", "1,2,30,20"})["frames"][0];
    EXPECT_THAT(frame["area"], ElementsAre(1, 2, 30, 20));
    EXPECT_FALSE(frame.contains("regions"));
    EXPECT_EQ(camera->Frames().back().exposure, 0.007);
    EXPECT_EQ(Get("exposure"), "exposure=30ms\n");
    EXPECT_EQ(Get("area-regions"), "area-regions=10,5,20,4/60,50,8,10\n");
}

TEST_F(GrabFrom, SeveralAreasAreReadAsOneFrame)
{
    Start();
    const nlohmann::json frame = Grab({"-e", "1ms", "--area", "0,0,9,3/100,80,20,10"})["frames"][0];
    EXPECT_THAT(frame["area"], ElementsAre(0, 0, 120, 90));
    EXPECT_EQ(frame["sum"], camera->Frames().back().pixelSum);
    EXPECT_EQ(Content().sum, frame["sum"]);
    EXPECT_EQ(Get("area-regions"), "area-regions=none\n");
    Grab({"--area", "0,0,9,3/100,80,21,10"}, 1);
    EXPECT_THAT(errors, HasSubstr("reaches beyond the sensor of 120 x 90 pixels"));
}

TEST_F(GrabFrom, EightBitsAreBytesInTheFile)
{
    Start();
    const nlohmann::json frame = Grab({"-e", "1ms", "--bits", "8"})["frames"][0];
    EXPECT_EQ(frame["bits"], 8);
    EXPECT_EQ(frame["packets"], 90);
    EXPECT_GT(frame["sum"], 0);
    EXPECT_EQ(frame["sum"], camera->Frames().back().pixelSum);
    EXPECT_EQ(camera->Frames().back().bits, 8u);
    const tsContent content = Content();
    EXPECT_EQ(content.type, BYTE_IMG);
    EXPECT_EQ(content.columns, 120);
    EXPECT_EQ(content.sum, frame["sum"]);
    ExpectVerified(folder.Path("frame.fits"));
    Grab({"--bits", "12"}, 1);
    Grab({"--bits", "8", "--binned"}, 1);
}

TEST_F(GrabFrom, KindsOfFramesAreInTheHeader)
{
    Start();
    std::map<std::string, uint64_t> sums;
    for (const auto& [option, type] : std::map<std::string, std::string>{
             {"--light", "Light Frame"}, {"--dark", "Dark Frame"}, {"--flat", "Flat Field"}}) {
        Grab({"-e", "2s", option});
        EXPECT_EQ(Content().keys.at("IMAGETYP"), type);
        sums[option] = Content().sum;
    }
    EXPECT_LT(sums["--dark"], sums["--light"]) << "the shutter stays closed";
    Grab({"--bias"});
    EXPECT_EQ(Content().keys.at("IMAGETYP"), "Bias Frame");
    EXPECT_EQ(Content().keys.at("EXPTIME"), "0.000000");
    Grab({"--bias", "--dark"}, 1);
}

TEST_F(GrabFrom, CardsOfTheUserAreInTheHeader)
{
    Start();
    Grab({"-e", "1ms", "--header", "OBSERVER=Anna", "--header", "TELESCOP='7/8'/the large one"});
    EXPECT_EQ(Content().keys.at("OBSERVER"), "Anna");
    EXPECT_EQ(errors, "");
    ExpectVerified(folder.Path("frame.fits"));
    Grab({"--header", "NAXIS=3"}, 1);
    Grab({"--header", "no card"}, 1);
    tcRun warned({"grab", target, "-e", "1ms", "--force", "--header", "OBSERVER=Zo\xC3\xAB"},
                 In(folder));
    EXPECT_EQ(warned.Exit(), 0);
    EXPECT_THAT(warned.Errors(), testing::StartsWith("vxcam: warning: frame.fits: "));
    ExpectVerified(folder.Path("frame.fits"));
}

TEST_F(GrabFrom, WhatHappenedIsWrittenWhenSomethingFails)
{
    Start({"half-open:frame=1,packet=5"});
    Grab({"-e", "1ms", "--timeout", "200ms", "--flight", "flight.jsonl"}, 3);
    const std::string flight = FileText(folder.Path("flight.jsonl"));
    EXPECT_GT(Lines(flight), 3);
    std::istringstream lines(flight);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(nlohmann::json::parse(line).contains("event")) << line;
    }
}

// Each exit code but 0, and what is left behind.
#include "tool_support.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr uint32_t gnReadArea = 0x36;

std::string CameraError(uint8_t code, uint8_t subCode, const std::string& text)
{
    return MessageBytes(0x75, std::string(1, static_cast<char>(code)) + static_cast<char>(subCode) +
                                  text + '\0');
}

// One row of an 8 x 4 frame; all pixels are 5.
std::string Row(uint16_t row, uint16_t total, bool last)
{
    std::string payload(1, '\0');
    payload += last ? '\1' : '\0';
    for (int word : {row + 1, int(total), int(row), 0, 7, 0, 5}) {
        payload += LittleEndian(static_cast<uint64_t>(word), 2);
    }
    for (int column = 0; column < 8; ++column) {
        payload += LittleEndian(5, 2);
    }
    return MessageBytes(0x66, payload);
}

std::string Frame(bool last)
{
    return Row(0, 4, last) + Row(1, 4, last) + Row(2, 4, last) + Row(3, 4, last);
}

void ExpectFailure(tcRun& run, int code, const std::string& text)
{
    EXPECT_EQ(run.Exit(), code);
    EXPECT_THAT(run.Errors(), StartsWith("vxcam: "));
    EXPECT_THAT(run.Errors(), HasSubstr(text));
    EXPECT_EQ(Lines(run.Errors()), 1) << run.Errors();
}

} // namespace

// ---- 1, usage --------------------------------------------------------------------------------

TEST(ExitUsage, AreaBeyondTheSensor)
{
    tcFolder folder;
    tcRun run({"grab", "--sim-sensor", "64x32", "--area", "60,0,5,1"}, In(folder));
    ExpectFailure(run, 1, "area '60,0,5,1': reaches beyond the sensor of 64 x 32 pixels");
    EXPECT_EQ(run.Output(), "");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitUsage, NamesThatSayWhatIsNotInTheFile)
{
    tcFolder folder;
    for (const auto& [name, text] : std::vector<std::pair<const char*, const char*>>{
             {"a.png", "a.png: it would be a FITS file, and no PNG; --preview makes a PNG"},
             {"a.tif", "a.tif: it would be a FITS file, and no TIFF"},
             {"a-%04d.TIFF", "a-%04d.TIFF: it would be a FITS file"},
             {"a.h5", "a.h5: it would be a FITS file, and no HDF5"},
             {"a.jpg", "a.jpg: it would be a FITS file, and no JPEG"},
             {"a.fits.gz", "a.fits.gz: files are not compressed here"},
             {"a.fits.fz", "a.fits.fz: files are not compressed here"}}) {
        tcRun run({"grab", "-o", name, "--sim-sensor", "8x8", "-e", "0"}, In(folder));
        ExpectFailure(run, 1, text);
    }
    tcRun preview({"grab", "--preview", "a.fits", "-o", "b.fits"}, In(folder));
    ExpectFailure(preview, 1, "a.fits: it would be a PNG, and no FITS file");
    tcRun picture({"grab", "--preview", "a.jpg", "-o", "b.fits"}, In(folder));
    ExpectFailure(picture, 1, "a.jpg: it would be a PNG, and no JPEG file");
    EXPECT_THAT(folder.Names(), ElementsAre());
    tcRun other({"grab", "-o", "a.new", "--sim-sensor", "8x8", "-e", "0"}, In(folder));
    EXPECT_EQ(other.Exit(), 0) << "an ending that says nothing";
}

// ---- 2, no camera ----------------------------------------------------------------------------

TEST(ExitNoCamera, ClosedPort)
{
    tcFolder folder;
    tcScriptedCamera camera;
    camera.SwitchOff();
    const std::string target = "127.0.0.1:" + std::to_string(camera.Port());
    for (const char* verb : {"grab", "ping"}) {
        tcRun run({verb, target}, In(folder));
        ExpectFailure(run, 2, "no camera answers at " + target);
    }
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitNoCamera, TheLibrarySaysMoreOnDemand)
{
    tcScriptedCamera camera;
    camera.SwitchOff();
    tcRun run({"ping", "-v", "127.0.0.1:" + std::to_string(camera.Port())});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_THAT(run.Errors(), HasSubstr("could not connect"));
}

// ---- 3, time-out -----------------------------------------------------------------------------

TEST(ExitTimeout, CameraWithoutAnImage)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings());
    tcRun run({"grab", camera.Target(), "-e", "5ms", "--timeout", "200ms", "--json"}, In(folder));
    ExpectFailure(run, 3, "no image: the camera was silent for 205 ms");
    EXPECT_TRUE(camera.Saw(gnReadArea));
    EXPECT_TRUE(WaitUntil([&] { return camera.Saw(0x4C); })); // aborted
    EXPECT_EQ(run.Document()["error"]["exit_code"], 3);
    EXPECT_THAT(run.Document()["files"], IsEmpty());
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitTimeout, CameraThatStopsWithinAFrame)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings({{gnReadArea, Row(0, 4, true) + Row(1, 4, true)}}));
    tcRun run({"grab", camera.Target(), "--timeout", "200ms"}, In(folder));
    ExpectFailure(run, 3, "no image");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitTimeout, WholeFramesBeforeItStay)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings({{gnReadArea, Frame(false) + Row(0, 4, true)}}));
    tcRun run({"grab", camera.Target(), "--timeout", "300ms", "--frames", "2", "--json"},
              In(folder));
    ExpectFailure(run, 3, "no image");
    EXPECT_THAT(folder.Names(), ElementsAre("frame-0001.fits"));
    EXPECT_EQ(run.Document()["sum"], 8 * 4 * 5);
    EXPECT_THAT(run.Document()["files"], ElementsAre("frame-0001.fits"));
}

TEST(ExitTimeout, SensorThatDoesNotGetCold)
{
    tcFolder folder;
    tcRun run({"grab", "--sim-sensor", "64x64", "--target-temp", "-20", "--wait-cool",
               "--cool-timeout", "300ms"},
              In(folder));
    ExpectFailure(run, 3, "target -20.0 C after 300 ms");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

// ---- 4, camera error -------------------------------------------------------------------------

TEST(ExitCameraError, ErrorInsteadOfAnImage)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings({{gnReadArea, CameraError(7, 3, "shutter stuck")}}));
    tcRun run({"grab", camera.Target(), "--json"}, In(folder));
    ExpectFailure(run, 4, "the camera reports error 7-3: shutter stuck");
    EXPECT_TRUE(WaitUntil([&] { return camera.Saw(0x4C); }));
    EXPECT_EQ(run.Document()["error"]["text"], "the camera reports error 7-3: shutter stuck");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitCameraError, SettingThatTheCameraRefuses)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings({{0x20, CameraError(1, 32, "exposure too long")}}));
    tcRun run({"grab", camera.Target(), "-e", "1s"}, In(folder));
    ExpectFailure(run, 4, "exposure too long");
    EXPECT_FALSE(camera.Saw(gnReadArea));
}

TEST(ExitCameraError, MaskReadoutWithoutAMask)
{
    tcFolder folder;
    tcRun run({"grab", "--mask-binned", "--sim-sensor", "64x64"}, In(folder));
    ExpectFailure(run, 4, "no binning mask is set");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitCameraError, CameraWithoutASize)
{
    tcFolder folder;
    tcActor camera({{0x34, HardwareAnswer(65535, 65535)}});
    tcRun run({"grab", camera.Target()}, In(folder));
    ExpectFailure(run, 4, "does not tell the size of its sensor");
}

TEST(ExitCameraError, FrameWithoutASensibleSize)
{
    tcFolder folder;
    std::string row = Row(0, 1, true);
    row[12 + 8] = 7;     // first column
    row[12 + 10] = 6;    // last column
    row.resize(12 + 16); // and no pixels
    row[2] = 16;
    tcActor camera(AnswersWithSettings({{gnReadArea, row}}));
    tcRun run({"grab", camera.Target()}, In(folder));
    ExpectFailure(run, 4, "without a usable size");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitCameraError, PixelsWithoutASensiblePlace)
{
    tcFolder folder;
    std::string row = Row(0, 1, true);
    row[12 + 8] = 7;  // first column
    row[12 + 10] = 6; // last column
    tcActor camera(AnswersWithSettings({{gnReadArea, row}}));
    tcRun run({"grab", camera.Target()}, In(folder));
    ExpectFailure(run, 4, "1 packet is damaged");
}

// ---- 5, file error ---------------------------------------------------------------------------

TEST(ExitFileError, ExistingFilesAreFoundBeforeTheCameraIsAskedFor)
{
    tcFolder folder;
    MakeFile(folder.Path("frame-0002.fits"), "mine");
    tcActor camera;
    tcRun run({"grab", camera.Target(), "--frames", "3"}, In(folder));
    ExpectFailure(run, 5, "frame-0002.fits: exists already");
    EXPECT_FALSE(camera.Saw(0x34));
    EXPECT_EQ(FileText(folder.Path("frame-0002.fits")), "mine");
    EXPECT_THAT(folder.Names(), ElementsAre("frame-0002.fits"));
}

TEST(ExitFileError, ExistingPreviewsAreFound)
{
    tcFolder folder;
    MakeFile(folder.Path("p.png"), "mine");
    tcRun run({"grab", "--preview", "p.png"}, In(folder));
    ExpectFailure(run, 5, "p.png: exists already (--force replaces it)");
}

TEST(ExitFileError, FlightFilesThatCannotBeWritten)
{
    tcFolder folder;
    ASSERT_EQ(::mkfifo(folder.Path("pipe").c_str(), 0600), 0);
    tcActor camera;
    for (const std::vector<std::string>& verb :
         std::vector<std::vector<std::string>>{{"info"}, {"doctor"}, {"grab", "-o", "a.fits"}}) {
        std::vector<std::string> words = verb;
        words.insert(words.end(), {camera.Target(), "--flight", "no/flight.json"});
        tcRun missing(words, In(folder));
        EXPECT_EQ(missing.Exit(), 5);
        EXPECT_THAT(missing.Errors(), HasSubstr("no/flight.json: there is no folder no"));
        words.back() = "pipe";
        tcRun pipe(words, In(folder));
        EXPECT_EQ(pipe.Exit(), 5);
        EXPECT_THAT(pipe.Errors(), HasSubstr("pipe: is no regular file"));
    }
    EXPECT_FALSE(camera.Saw(0x34)) << "it was not opened";
    EXPECT_THAT(folder.Names(), ElementsAre("pipe"));
}

TEST(ExitFileError, FoldersThatAreMissingOrClosed)
{
    tcFolder folder;
    tcRun missing({"grab", "-o", "no/frame.fits"}, In(folder));
    ExpectFailure(missing, 5, "no/frame.fits: there is no folder no");
    tcRun closed({"grab", "-o", "/proc/self/frame.fits"}, In(folder));
    ExpectFailure(closed, 5, "/proc/self");
}

TEST(ExitFileError, DevicesAreNotReplaced)
{
    tcRun run({"grab", "--force", "-o", "/dev/full"});
    ExpectFailure(run, 5, "/dev/full: is no regular file");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST(ExitFileError, FullDiskLeavesNothingOfTheFrame)
{
    tcFolder folder;
    tcRun::tsHow how = In(folder);
    how.fileLimit = 100000; // one small frame fits, a big one does not
    tcRun small({"grab", "--sim-sensor", "64x64", "-e", "1ms", "-o", "small.fits"}, how);
    EXPECT_EQ(small.Exit(), 0) << small.Errors();
    tcRun big({"grab", "--sim-sensor", "512x512", "-e", "1ms", "-o", "big.fits", "--frames", "3"},
              how);
    ExpectFailure(big, 5, "big-0001.fits: File too large");
    EXPECT_THAT(folder.Names(), ElementsAre("small.fits"));
}

TEST(ExitFileError, FullFileSystemLeavesNothingOfTheFrame)
{
    const tcDisk disk(1);
    if (!disk) GTEST_SKIP() << "no mount namespaces here";
    tcRun run(disk.Words("\"$0\" grab -e 1ms --frames 9 --sim-sensor 512x512 -o disk/f.fits; "
                         "code=$?; ls -A disk; exit $code"),
              disk.How());
    ExpectFailure(run, 5, "disk/f-0002.fits: No space left on device");
    EXPECT_THAT(run.Output(), testing::EndsWith("f-0001.fits\n"));
    EXPECT_THAT(run.Output(), testing::Not(HasSubstr("part")));
}

// ---- 128 + signal ----------------------------------------------------------------------------

TEST(ExitInterrupted, CtrlCEndsAnExposure)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings());
    tcRun run({"grab", camera.Target(), "-e", "5ms", "--json"}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return camera.Saw(gnReadArea); }));
    run.Signal(SIGINT);
    ExpectFailure(run, 130, "interrupted");
    EXPECT_TRUE(WaitUntil([&] { return camera.Saw(0x4C); }));
    EXPECT_EQ(run.Document()["error"]["exit_code"], 130);
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitInterrupted, TerminationEndsCooling)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings());
    tcRun run({"grab", camera.Target(), "--target-temp", "-20", "--wait-cool"}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return camera.Saw(0x30); }));
    run.Signal(SIGTERM);
    ExpectFailure(run, 128 + SIGTERM, "interrupted");
    EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ExitInterrupted, CtrlCEndsOpeningAtOnce)
{
    tcFolder folder;
    tcActor camera({{0x34, ""}});
    tcRun run({"grab", camera.Target()}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return camera.Saw(0x34); }));
    const auto start = std::chrono::steady_clock::now();
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8)); // of ten
}

TEST(ExitInterrupted, CtrlCBetweenFramesKeepsWholeOnes)
{
    tcFolder folder;
    tcActor camera(AnswersWithSettings({{gnReadArea, Frame(false) + Row(0, 4, false)}}));
    tcRun run({"grab", camera.Target(), "--frames", "2"}, In(folder));
    ASSERT_TRUE(WaitUntil([&] { return !folder.Names().empty() && folder.Names()[0][0] != '.'; }));
    run.Signal(SIGINT);
    ExpectFailure(run, 130, "interrupted");
    EXPECT_THAT(folder.Names(), ElementsAre("frame-0001.fits"));
}

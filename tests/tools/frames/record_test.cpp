// Frames kept by the program, from end to end.
#include "grab_support.h"
#include "shell.h"
#include "simulated_support.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::Not;

namespace {

// The lines of a record's index that tell of frames.
std::vector<nlohmann::json> FramesOf(const std::string& index)
{
    std::vector<nlohmann::json> frames;
    std::istringstream lines(FileText(index));
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
        if (object.contains("index")) frames.push_back(object);
    }
    return frames;
}

nlohmann::json LastLine(const std::string& path)
{
    std::string text = FileText(path), last;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        last = line;
    }
    return nlohmann::json::parse(last, nullptr, false);
}

class tcRecordTest : public testing::Test
{
protected:
    std::string Start(const std::vector<std::string>& faults = {})
    {
        mpCamera = std::make_unique<tcSimServer>(Talkative(faults));
        return TargetOf(*mpCamera);
    }

    std::unique_ptr<tcSimServer> mpCamera;
    tcFolder mFolder;
};

} // namespace

using Record = tcRecordTest;

TEST_F(Record, KeepsWhatTheCameraSent)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "1ms", "-n", "20", "-o", "a.raw", "--json"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["frames"], 20);
    EXPECT_EQ(document["dropped"], 0);
    EXPECT_EQ(document["files"][0]["file"], "a.raw");
    EXPECT_EQ(document["files"][0]["frames"], 20);
    const std::vector<nlohmann::json> frames = FramesOf(mFolder.Path("a.raw.jsonl"));
    const std::vector<tsSimFrame> sent = mpCamera->Frames();
    ASSERT_EQ(frames.size(), 20u);
    ASSERT_EQ(sent.size(), 20u);
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i]["sum"], sent[i].pixelSum);
        EXPECT_EQ(frames[i]["crc32"], sent[i].crc);
    }
    EXPECT_EQ(LastLine(mFolder.Path("a.raw.jsonl"))["ended"], "complete");
}

TEST_F(Record, WritesACubeThatOthersVerify)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "1ms", "-n", "12", "--bits", "8", "-o", "a.fits", "--header",
               "OBSERVER=Anna"},
              In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Output(), HasSubstr("a.fits: 12 frames"));
    ExpectVerified(mFolder.Path("a.fits"));
    fitsfile* file = nullptr;
    int status = 0;
    long axes[3] = {0, 0, 0};
    char observer[FLEN_VALUE] = "";
    fits_open_diskfile(&file, mFolder.Path("a.fits").c_str(), READONLY, &status);
    fits_get_img_size(file, 3, axes, &status);
    fits_read_key(file, TSTRING, "OBSERVER", observer, nullptr, &status);
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::vector<long>(axes, axes + 3), (std::vector<long>{96, 64, 12}));
    EXPECT_STREQ(observer, "Anna");
}

TEST_F(Record, TellsWhichWordsOfTheHeaderItWritesOtherwise)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "1ms", "-n", "1", "-o", "a.fits", "--header",
               "OBSERVER=J\u00fcrgen", "--header", "OBJECT=M31"},
              In(mFolder));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Errors(), HasSubstr("a.fits: OBSERVER: 'J\u00fcrgen' is written as 'Juergen'"));
    EXPECT_THAT(run.Errors(), Not(HasSubstr("OBJECT")));
    EXPECT_THAT(run.Errors(), Not(HasSubstr("INSTRUME")));
    EXPECT_THAT(FileText(mFolder.Path("a.fits")), HasSubstr("OBSERVER= 'Juergen '"));
    tcRun other({"record", target, "-e", "1ms", "-n", "1", "-o", "a.raw", "--header",
                 "OBSERVER=J\u00fcrgen"},
                In(mFolder));
    EXPECT_EQ(other.Exit(), 0);
    EXPECT_EQ(other.Errors(), "") << "holds all letters";
    EXPECT_THAT(FileText(mFolder.Path("a.raw.jsonl")), HasSubstr("\"J\\u00fcrgen\""));
}

TEST_F(Record, EndsWithTheTimeAsked)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "5ms", "--for", "1s", "-o", "a.h5", "--json"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_GE(run.Document()["frames"], 1);
    EXPECT_GE(run.Document()["seconds"], 1);
    EXPECT_THAT(Output("h5dump -d /entry/record/ended " + mFolder.Path("a.h5")),
                HasSubstr("\"complete"));
}

TEST_F(Record, ForNoTimeAtAllIsRefused)
{
    tcRun run({"record", "127.0.0.1:9", "--for", "0", "-o", "a.h5"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr("--for 0"));
}

TEST_F(Record, WithoutAFrameInTheTimeAskedIsAFailure)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "20s", "--for", "300ms", "-o", "a.h5"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 3);
    EXPECT_THAT(run.Errors(), HasSubstr("a.h5: not made, since no frame came in"));
    EXPECT_FALSE(std::filesystem::exists(mFolder.Path("a.h5")));
}

TEST_F(Record, EndsCleanlyWithCtrlC)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "2ms", "-o", "a.raw", "--json"}, In(mFolder));
    ASSERT_TRUE(
        WaitUntil([&] { return FramesOf(mFolder.Path("a.raw.jsonl")).size() > 3; }, gnRunPatience));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    const size_t frames = FramesOf(mFolder.Path("a.raw.jsonl")).size();
    EXPECT_EQ(run.Document()["frames"], frames);
    EXPECT_EQ(std::filesystem::file_size(mFolder.Path("a.raw")), frames * 96 * 64 * 2);
    EXPECT_EQ(LastLine(mFolder.Path("a.raw.jsonl"))["ended"], "stopped");
}

TEST_F(Record, ThatCtrlCEndedBeforeItsTimeIsNotComplete)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "2ms", "--for", "1min", "-o", "a.raw"}, In(mFolder));
    ASSERT_TRUE(
        WaitUntil([&] { return FramesOf(mFolder.Path("a.raw.jsonl")).size() > 3; }, gnRunPatience));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    EXPECT_EQ(LastLine(mFolder.Path("a.raw.jsonl"))["ended"], "stopped");
}

TEST_F(Record, IsVerifiedAlsoBehindAFileThatCannotBeRead)
{
    const std::string target = Start();
    tcRun record({"record", target, "-e", "1ms", "-n", "3", "-o", "good.raw"}, In(mFolder));
    EXPECT_EQ(record.Exit(), 0) << record.Errors();
    std::ofstream(mFolder.Path("none.h5")) << "no HDF5";
    std::filesystem::copy_file(mFolder.Path("good.raw.jsonl"), mFolder.Path("bad.raw.jsonl"));
    std::ofstream(mFolder.Path("bad.raw")) << std::string(3 * 96 * 64 * 2, 'x');
    tcRun run({"verify", "none.h5", "bad.raw", "good.raw", "--json"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 5);
    EXPECT_THAT(run.Errors(), HasSubstr("vxcam: none.h5: "));
    EXPECT_THAT(run.Errors(), HasSubstr("1 of 3 files could not be read, 1 of 3 files are not"));
    const nlohmann::json files = run.Document()["files"];
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[0]["good"], false);
    EXPECT_THAT(files[0]["error"], HasSubstr("none.h5"));
    EXPECT_EQ(files[1]["good"], false);
    EXPECT_EQ(files[2]["good"], true);
}

TEST_F(Record, TellsOfFramesThatAreIncomplete)
{
    const std::string target = Start({"missing-packet:packet=7"});
    tcRun run({"record", target, "-e", "1ms", "-n", "5", "-o", "a.raw", "--json"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 4);
    EXPECT_THAT(run.Errors(), HasSubstr("1 of 5 frames are incomplete"));
    const std::vector<nlohmann::json> frames = FramesOf(mFolder.Path("a.raw.jsonl"));
    ASSERT_EQ(frames.size(), 5u);
    EXPECT_EQ(frames[0]["complete"], 0);
    EXPECT_EQ(frames[0]["missing_rows_count"], 1);
    EXPECT_EQ(frames[1]["complete"], 1);
    tcRun told({"verify", "a.raw"}, In(mFolder)),
        document({"verify", "a.raw", "--json"}, In(mFolder));
    EXPECT_EQ(told.Exit() + document.Exit(), 0);
    EXPECT_EQ(told.Output(), "a.raw: raw, 5 frames (1 marked incomplete), complete: good\n");
    EXPECT_EQ(document.Document()["files"][0]["incomplete"], 1);
}

TEST_F(Record, SaysWhenTheLinkIsLost)
{
    const std::string target = Start({"close:readout=1,frame=4,packet=9"});
    tcRun run({"record", target, "-e", "1ms", "-n", "50", "-o", "a.raw", "--timeout", "1s"},
              In(mFolder));
    EXPECT_EQ(run.Exit(), 3) << run.Errors();
    EXPECT_EQ(LastLine(mFolder.Path("a.raw.jsonl"))["ended"], "failed");
}

TEST_F(Record, EndsWithCodeFiveWhenTheDiskIsFull)
{
    const std::string target = Start();
    tcRun::tsHow how = In(mFolder);
    how.fileLimit = 6'000'000;
    tcRun run({"record", target, "-e", "1ms", "-o", "a.raw"}, how);
    EXPECT_EQ(run.Exit(), 5);
    EXPECT_THAT(run.Errors(), HasSubstr("a.raw: the disk is nearly full"));
    const size_t frames = FramesOf(mFolder.Path("a.raw.jsonl")).size();
    EXPECT_GT(frames, 5u);
    EXPECT_EQ(std::filesystem::file_size(mFolder.Path("a.raw")), frames * 96 * 64 * 2);
}

TEST_F(Record, SaysBeforeTheExposureThatTheDiskIsTooSmall)
{
    const std::string target = Start();
    tcRun::tsHow how = In(mFolder);
    how.fileLimit = 100'000;
    tcRun run({"record", target, "-e", "1ms", "-n", "9", "--area", "0,0,96,64", "-o", "a.raw"},
              how);
    EXPECT_EQ(run.Exit(), 5);
    EXPECT_THAT(run.Errors(), HasSubstr("4.3 MB are needed, and the disk has 100 kB left"));
    EXPECT_TRUE(mpCamera->Frames().empty());
    EXPECT_TRUE(mFolder.Names().empty());
}

TEST_F(Record, LooksBeforeItOpensTheCameraWhetherAllItsFilesCanBeMade)
{
    const std::string nobody = "127.0.0.1:9", longest(250, 'x');
    const auto errors = [&](const std::string& file) {
        tcRun run({"record", nobody, "-n", "1", "-o", file}, In(mFolder));
        EXPECT_EQ(run.Exit(), 5) << file;
        return run.Errors();
    };
    for (const std::string name : {"a.raw.jsonl", "a.tif.jsonl", "a.ser.jsonl", "a.fits.frames"}) {
        std::ofstream(mFolder.Path(name)) << "kept";
        EXPECT_THAT(errors(name.substr(0, name.rfind('.'))),
                    HasSubstr(name + ": exists already (--force replaces it)"));
        EXPECT_EQ(FileText(mFolder.Path(name)), "kept");
    }
    EXPECT_THAT(errors(longest + ".raw"), HasSubstr(".raw.jsonl: File name too long"));
    EXPECT_THAT(errors(longest + "x.fits"), HasSubstr(".fits: File name too long"));
    EXPECT_EQ(mFolder.Names().size(), 4u);
}

TEST_F(Record, SaysBeforeTheExposureThatSerTakesNoPixelsOf32Bits)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "1h", "-n", "1", "--binned", "-o", "a.ser"}, In(mFolder));
    EXPECT_EQ(run.Exit(), 1);
    EXPECT_THAT(run.Errors(), HasSubstr("a.ser: SER files take pixels of 16 bits at most"));
    EXPECT_TRUE(mFolder.Names().empty());
}

TEST_F(Record, BeginsAFileForEachFrameWhenOneIsLargerThanAFileMayBe)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "1ms", "-n", "3", "-o", "a.raw", "--split", "1", "--json"},
              In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json document = run.Document();
    ASSERT_EQ(document["files"].size(), 3u);
    for (const nlohmann::json& file : document["files"]) {
        EXPECT_EQ(file["frames"], 1);
    }
}

TEST(RecordProof, SaysWhyAFileCannotBeRead)
{
    const tcFolder folder;
    std::ofstream(folder.Path("empty.h5")).close();
    std::ofstream(folder.Path("none.h5")) << "no HDF5";
    std::ofstream(folder.Path("alone.raw")) << "pixels";
    const auto errors = [&](const std::string& file) {
        tcRun run({"verify", file}, In(folder));
        EXPECT_EQ(run.Exit(), 5);
        return run.Errors();
    };
    EXPECT_THAT(errors("gone.h5"), HasSubstr("gone.h5: No such file or directory"));
    EXPECT_THAT(errors("empty.h5"), HasSubstr("empty.h5: is empty"));
    EXPECT_THAT(errors("none.h5"), HasSubstr("none.h5: is no HDF5 file"));
    EXPECT_THAT(errors("alone.raw"),
                HasSubstr("alone.raw.jsonl: the index cannot be read: No such file"));
}

TEST_F(Record, OfAKilledProgramIsReadByPlainToolsAsThePageSays)
{
    const std::string page = FileText(VXCAM_RECORDING_PAGE);
    const size_t at = page.find("`h5clear ");
    ASSERT_NE(at, std::string::npos);
    const std::string command = page.substr(at + 1, page.find('`', at + 1) - at - 1);
    EXPECT_THAT(command, testing::EndsWith(" night.h5"));
    for (const char* const compression : {"none", "gzip"}) {
        const std::string target = Start(), path = mFolder.Path("night.h5");
        tcRun run(
            {"record", target, "-e", "1ms", "-o", "night.h5", "--force", "--compress", compression},
            In(mFolder));
        const auto size = [&] {
            std::error_code none;
            const auto bytes = std::filesystem::file_size(path, none);
            return none ? 0 : bytes;
        };
        ASSERT_TRUE(WaitUntil([&] { return size() > 5'000'000; }, gnRunPatience));
        run.Signal(SIGKILL);
        run.Exit();
        const auto killed = size();
        int status = -1;
        Output("cd " + mFolder.Path("") + " && " + command + " 2>&1", &status);
        EXPECT_EQ(status, 0);
        EXPECT_GE(size(), killed);
        const std::string frames = Output("/usr/bin/python3 -c 'import h5py, sys, zlib\n"
                                          "file = h5py.File(sys.argv[1], \"r\")\n"
                                          "data = file[\"entry/data/data\"]\n"
                                          "crcs = file[\"entry/instrument/detector/crc32\"]\n"
                                          "assert len(data) >= len(crcs)\n"
                                          "assert all(zlib.crc32(data[i].tobytes()) == crcs[i] "
                                          "for i in range(len(crcs)))\n"
                                          "print(len(crcs))' " +
                                          path + " 2>&1");
        EXPECT_GT(std::atoi(frames.c_str()), 3) << frames;
        EXPECT_THAT(Output("h5dump -d /entry/instrument/detector/crc32 " + path, &status),
                    HasSubstr("DATASET"));
        EXPECT_EQ(status, 0);
        tcRun verified({"verify", "night.h5", "--json"}, In(mFolder));
        EXPECT_EQ(verified.Exit(), 4);
        const nlohmann::json file = verified.Document()["files"][0];
        EXPECT_EQ(file["frames"], std::atoi(frames.c_str()));
        ASSERT_EQ(file["findings"].size(), 1u) << file;
        EXPECT_EQ(file["findings"][0]["check"], "ended");
    }
}

// Also while it waits for something else, here for what comes out of a pipe.
TEST_F(Record, IsVerifiedUntilCtrlC)
{
    const std::string target = Start();
    tcRun record({"record", target, "-e", "1ms", "-n", "2", "-o", "a.raw"}, In(mFolder));
    EXPECT_EQ(record.Exit(), 0) << record.Errors();
    const std::string pipe = mFolder.Path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    tcRun run({"verify", "a.raw", "--truth", "pipe"}, In(mFolder));
    int writer = -1;
    ASSERT_TRUE(WaitUntil(
        [&] {
            writer = ::open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            return writer >= 0;
        },
        gnRunPatience));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Exit(), 130);
    ::close(writer);
}

TEST_F(Record, CountsFramesThatAreDropped)
{
    const std::string target = Start();
    tcRun run({"record", target, "-e", "0", "-n", "3000", "-o", "a.h5", "--compress", "gzip",
               "--buffer", "100kB", "--when-full", "drop", "--json"},
              In(mFolder));
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["frames"].get<int>() + document["dropped"].get<int>(), 3000);
    EXPECT_THAT(Output("h5dump -d /entry/record/dropped " + mFolder.Path("a.h5")),
                HasSubstr("(0): " + document["dropped"].dump()));
}

TEST(RecordArguments, ThatCannotBeEndWithCodeOne)
{
    const tcFolder folder;
    const auto errors = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "record");
        tcRun run(arguments, In(folder));
        EXPECT_EQ(run.Exit(), 1);
        return run.Errors();
    };
    EXPECT_THAT(errors({"sim"}), HasSubstr("--output is required"));
    EXPECT_THAT(errors({"-o", "a.gif"}), HasSubstr("the name says no format"));
    EXPECT_THAT(errors({"-o", "a.raw", "--split", "2 apples"}),
                HasSubstr("write bytes, like 500MB"));
    EXPECT_THAT(errors({"-o", "a.raw", "--buffer", "1MB"}), HasSubstr("at least 4 frames"));
    EXPECT_THAT(errors({"-o", "a.raw", "--compress", "gzip"}), HasSubstr("not compressed by gzip"));
    EXPECT_TRUE(folder.Names().empty());
}

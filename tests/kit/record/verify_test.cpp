// Records that are good, and some that are not; tests/tools/verify damages them in all ways.
#include "record/verify_support.h"

#include <vxcamkit/verify.h>

using testing::HasSubstr;

namespace vxcam {

TEST(VerifyRecords, FindsNothingInGoodOnes)
{
    const Folder folder;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser", "a-%03d.fits"}) {
        makeRecord(folder.path(name));
    }
    RecordOptions options;
    options.compression = Compression::Rice;
    makeRecord(folder.path("rice.fits"), options);
    options.compression = Compression::Gzip;
    makeRecord(folder.path("gzip.fits"), options);
    makeRecord(folder.path("gzip.h5"), options);
    size_t files = 0;
    for (const std::string& name : folder.names()) {
        if (name.find(".jsonl") != std::string::npos) continue;
        EXPECT_EQ(findingsOf(verifyRecord(folder.path(name))), "") << name;
        ++files;
    }
    EXPECT_EQ(files, 14u);
}

TEST(VerifyRecords, FindsDamageInCompressedOnes)
{
    const Folder folder;
    RecordOptions options;
    options.compression = Compression::Rice;
    makeRecord(folder.path("a.fits"), options);
    std::string bytes = ReadFile(folder.path("a.fits"));
    bytes[bytes.find("RICE_1", bytes.find("RICE_1") + 1) + 9000] ^= 1;
    makeTextFile(folder.path("b.fits"), bytes);
    EXPECT_THAT(findingsOf(verifyRecord(folder.path("b.fits"))), HasSubstr("the sum of part"));
}

// Rows that are missing have a number that no other pixel has, which is not always that of 0.
TEST(VerifyRecords, FindsNothingInAFrameWithZerosAndMissingRows)
{
    const Folder folder;
    FrameFacts facts;
    facts.packetsExpected = 2;
    facts.packetsMissing = 1;
    facts.missingRows = {1};
    facts.number = 1;
    std::vector<uint16_t> pixels(2 * kColumns, 0);
    pixels[3] = 7;
    facts.rows = 2;
    facts.columns = kColumns;
    Recorder recorder(folder.path("a-%d.fits"));
    ASSERT_TRUE(recorder.write(frameOf(facts, pixels)));
    recorder.finish();
    EXPECT_EQ(findingsOf(verifyRecord(folder.path("a-1.fits"))), "");
}

TEST(VerifyRecords, LookAtTheOrderOfFilesThatFollowEachOther)
{
    const Folder folder;
    makeRecord(folder.path("a-%02d.fits"));
    const auto order = [&](const std::string& file, const std::string& before) {
        Verdict verdict;
        verdict.findings = verifyOrder(folder.path(file), folder.path(before));
        return findingsOf(verdict);
    };
    EXPECT_EQ(order("a-02.fits", "a-01.fits"), "");
    EXPECT_EQ(order("a-04.fits", "a-02.fits"), ""); // others may be somewhere else
    std::filesystem::copy_file(folder.path("a-02.fits"), folder.path("b-03.fits"));
    std::filesystem::copy_file(folder.path("a-02.fits"), folder.path("b-04.fits"));
    std::filesystem::copy_file(folder.path("a-04.fits"), folder.path("b-05.fits"));
    std::filesystem::copy_file(folder.path("a-01.fits"), folder.path("b-06.fits"));
    EXPECT_EQ(order("b-04.fits", "b-03.fits"), "number 0 it is frame 2 of readout 1 again\n");
    EXPECT_EQ(order("b-05.fits", "b-04.fits"),
              "number 0 it is frame 4 of readout 1 behind frame 2 of readout 1, and 0 were dropped "
              "between them\n");
    EXPECT_EQ(order("b-06.fits", "b-05.fits"), ""); // another readout begins
    EXPECT_EQ(order("b-06.fits", "gone-05.fits"), "");
}

namespace {

// Of a record in raw, as a simulated camera would have told.
std::string truthOf(const Folder& folder, const std::string& name)
{
    const std::vector<std::string> lines = Split(ReadFile(folder.path(name + ".jsonl")), '\n');
    std::string truth;
    for (int i = 1; i <= kFrames; ++i) {
        const std::string& line = lines[static_cast<size_t>(i)];
        const size_t at = line.find("\"crc32\":") + 8;
        truth += R"({"event":"frame","readout":7,"frame":)" + std::to_string(i) + R"(,"sentCrc":)" +
                 line.substr(at, line.find(',', at) - at) + R"(,"intact":true})" + "\n";
    }
    return truth;
}

} // namespace

TEST(VerifyRecords, AreComparedWithTheTruth)
{
    const Folder folder;
    makeRecord(folder.path("a.raw"));
    const std::string truth = truthOf(folder, "a.raw");
    VerifyOptions options;
    options.truth = folder.path("truth.jsonl");
    makeTextFile(options.truth, truth);
    EXPECT_EQ(findingsOf(verifyRecord(folder.path("a.raw"), options)), "");
    std::string other = truth;
    other.replace(other.find("\"sentCrc\":") + 10, 1, "7");
    makeTextFile(options.truth, other);
    EXPECT_THAT(findingsOf(verifyRecord(folder.path("a.raw"), options)),
                HasSubstr("truth 0 the camera sent other pixels"));
    const std::string whole = "\"intact\":true";
    for (const auto& [told, found] :
         {std::pair{R"("sentLost":1,"intact":false)", "did not send all of it, and it says"},
          std::pair{R"("sentLost":0,"crc":17,"intact":false)",
                    "sent other pixels than its picture has, and it says"},
          std::pair{R"("sentLost":0,"intact":false)",
                    "did not send each packet once, in order and unchanged, and it says"}}) {
        other = truth;
        other.replace(other.find(whole), whole.size(), told);
        makeTextFile(options.truth, other);
        EXPECT_THAT(findingsOf(verifyRecord(folder.path("a.raw"), options)),
                    HasSubstr("truth 0 the camera " + std::string(found)));
    }
    makeTextFile(options.truth, truth.substr(truth.find('\n') + 1));
    EXPECT_THAT(findingsOf(verifyRecord(folder.path("a.raw"), options)),
                HasSubstr("truth 0 the camera sent no such frame"));
}

// A record that was to have all frames of its readout has its first ones and its last ones.
TEST(VerifyRecords, LackNoFramesAtTheirEndsThatTheCameraSent)
{
    const Folder folder;
    makeRecord(folder.path("a.raw"));
    VerifyOptions options;
    options.truth = folder.path("truth.jsonl");
    makeTextFile(options.truth, truthOf(folder, "a.raw"));
    const auto recorded = [&](int first, int last, const std::string& how, int frames) {
        RecordOptions force;
        force.force = true;
        Recorder recorder(folder.path("b.raw"), force);
        for (int i = first; i <= last; ++i) {
            FrameFacts facts = goodFrame(i).facts();
            facts.frames = frames;
            EXPECT_TRUE(recorder.write(numbered<uint16_t>(i, kRows, kColumns, facts)));
        }
        recorder.finish(how, 0);
        return findingsOf(verifyRecord(folder.path("b.raw"), options));
    };
    EXPECT_EQ(recorded(1, kFrames, "complete", kFrames), "");
    EXPECT_EQ(recorded(1, 4, "complete", kFrames),
              "truth -1 the camera sent 2 frames behind the last one, and 0 were dropped\n");
    EXPECT_EQ(recorded(1, 4, "stopped", kFrames), "");
    EXPECT_EQ(recorded(1, 4, "complete", 0), ""); // of a readout without an end
    EXPECT_EQ(recorded(3, kFrames, "complete", kFrames),
              "truth -1 the camera sent 2 frames before the first one, and 0 were dropped\n");
}

} // namespace vxcam

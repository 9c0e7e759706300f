// Records that are good, and some that are not; tests/tools/verify damages them in all ways.
#include "record_support.h"

#include <vxcamkit/verify.h>

using testing::HasSubstr;

#ifdef __SANITIZE_ADDRESS__
// The HDF5 library keeps what it has of files that it cannot read. What a record itself would keep,
// the tests of vxcam see.
extern "C" __attribute__((visibility("default"))) const char*
__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier)
{
    return "leak:libhdf5";
}
#endif

namespace vxcam {

namespace {

constexpr int kFrames = 6, kRows = 12, kColumns = 20;

Frame goodFrame(int number)
{
    FrameFacts facts;
    facts.exposure = std::chrono::milliseconds(10);
    facts.readout = 1;
    facts.packetsExpected = kRows;
    return numbered<uint16_t>(number, kRows, kColumns, facts);
}

void makeRecord(const std::string& path, const RecordOptions& options = {})
{
    Recorder recorder(path, options);
    for (int i = 1; i <= kFrames; ++i) {
        ASSERT_TRUE(recorder.write(goodFrame(i)));
    }
    recorder.finish();
}

std::string findingsOf(const Verdict& verdict)
{
    std::string text;
    for (const Finding& finding : verdict.findings) {
        text += finding.check + " " + std::to_string(finding.frame) + " " + finding.text + "\n";
    }
    return text;
}

bool isFoundDamaged(const std::string& path)
{
    try {
        return !verifyRecord(path).isGood();
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::File) << error.what();
        return true;
    }
}

// Whichever byte it is: the HDF5 library would look again and again, for what may still be written.
void lookAtDamage(const Folder& folder, const std::string& bytes)
{
    size_t found = 0, tried = 0;
    for (size_t at = 0; at < std::min<size_t>(bytes.size(), 4096); at += 7) {
        std::string damaged = bytes;
        damaged[at] ^= 4;
        makeTextFile(folder.path("b.h5"), damaged);
        ++tried;
        if (isFoundDamaged(folder.path("b.h5"))) ++found;
    }
    EXPECT_GT(found, tried / 3);
}

} // namespace

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

TEST(VerifyRecords, TellOfDamageInHdf5WithoutAWait)
{
    const Folder folder;
    makeRecord(folder.path("a.h5"));
    lookAtDamage(folder, ReadFile(folder.path("a.h5")));
}

// As one is whose writer was killed: marked as being written.
TEST(VerifyRecords, TellOfDamageInHdf5ThatWasNotEndedWithoutAWait)
{
    const Folder folder;
    Recorder recorder(folder.path("a.h5"));
    for (int i = 1; i <= kFrames; ++i) {
        ASSERT_TRUE(recorder.write(goodFrame(i)));
    }
    ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == kFrames; }));
    const std::string bytes = ReadFile(folder.path("a.h5"));
    makeTextFile(folder.path("c.h5"), bytes);
    const Verdict running = verifyRecord(folder.path("c.h5"));
    EXPECT_EQ(findingsOf(running), "ended -1 it still runs, or its process was killed\n");
    EXPECT_EQ(running.frames, size_t{kFrames});
    makeTextFile(folder.path("c.h5"), bytes.substr(0, bytes.size() / 2));
    EXPECT_TRUE(isFoundDamaged(folder.path("c.h5")));
    lookAtDamage(folder, bytes);
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

TEST(VerifyRecords, AreComparedWithTheTruth)
{
    const Folder folder;
    makeRecord(folder.path("a.raw"));
    std::vector<std::string> lines = Split(ReadFile(folder.path("a.raw.jsonl")), '\n');
    std::string truth;
    for (int i = 1; i <= kFrames; ++i) {
        const std::string& line = lines[static_cast<size_t>(i)];
        const size_t at = line.find("\"crc32\":") + 8;
        truth += R"({"event":"frame","readout":7,"frame":)" + std::to_string(i) + R"(,"sentCrc":)" +
                 line.substr(at, line.find(',', at) - at) + R"(,"intact":true})" + "\n";
    }
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

} // namespace vxcam

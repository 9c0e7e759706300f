// Records of frames, read by others: h5py, h5dump, astropy, fitsverify.
#include "record_support.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <random>
#include <thread>

using testing::HasSubstr;

namespace vxcam {

TEST(Recorder, RefusesWhatCannotBe)
{
    const Folder folder;
    RecordOptions rice;
    rice.compression = Compression::Rice;
    const auto refusal = [&](const std::string& name, const RecordOptions& options) {
        return refusalOf([&] { Recorder(folder.path(name), options); }, ErrorKind::Usage);
    };
    EXPECT_THAT(refusal("a.jpg", {}), HasSubstr("says no format"));
    EXPECT_THAT(refusal("a.h5", rice), HasSubstr("HDF5 files are not compressed by rice"));
    makeTextFile(folder.path("a.raw"), "mine");
    EXPECT_THAT(refusalOf([&] { Recorder(folder.path("a.raw")); }, ErrorKind::File),
                HasSubstr("exists already"));
    EXPECT_EQ(ReadFile(folder.path("a.raw")), "mine");
}

TEST(Recorder, ReplacesWithForce)
{
    const Folder folder;
    RecordOptions force;
    force.force = true;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser"}) {
        record<uint16_t>(folder.path(name), 5, 8, 8);
        record<uint16_t>(folder.path(name), 3, 16, 8, force);
    }
    EXPECT_EQ(readBack(folder, {"a.h5", "a.fits", "a.raw"}),
              "3 complete\n3 complete\n3 complete\n");
}

TEST(Recorder, TakesNobodysPlaceWhoStillWrites)
{
    const Folder folder;
    RecordOptions force;
    force.force = true;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser"}) {
        Recorder late(folder.path(name), force); // when nothing was there yet
        Recorder recorder(folder.path(name), force);
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(1, 8, 8)));
        EXPECT_TRUE(waitUntil([&] { return recorder.books().frames == 1; })) << name;
        late.write(numbered<uint16_t>(7, 8, 8));
        EXPECT_THAT(refusalOf([&] { late.finish(); }, ErrorKind::File),
                    HasSubstr(name + ": is being written by somebody else"));
        EXPECT_THAT(refusalOf([&] { Recorder(folder.path(name), force); }, ErrorKind::File),
                    HasSubstr(name + ": is being written by somebody else"));
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(2, 8, 8)));
        recorder.finish();
    }
    EXPECT_EQ(readBack(folder, {"a.h5", "a.fits", "a.raw"}),
              "2 complete\n2 complete\n2 complete\n");
    record<uint16_t>(folder.path("a.h5"), 3, 8, 8, force); // which nobody writes any more
    EXPECT_EQ(readBack(folder, {"a.h5"}), "3 complete\n");
}

TEST(Recorder, FailsWhenAFrameHasAnotherSize)
{
    const Folder folder;
    Recorder recorder(folder.path("a.raw"));
    EXPECT_TRUE(recorder.write(numbered<uint16_t>(1, 8, 8)));
    EXPECT_TRUE(recorder.write(numbered<uint16_t>(2, 8, 9)));
    EXPECT_THAT(refusalOf([&] { recorder.finish(); }, ErrorKind::Usage), HasSubstr("another size"));
    EXPECT_TRUE(recorder.hasFailed());
    EXPECT_FALSE(recorder.write(numbered<uint16_t>(3, 8, 8)));
    EXPECT_EQ(readBack(folder, {"a.raw"}), "1 failed\n");
}

TEST(Recorder, BeginsAnotherFileWhenOneIsLargeEnough)
{
    const Folder folder;
    RecordOptions options;
    options.split = 100'000; // a frame has 20,000
    Recorder recorder(folder.path("a.raw"), options);
    for (int i = 1; i <= 20; ++i) {
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, 100, 100)));
        ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == uint64_t(i); }));
    }
    recorder.finish();
    uint64_t frames = 0;
    const RecordBooks books = recorder.books();
    ASSERT_GE(books.files.size(), 3u);
    for (const RecordedFile& file : books.files) {
        frames += file.frames;
        EXPECT_EQ(std::filesystem::file_size(file.path), file.frames * 20'000);
        EXPECT_LT(file.bytes, options.split + 30'000);
    }
    EXPECT_EQ(frames, 20u);
    EXPECT_EQ(books.files[1].path, folder.path("a-0002.raw"));
}

TEST(Recorder, TellsOfEachFileThatAFrameHasForItself)
{
    const Folder folder;
    Recorder recorder(folder.path("a-%03d.fits"));
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, 12, 20)));
    }
    recorder.finish();
    const RecordBooks books = recorder.books();
    ASSERT_EQ(books.files.size(), 3u);
    for (size_t i = 0; i < books.files.size(); ++i) {
        EXPECT_EQ(books.files[i].path, folder.path("a-00" + std::to_string(i + 1) + ".fits"));
        EXPECT_EQ(books.files[i].frames, 1u);
        EXPECT_EQ(books.files[i].bytes, std::filesystem::file_size(books.files[i].path));
    }
    EXPECT_EQ(books.frames, 3u);
    EXPECT_EQ(books.flushed, 3u);
}

TEST(Recorder, TellsHowLargeHdf5FilesAre)
{
    for (const Compression compression : {Compression::None, Compression::Gzip}) {
        const Folder folder;
        RecordOptions options;
        options.compression = compression;
        options.split = 300'000;
        Recorder recorder(folder.path("a.h5"), options);
        for (int i = 1; i <= 60; ++i) {
            ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, 100, 100)));
        }
        recorder.finish();
        const RecordBooks books = recorder.books();
        EXPECT_EQ(books.files.size() > 1, compression == Compression::None);
        for (const RecordedFile& file : books.files) {
            EXPECT_EQ(file.bytes, std::filesystem::file_size(file.path));
            EXPECT_LT(file.bytes, options.split + 200'000) << "a frame, and numbers of all frames";
        }
    }
}

TEST(Recorder, TellsWhatIsMissingAndWhatTheCameraTold)
{
    const Folder folder;
    for (const std::string name : {"a.h5", "a.fits", "a.raw"}) {
        Recorder recorder(folder.path(name));
        Event event;
        event.kind = EventKind::CameraError;
        event.code = 7;
        event.text = "stuck";
        event.time.utc = UtcTime(std::chrono::seconds(1'700'000'000));
        recorder.note(event);
        FrameFacts facts;
        facts.missingRows = {2, 3, 5};
        facts.packetsExpected = 8;
        facts.packetsMissing = 3;
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(1, 8, 8, facts)));
        recorder.finish("stopped", 4);
        EXPECT_EQ(recorder.books().incomplete, 1u);
        EXPECT_EQ(readBack(folder, {name}), "1 stopped\n");
    }
    makeTextFile(folder.path("look.py"), R"(
import sys, json, h5py
from astropy.io import fits
f = h5py.File(sys.argv[1] + '/a.h5'); r = f['entry/record']; d = f['entry/instrument/detector']
print(r['missing_rows/index'][:], r['missing_rows/row'][:], d['missing_rows_count'][:],
      d['complete'][:], r['events/event'][0].decode(), r['events/code'][0],
      r['events/text'][0].decode(), r['events/time_ns'][0], r['dropped'][()])
f = fits.open(sys.argv[1] + '/a.fits'); t = f['FRAMES'].data; e = f['EVENTS'].data
print(t['missing_rows'][0], t['missing_rows_count'][0], t['complete'][0], e['event'][0],
      e['code'][0], e['text'][0], e['time_ns'][0], f[0].header['RECDROP'])
for line in open(sys.argv[1] + '/a.raw.jsonl'):
    line = json.loads(line)
    print(*[line[k] for k in ('missing_rows', 'complete', 'event', 'code', 'text', 'dropped', 'ended')
            if k in line])
)");
    EXPECT_EQ(Output("/usr/bin/python3 " + folder.path("look.py") + " " + folder.path() + " 2>&1"),
              "[0 0 0] [2 3 5] [3] [0] camera-error 7 stuck 1700000000000000000 4\n"
              "2-3,5 3 0 camera-error 7 stuck 1700000000000000000 4\n"
              "\n2-3,5 0 0\ncamera-error 7 stuck\n4 stopped\n");
}

// A reader that follows the file while it grows, with frames that are written past the library.
TEST(Recorder, Hdf5IsReadWhileItGrows)
{
    const Folder folder;
    const std::string path = folder.path("a.h5");
    makeTextFile(folder.path("follow.py"), R"(
import sys, time, h5py, zlib
file = h5py.File(sys.argv[1], 'r', swmr=True)
data, crcs = file['entry/data/data'], file['entry/instrument/detector/crc32']
print('open', file['entry/record/ended'][()].decode(), flush=True)
end, seen = time.time() + 30, 0
while seen < 6 and time.time() < end:
    crcs.refresh(); data.refresh()
    for seen in range(seen, len(crcs)):
        assert zlib.crc32(data[seen].tobytes()) == crcs[seen]
    seen = len(crcs)
    open(sys.argv[2], 'w').write(str(seen))
print('seen', seen)
)");
    Recorder recorder(path);
    ASSERT_TRUE(recorder.write(numbered<uint16_t>(1, 307, 213)));
    ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == 1; }));
    std::string said;
    std::thread reader([&] {
        said = Output("timeout 40 /usr/bin/python3 " + folder.path("follow.py") + " " + path + " " +
                      folder.path("seen") + " 2>&1");
    });
    for (int i = 2; i <= 6; ++i) { // each when the one before it was seen
        EXPECT_TRUE(
            waitUntil([&] { return ReadFile(folder.path("seen")) == std::to_string(i - 1); }));
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(i, 307, 213)));
    }
    reader.join();
    recorder.finish();
    EXPECT_EQ(said, "open running\nseen 6\n");
}

namespace {

// What a process that is killed told before.
struct Shared {
    std::atomic<uint64_t> flushed{0};
};

// Records until it is killed.
[[noreturn]] void recordOn(const std::string& path, Shared* shared)
{
    RecordOptions options;
    options.most = 4;
    const bool isRice = path.find("rice") != std::string::npos;
    if (isRice) options.compression = Compression::Rice;
    Recorder recorder(path, options);
    for (int i = 1;; ++i) {
        if (!recorder.write(numbered<uint16_t>(i, 160, 208))) ::_exit(1);
        shared->flushed = recorder.books().flushed;
        std::this_thread::sleep_for(std::chrono::microseconds(500)); // as a camera takes its time
    }
}

} // namespace

TEST(Recorder, LeavesAllThatWasFlushedWhenItIsKilled)
{
    constexpr int kills = 54;
    const Folder folder;
    std::mt19937 random(22);
    std::vector<std::string> names;
    std::vector<uint64_t> least;
    auto* const shared = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(shared, MAP_FAILED);
    for (int i = 0; i < kills; ++i) {
        constexpr const char* endings[] = {".h5", ".fits", ".raw", ".tif", ".ser", "rice.fits"};
        names.push_back(std::to_string(i) + endings[i % 6]);
        shared->flushed = 0;
        const pid_t child = ::fork();
        if (child == 0) recordOn(folder.path(names.back()), shared);
        const auto moment = std::chrono::microseconds(random() % 30'000);
        EXPECT_TRUE(waitUntil([&] { return shared->flushed > 0; }));
        std::this_thread::sleep_for(moment); // any moment is right
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        least.push_back(shared->flushed);
    }
    ::munmap(shared, sizeof(Shared));
    const std::string said = readBack(folder, names);
    const std::vector<std::string> lines = Split(said, '\n');
    ASSERT_EQ(lines.size(), size_t{kills}) << said;
    for (int i = 0; i < kills; ++i) {
        EXPECT_GE(std::atoi(lines[size_t(i)].c_str()), static_cast<int>(least[size_t(i)]))
            << names[size_t(i)];
        EXPECT_THAT(lines[size_t(i)], HasSubstr(" running"));
    }
}

TEST(Recorder, EndsWhenItsFileIsNotThereAnyMore)
{
    const Folder folder;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser"}) {
        Recorder recorder(folder.path(name));
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(1, 8, 8)));
        EXPECT_TRUE(waitUntil([&] { return recorder.books().flushed == 1; })) << name;
        std::filesystem::rename(folder.path(name), folder.path("other-" + name));
        int i = 1;
        if (name == "a.raw") {
            EXPECT_TRUE(waitUntil([&] { return !recorder.write(numbered<uint16_t>(++i, 8, 8)); }));
        }
        EXPECT_THAT(refusalOf([&] { recorder.finish(); }, ErrorKind::File),
                    HasSubstr(name + ": was removed or renamed while it was recorded"));
    }
}

TEST(Recorder, EndsWhenTheFileBesideItIsNotThereAnyMore)
{
    const Folder folder;
    const std::pair<std::string, std::string> files[] = {
        {"a.fits", ".frames"}, {"a.raw", ".jsonl"}, {"a.tif", ".jsonl"}, {"a.ser", ".jsonl"}};
    for (const auto& [name, beside] : files) {
        Recorder recorder(folder.path(name));
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(1, 8, 8)));
        EXPECT_TRUE(waitUntil([&] { return recorder.books().flushed == 1; })) << name;
        std::filesystem::remove(folder.path(name + beside));
        int i = 1;
        if (name == "a.raw") {
            EXPECT_TRUE(waitUntil([&] { return !recorder.write(numbered<uint16_t>(++i, 8, 8)); }));
        }
        EXPECT_THAT(refusalOf([&] { recorder.finish(); }, ErrorKind::File),
                    HasSubstr(name + beside + ": was removed or renamed while it was recorded"));
    }
    // Of FITS, the numbers are there all the same.
    EXPECT_EQ(readBack(folder, {"a.fits"}), "1 failed\n");
}

TEST(Recorder, MakesNoFileThatTheDiskHasNoRoomFor)
{
    const Folder folder;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser", "a-%d.fits"}) {
        RecordOptions options;
        options.reserve = uint64_t{1} << 60U;
        Recorder recorder(folder.path(name), options);
        recorder.write(numbered<uint16_t>(1, 8, 8));
        EXPECT_THAT(refusalOf([&] { recorder.finish(); }, ErrorKind::File),
                    HasSubstr("the disk is nearly full"));
    }
    EXPECT_EQ(folder.names(), std::vector<std::string>());
    EXPECT_EQ(recordNeeds({}, 100), 300 + (4U << 20U));
}

// A limit of the process is as a full disk.
TEST(Recorder, EndsCleanlyBeforeTheDiskIsFull)
{
    const Folder folder;
    std::vector<std::string> names;
    for (const std::string name : {"a.h5", "a.fits", "a.raw", "a.tif", "a.ser"}) {
        const pid_t child = ::fork();
        if (child == 0) {
            const rlimit limit{12'000'000, 12'000'000};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            ::signal(SIGXFSZ, SIG_IGN);
            Recorder recorder(folder.path(name));
            int i = 1;
            while (recorder.write(numbered<uint16_t>(i, 200, 300))) {
                if (++i > 1000) ::_exit(2);
            }
            const std::string why = refusalOf([&] { recorder.finish(); }, ErrorKind::File);
            const bool isTold = why.find("the disk is nearly full") != std::string::npos;
            ::_exit(isTold && recorder.books().frames > 10 ? 0 : 1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << name << " " << status;
        names.push_back(name);
    }
    for (const std::string& line : Split(Trim(readBack(folder, names)), '\n')) {
        EXPECT_GT(std::atoi(line.c_str()), 10) << line;
        EXPECT_THAT(line, HasSubstr(" failed"));
    }
    EXPECT_THAT(verified(folder.path("a.fits")), HasSubstr("verification OK"));
}

} // namespace vxcam

// Records of frames, read by others: h5py, h5dump, astropy, fitsverify.
#include "files_support.h"

#include <vxcamkit/recorder.h>

#include <gmock/gmock.h>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

using testing::HasSubstr;

namespace vxcam {

namespace {

constexpr std::chrono::seconds kPatience(30);

bool waitUntil(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Pixel i of frame n is (n * 31 + i * 7) mod 65536, and of 8 and 32 bits likewise.
template <class Pixel>
Frame numbered(int number, int rows, int columns, FrameFacts facts = {})
{
    std::vector<Pixel> pixels(static_cast<size_t>(rows) * static_cast<size_t>(columns));
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<Pixel>(static_cast<size_t>(number) * 31 + i * 7);
    }
    facts.rows = rows;
    facts.columns = columns;
    facts.number = number;
    facts.times.begin = UtcTime(std::chrono::seconds(1'700'000'000 + number));
    facts.times.middle = facts.times.begin + std::chrono::milliseconds(5);
    facts.times.end = facts.times.begin + std::chrono::milliseconds(10);
    facts.times.uncertainty = std::chrono::microseconds(20);
    facts.sensorTemperature = -10.5;
    return frameOf(facts, pixels);
}

constexpr const char* kReader = R"(
import sys, json, zlib, warnings
import numpy as np, h5py
from astropy.io import fits
warnings.simplefilter('ignore')
def pixels(frames, columns):
    bits = frames[0].dtype.itemsize * 8
    for n, frame in enumerate(frames):
        want = ((n + 1) * 31 + np.arange(frame.size, dtype='u8') * 7) % (1 << bits)
        assert (frame.ravel() == want).all(), ('pixels', n)
        assert columns['index'][n] == n and columns['number'][n] == n + 1
        assert columns['crc32'][n] == zlib.crc32(frame.tobytes())
        assert columns['sum'][n] == want.sum()
        assert columns['begin_ns'][n] == (1700000001 + n) * 10**9
        assert columns['end_ns'][n] - columns['begin_ns'][n] == 10**7
        assert columns['sensor_temperature'][n] == -10.5
def h5(path):
    with h5py.File(path, 'r', swmr=True) as file:
        detector = file['entry/instrument/detector']
        count = min(detector[name].shape[0] for name in
                    ('index', 'number', 'crc32', 'sum', 'begin_ns', 'end_ns', 'sensor_temperature'))
        if count: pixels(detector['data'][:count], {name: detector[name][:count] for name in detector
            if isinstance(detector[name], h5py.Dataset) and detector[name].ndim == 1})
        return count, file['entry/record/ended'][()].decode()
def cube(path):
    with fits.open(path, memmap=False) as file:
        data, ended = file[0].data, file[0].header['RECEND']
        table = file['FRAMES'].data if ended != 'running' else fits.open(path + '.frames')[1].data
        if data is None: return 0, ended
        kind = {8: '<u1', 16: '<u2', 32: '<u4'}[file[0].header['BITPIX']]
        pixels([frame.astype(kind) for frame in data], table)
        return len(data), ended
def raw(path):
    lines = [json.loads(line) for line in open(path + '.jsonl').read().split('\n')[:-1]]
    first, ended = lines[0], lines[-1].get('ended', 'running')
    rows = [line for line in lines if 'index' in line]
    kind = {8: '<u1', 16: '<u2', 32: '<u4'}[first['bits']]
    size = first['rows'] * first['columns']
    if rows: pixels([np.fromfile(path, kind, size, offset=row['offset']) for row in rows],
                    {name: [row[name] for row in rows] for name in rows[0]})
    return len(rows), ended
for path in sys.argv[1:]:
    print(*{'h5': h5, 'fits': cube, 'raw': raw}[path.split('.')[-1]](path))
)";

// For each file: frames that it has, which are as they should be, and how the record ended.
std::string readBack(const Folder& folder, const std::vector<std::string>& names)
{
    makeTextFile(folder.path("read.py"), kReader);
    std::string command = "timeout 50 /usr/bin/python3 " + folder.path("read.py");
    for (const std::string& name : names) {
        command += " " + folder.path(name);
    }
    return Output(command + " 2>&1");
}

template <class Pixel>
void record(const std::string& path, int frames, int rows, int columns,
            const RecordOptions& options = {})
{
    Recorder recorder(path, options);
    for (int i = 1; i <= frames; ++i) {
        ASSERT_TRUE(recorder.write(numbered<Pixel>(i, rows, columns)));
    }
    recorder.finish();
    EXPECT_EQ(recorder.books().frames, static_cast<uint64_t>(frames));
    EXPECT_EQ(recorder.books().held, 0u);
}

std::string verified(const std::string& path)
{
    return Output("fitsverify -q " + path + " 2>&1");
}

} // namespace

TEST(Recorder, KeepsFramesOfAllWidths)
{
    const Folder folder;
    std::vector<std::string> names;
    std::string expected;
    for (const std::string name : {"a.h5", "a.fits", "a.raw"}) {
        record<uint16_t>(folder.path(name), 20, 33, 57);
        record<uint8_t>(folder.path("8" + name), 7, 5, 3);
        record<uint32_t>(folder.path("32" + name), 9, 64, 64);
        names.insert(names.end(), {name, "8" + name, "32" + name});
        expected += "20 complete\n7 complete\n9 complete\n";
    }
    EXPECT_EQ(readBack(folder, names), expected);
    for (const std::string name : {"a.fits", "8a.fits", "32a.fits"}) {
        EXPECT_THAT(verified(folder.path(name)), HasSubstr("verification OK"));
    }
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.fits.frames")));
}

TEST(Recorder, CompressesHdf5)
{
    const Folder folder;
    RecordOptions options;
    options.compression = Compression::Gzip;
    record<uint16_t>(folder.path("a.h5"), 12, 64, 64, options);
    EXPECT_EQ(readBack(folder, {"a.h5"}), "12 complete\n");
    EXPECT_THAT(Output("h5dump -pH -d /entry/data/data " + folder.path("a.h5")),
                HasSubstr("COMPRESSION DEFLATE"));
}

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
    for (const std::string name : {"a.h5", "a.fits", "a.raw"}) {
        record<uint16_t>(folder.path(name), 5, 8, 8);
        record<uint16_t>(folder.path(name), 3, 16, 8, force);
    }
    EXPECT_EQ(readBack(folder, {"a.h5", "a.fits", "a.raw"}),
              "3 complete\n3 complete\n3 complete\n");
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

// A reader that follows the file while it grows.
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
    ASSERT_TRUE(recorder.write(numbered<uint16_t>(1, 32, 32)));
    ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == 1; }));
    std::string said;
    std::thread reader([&] {
        said = Output("timeout 40 /usr/bin/python3 " + folder.path("follow.py") + " " + path + " " +
                      folder.path("seen") + " 2>&1");
    });
    for (int i = 2; i <= 6; ++i) { // each when the one before it was seen
        EXPECT_TRUE(
            waitUntil([&] { return ReadFile(folder.path("seen")) == std::to_string(i - 1); }));
        EXPECT_TRUE(recorder.write(numbered<uint16_t>(i, 32, 32)));
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
    Recorder recorder(path, options);
    for (int i = 1;; ++i) {
        if (!recorder.write(numbered<uint16_t>(i, 24, 40))) ::_exit(1);
        shared->flushed = recorder.books().flushed;
        std::this_thread::sleep_for(std::chrono::microseconds(500)); // as a camera takes its time
    }
}

} // namespace

TEST(Recorder, LeavesAllThatWasFlushedWhenItIsKilled)
{
    constexpr int kills = 51;
    const Folder folder;
    std::mt19937 random(22);
    std::vector<std::string> names;
    std::vector<uint64_t> least;
    auto* const shared = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(shared, MAP_FAILED);
    for (int i = 0; i < kills; ++i) {
        names.push_back(std::to_string(i) + (i % 3 == 0 ? ".h5" : i % 3 == 1 ? ".fits" : ".raw"));
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

// A limit of the process is as a full disk.
TEST(Recorder, EndsCleanlyBeforeTheDiskIsFull)
{
    const Folder folder;
    std::vector<std::string> names;
    for (const std::string name : {"a.h5", "a.fits", "a.raw"}) {
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

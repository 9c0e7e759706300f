// Records that were damaged by others: h5py, astropy, Python. What is wrong is found, and nothing
// else.
#include "record_support.h"

#include <vxcamkit/verify.h>

using testing::HasSubstr;

namespace vxcam {

namespace {

constexpr int kFrames = 6, kRows = 12, kColumns = 20;

// Damages a copy of a record. Each way works on the numbers of frames, on cards, or on the bytes.
constexpr const char* kDamage = R"(
import sys, json, shutil, os, warnings
warnings.simplefilter('ignore')
source, folder = sys.argv[1:3]
kind = source.split('.')[-1]
numbers = {
    'sum': ('sum', 1, +1), 'crc': ('crc32', 2, +1), 'index': ('index', 3, 9),
    'index-twice': ('index', 4, -1), 'number': ('number', 3, +1), 'number-back': ('number', 5, -3),
    'begin-back': ('begin_ns', 4, -10**10), 'middle': ('middle_ns', 2, 10**9),
    'end': ('end_ns', 1, -10**9), 'uncertainty': ('uncertainty_ns', 0, -10**12),
    'incomplete': ('complete', 2, -1), 'packets': ('packets_missing', 1, +2),
    'damaged': ('packets_damaged', 3, +1), 'rows-count': ('missing_rows_count', 2, +1),
    'dropped': ('dropped', 4, +3), 'dropped-back': ('dropped', 5, -2),
    'exposure': ('exposure_us', 2, 1000), 'sim-sum': ('sim_sum', 0, 5)}
frame_bytes = 12 * 20 * 2
def bytes_at(path, offset, change):
    with open(path, 'r+b') as file:
        file.seek(offset); data = bytearray(file.read(frame_bytes)); change(data)
        file.seek(offset); file.write(data)
def flip(data): data[7] ^= 4
def zero(data): data[40:80] = bytes(40)
def damage(way, target):
    shutil.copy(source, target)
    if os.path.exists(source + '.jsonl'): shutil.copy(source + '.jsonl', target + '.jsonl')
    if kind == 'h5':
        import h5py
        with h5py.File(target, 'r+') as file:
            detector, data = file['entry/instrument/detector'], file['entry/data/data']
            if way in numbers:
                name, frame, by = numbers[way]
                detector[name][frame] += by
            elif way == 'pixel': frame = data[0]; frame[0, 3] ^= 4; data[0] = frame
            elif way == 'row': frame = data[5]; frame[2] = 0; data[5] = frame
            elif way == 'swap': data[1], data[2] = data[2], data[1]
            elif way == 'tail': data.resize(5, 0)
            elif way == 'card':
                header = json.loads(file['entry/record/header'][()]); header['EXPTIME'] = 7.5
                text = json.dumps(header).encode(); del file['entry/record/header']
                import numpy
                file['entry/record/header'] = numpy.bytes_(text)
            elif way == 'ended': file['entry/record/ended'][()] = b'running'
    elif kind == 'fits':
        from astropy.io import fits
        if way == 'tail':
            with open(target, 'r+b') as file: file.truncate(os.path.getsize(target) - 2880)
        else:
            with fits.open(target, mode='update', checksum=True) as file:
                if way in numbers:
                    name, frame, by = numbers[way]
                    file['FRAMES'].data[name][frame] += by
                elif way == 'pixel': file[0].data[0, 0, 3] ^= 4
                elif way == 'row': file[0].data[5, 2] = 0
                elif way == 'swap': file[0].data[[1, 2]] = file[0].data[[2, 1]]
                elif way == 'card': file[0].header['EXPTIME'] = 7.5
                elif way == 'ended': file[0].header['RECEND'] = 'running'
                for part in file: part.add_checksum()
    else:
        lines = [json.loads(line) for line in open(target + '.jsonl')]
        rows = [line for line in lines if 'index' in line]
        if way in numbers:
            name, frame, by = numbers[way]
            rows[frame][name] += by
        elif way == 'pixel': bytes_at(target, rows[0]['offset'], flip)
        elif way == 'row': bytes_at(target, rows[5]['offset'], zero)
        elif way == 'swap':
            with open(target, 'r+b') as file:
                both = []
                for n in (1, 2): file.seek(rows[n]['offset']); both.append(file.read(frame_bytes))
                for n in (1, 2): file.seek(rows[n]['offset']); file.write(both[2 - n])
        elif way == 'tail':
            with open(target, 'r+b') as file: file.truncate(os.path.getsize(target) - 90)
        elif way == 'card': lines[0]['header']['EXPTIME'] = 7.5
        elif way == 'ended': lines.pop()
        open(target + '.jsonl', 'w').write(''.join(json.dumps(line) + '\n' for line in lines))
for way in sys.argv[3:]:
    damage(way, folder + '/' + way + '.' + kind)
)";

struct Way {
    const char* name;
    const char* check; // that finds it
};
constexpr Way kWays[] = {{"pixel", "crc"},
                         {"row", "crc"},
                         {"swap", "crc"},
                         {"tail", "file"},
                         {"sum", "sum"},
                         {"crc", "crc"},
                         {"index", "index"},
                         {"index-twice", "index"},
                         {"number", "number"},
                         {"number-back", "number"},
                         {"begin-back", "times"},
                         {"middle", "times"},
                         {"end", "times"},
                         {"uncertainty", "times"},
                         {"incomplete", "complete"},
                         {"packets", "complete"},
                         {"damaged", "complete"},
                         {"rows-count", "rows"},
                         {"dropped", "number"},
                         {"dropped-back", "dropped"},
                         {"exposure", "header"},
                         {"sim-sum", "sum"},
                         {"card", "header"},
                         {"ended", "ended"}};

void makeRecord(const std::string& path, const RecordOptions& options = {})
{
    Recorder recorder(path, options);
    for (int i = 1; i <= kFrames; ++i) {
        FrameFacts facts;
        facts.exposure = std::chrono::milliseconds(10);
        facts.packetsExpected = kRows;
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, kRows, kColumns, facts)));
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

class Verify : public testing::TestWithParam<const char*>
{};

} // namespace

TEST_P(Verify, FindsEachKindOfDamage)
{
    const Folder folder;
    const std::string ending = GetParam(), good = folder.path("good." + ending);
    makeRecord(good);
    EXPECT_EQ(findingsOf(verifyRecord(good)), "");
    EXPECT_EQ(verifyRecord(good).frames, uint64_t{kFrames});
    makeTextFile(folder.path("damage.py"), kDamage);
    std::string command =
        "/usr/bin/python3 " + folder.path("damage.py") + " " + good + " " + folder.path();
    for (const Way& way : kWays) {
        command += std::string(" ") + way.name;
    }
    EXPECT_EQ(Output(command + " 2>&1"), "");
    for (const Way& way : kWays) {
        const std::string path = folder.path(std::string(way.name) + "." + ending);
        std::string found;
        try {
            found = findingsOf(verifyRecord(path));
        } catch (const Error& error) {
            found = std::string("file ") + error.what();
        }
        EXPECT_THAT(found, HasSubstr(std::string(way.check) + " ")) << path;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Verify, testing::Values("raw", "h5", "fits", "tif", "ser"),
                         [](const auto& one) { return std::string(one.param); });

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
    makeTextFile(options.truth, truth.substr(truth.find('\n') + 1));
    EXPECT_THAT(findingsOf(verifyRecord(folder.path("a.raw"), options)),
                HasSubstr("truth 0 the camera sent no such frame"));
}

} // namespace vxcam

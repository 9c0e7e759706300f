// What is measured of frames, in records of every kind.
#include "record_support.h"

#include <vxcamkit/error.h>
#include <vxcamkit/measures.h>
#include <vxcamkit/verify.h>

#include <cmath>
#include <cstdio>

namespace vxcam {

namespace {

constexpr int kSide = 96;
constexpr const char* kNames = "mean median noise min max saturated_pixels stars hfd fwhm "
                               "elongation";

// A star on a background that is not flat; the second frame has none.
Frame starField(int number)
{
    std::vector<uint16_t> pixels(size_t{kSide} * kSide);
    for (int row = 0; row < kSide; ++row) {
        for (int column = 0; column < kSide; ++column) {
            const double away = std::hypot(row - 40.3, column - 50.6);
            const double star = number == 2 ? 0 : 20'000 * std::exp(-away * away / 8);
            pixels[static_cast<size_t>(row) * kSide + static_cast<size_t>(column)] =
                static_cast<uint16_t>(1000 + (row * 31 + column * 17) % 23 + star);
        }
    }
    FrameFacts facts;
    facts.rows = facts.columns = kSide;
    facts.number = number;
    facts.readout = 1;
    facts.packetsExpected = kSide;
    facts.exposure = std::chrono::milliseconds(10);
    facts.times.begin = UtcTime(std::chrono::seconds(1'700'000'000 + number));
    facts.times.middle = facts.times.begin + std::chrono::milliseconds(5);
    facts.times.end = facts.times.begin + std::chrono::milliseconds(10);
    return frameOf(facts, pixels);
}

void recordFields(const std::string& path, const RecordOptions& options, bool isMeasured)
{
    Recorder recorder(path, options);
    if (isMeasured) recorder.measure();
    for (int number = 1; number <= 3; ++number) {
        ASSERT_TRUE(recorder.write(starField(number)));
    }
    recorder.finish();
}

// A line for each frame, as the reader prints it.
std::string expectedLines()
{
    std::string lines;
    for (int number = 1; number <= 3; ++number) {
        const Measures is = measuresOf(starField(number));
        char line[256];
        std::snprintf(line, sizeof line, "%.4f %.4f %.4f %u %u %llu %zu ", is.mean, is.median,
                      is.noise, is.least, is.most, static_cast<unsigned long long>(is.saturated),
                      is.stars);
        lines += line;
        std::snprintf(line, sizeof line, "%.4f %.4f %.4f\n", is.hfd, is.fwhm, is.elongation);
        lines += is.hfd > 0 ? line : "nan nan nan\n";
    }
    return lines;
}

constexpr const char* kMeasuresReader = R"(
import sys, json, h5py
from astropy.io import fits
path, *names = sys.argv[1:]
if path.endswith('.h5'):
    with h5py.File(path, 'r') as file:
        detector = file['entry/instrument/detector']
        columns = {name: list(detector[name]) for name in names if name in detector}
elif path.endswith('.fits'):
    with fits.open(path) as file:
        table = file['FRAMES'].data
        columns = {name: list(table[name]) for name in names if name in table.names}
else:
    lines = [json.loads(line) for line in open(path + '.jsonl')]
    rows = [line for line in lines if 'index' in line]
    columns = {name: [row[name] for row in rows] for name in names if name in rows[0]}
for row in zip(*columns.values()):
    print(*[f'{int(value)}' if name in ('min', 'max', 'saturated_pixels', 'stars')
            else 'nan' if value is None else f'{value:.4f}' for name, value in zip(columns, row)])
)";

} // namespace

TEST(MeasuredRecords, HaveTheMeasuresOfEachFrame)
{
    const Folder folder;
    makeTextFile(folder.path("read.py"), kMeasuresReader);
    const std::string program = "/usr/bin/python3 " + folder.path("read.py") + " ";
    const std::string expected = expectedLines();
    EXPECT_THAT(expected, testing::HasSubstr(" 0 nan nan nan\n"));
    for (const bool isMeasured : {true, false}) {
        for (const std::string name : {"a.h5", "a.fits", "b.fits", "a.raw", "a.tif", "a.ser"}) {
            RecordOptions options;
            options.force = true;
            if (name == "b.fits") options.compression = Compression::Gzip;
            const std::string path = folder.path(name);
            recordFields(path, options, isMeasured);
            EXPECT_EQ(Output(program + path + " " + kNames + " 2>&1"), isMeasured ? expected : "")
                << name;
            EXPECT_TRUE(verifyRecord(path).isGood()) << name;
        }
    }
}

TEST(MeasuredRecords, HaveTheMeasuresInTheHeaderOfEachCompressedFrame)
{
    const Folder folder;
    makeTextFile(folder.path("read.py"),
                 "import sys\n"
                 "from astropy.io import fits\n"
                 "with fits.open(sys.argv[1]) as file:\n"
                 "    for hdu in file:\n"
                 "        if isinstance(hdu, fits.CompImageHDU):\n"
                 "            print(hdu.header['NSTARS'], hdu.header['DATAMAX'])\n");
    std::string expected;
    for (int number = 1; number <= 3; ++number) {
        const Measures is = measuresOf(starField(number));
        expected += std::to_string(is.stars) + " " + std::to_string(is.most) + "\n";
    }
    for (const Compression compression : {Compression::Rice, Compression::Gzip}) {
        RecordOptions options;
        options.force = true;
        options.compression = compression;
        recordFields(folder.path("a.fits"), options, true);
        EXPECT_EQ(Output("/usr/bin/python3 " + folder.path("read.py") + " " +
                         folder.path("a.fits") + " 2>&1"),
                  expected);
    }
}

TEST(MeasuredRecords, AreMeasuredFromTheFirstFrameOn)
{
    const Folder folder;
    Recorder recorder(folder.path("a.raw"));
    ASSERT_TRUE(recorder.write(starField(1)));
    try {
        recorder.measure();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::Usage);
    }
}

} // namespace vxcam

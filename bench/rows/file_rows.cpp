// W1: frames into files; W2 to W5: into records.
#include "folder.h"
#include "receiver.h"
#include "rows.h"
#include "written_blocks.h"

#include <vxcamkit/frame_writer.h>
#include <vxcamkit/recorder.h>

#include <fitsio.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr size_t gnFrameBytes = size_t(8) << 20;
constexpr int gnSide = 2048;
constexpr size_t gnBuffers = 8; // as a camera has them

// `pixelOf`: of the number of a frame, and of a pixel in it.
template <class PixelOf>
std::vector<vxcam::Frame> FramesOf(PixelOf pixelOf)
{
    std::vector<vxcam::Frame> frames;
    for (size_t number = 0; number < gnBuffers; ++number) {
        vxcam::FrameFacts facts;
        facts.rows = facts.columns = gnSide;
        vxcam::Frame frame(facts);
        auto* const pixels = static_cast<uint16_t*>(frame.mutableData());
        for (size_t i = 0; i < gnFrameBytes / sizeof *pixels; ++i) {
            pixels[i] = pixelOf(number, i);
        }
        frames.push_back(frame);
    }
    return frames;
}

// A night sky: even light, with the noise that a sensor adds. Compressors go by such.
std::vector<vxcam::Frame> MakeSky()
{
    std::mt19937 random(22);
    std::normal_distribution<float> noise(1000, 9);
    return FramesOf([&](size_t, size_t) { return static_cast<uint16_t>(noise(random)); });
}

std::vector<vxcam::Frame> MakeFrames()
{
    return FramesOf([](size_t number, size_t i) {
        return static_cast<uint16_t>((i + number) * 2654435761U >> 16U);
    });
}

double Megabytes(int frames)
{
    return frames * static_cast<double>(gnFrameBytes) / 1e6;
}

// As it comes from a camera: not added up before.
vxcam::Frame Fresh(const std::vector<vxcam::Frame>& frames, int number)
{
    const vxcam::Frame& source = frames[static_cast<size_t>(number) % frames.size()];
    return {source.facts(), {const_cast<void*>(source.data()), [](void*) {}}};
}

// Whole FITS files, on the disk, with their names.
double WriteFrames(const std::vector<vxcam::Frame>& frames, int count)
{
    const tsFolder folder;
    const double start = WallSeconds();
    vxcam::FrameWriter writer;
    for (int number = 0; number < count; ++number) {
        const auto path = folder.path / (std::to_string(number) + ".fits");
        writer.write(Fresh(frames, number), {{path.string()}});
    }
    writer.finish();
    return Megabytes(count) / (WallSeconds() - start);
}

// One record, on the disk.
double WriteRecord(const std::vector<vxcam::Frame>& frames, const char* name,
                   vxcam::Compression compression, int count)
{
    const tsFolder folder;
    vxcam::RecordOptions options;
    options.compression = compression;
    const double start = WallSeconds();
    vxcam::Recorder recorder((folder.path / name).string(), options);
    for (int number = 0; number < count; ++number) {
        if (!recorder.write(Fresh(frames, number))) break;
    }
    recorder.finish();
    return Megabytes(count) / (WallSeconds() - start);
}

// As realloc(), with zeros behind what was there: the library reads what it has not written yet.
void* Grown(void* memory, size_t count)
{
    const size_t before = memory != nullptr ? malloc_usable_size(memory) : 0;
    void* const larger = std::realloc(memory, count);
    if (larger != nullptr && count > before) {
        std::memset(static_cast<char*>(larger) + before, 0, count - before);
    }
    return larger;
}

// What cfitsio's Rice does with them on one thread, in memory: for all threads that a record has.
double CompressFrames(const std::vector<vxcam::Frame>& frames, int count)
{
    constexpr int threads = 2;
    const double start = WallSeconds();
    for (int number = 0; number < count; ++number) {
        size_t size = 0;
        void* memory = nullptr;
        fitsfile* file = nullptr;
        int status = 0;
        long axes[] = {gnSide, gnSide}, first[] = {1, 1};
        fits_create_memfile(&file, &memory, &size, size_t{1} << 20U, Grown, &status);
        fits_set_compression_type(file, RICE_1, &status);
        fits_create_img(file, USHORT_IMG, 2, axes, &status);
        void* const pixels =
            const_cast<void*>(frames[static_cast<size_t>(number) % frames.size()].data());
        fits_write_subset(file, TUSHORT, first, axes, pixels, &status);
        fits_flush_file(file, &status);
        int ignored = 0;
        fits_close_file(file, &ignored);
        std::free(memory);
        if (status != 0) {
            throw std::runtime_error("cfitsio does not compress: " + std::to_string(status));
        }
    }
    return threads * Megabytes(count) / (WallSeconds() - start);
}

} // namespace

void MeasureFiles(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    using vxcam::Compression;
    const int count = options.quick ? 8 : 100;
    const std::vector<vxcam::Frame> frames = MakeFrames();
    const auto beside = [&](const char* row, const char* what, auto ours) {
        if (!choice.Wants(row)) return;
        table.Compare(row, what, "MB/s", true, options.repeats, ours,
                      [&] { return WriteBlocks(count); });
    };
    const auto record = [&](const char* name) {
        return
            [&frames, name, count] { return WriteRecord(frames, name, Compression::None, count); };
    };
    beside("W1", "8 MiB frames into FITS files, 8 MiB blocks into one",
           [&] { return WriteFrames(frames, count); });
    beside("W2", "the same frames into a raw record", record("a.raw"));
    beside("W3", "the same frames into an HDF5 record", record("a.h5"));
    beside("W4", "the same frames into a FITS cube", record("a.fits"));
    if (!choice.Wants("W5")) return;
    const std::vector<vxcam::Frame> sky = MakeSky();
    table.Compare(
        "W5", "frames of the sky into a Rice record, cfitsio's Rice on as many threads", "MB/s",
        true, options.repeats, [&] { return WriteRecord(sky, "a.fits", Compression::Rice, count); },
        [&] { return CompressFrames(sky, count); });
}

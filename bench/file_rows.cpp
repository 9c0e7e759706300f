// W1: frames into files.
#include "receiver.h"
#include "rows.h"

#include <vxcamkit/frame_writer.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr size_t gnFrameBytes = size_t(8) << 20;
constexpr size_t gnAlignment = 4096;
constexpr int gnSide = 2048;
constexpr size_t gnBuffers = 8; // as a camera has them

// In the present folder, which is gone afterwards.
struct tsFolder {
    const std::filesystem::path path =
        std::filesystem::absolute("vxbench-" + std::to_string(getpid()));
    tsFolder() { std::filesystem::create_directory(path); }
    ~tsFolder() { std::filesystem::remove_all(path); }
};

std::vector<vxcam::Frame> MakeFrames()
{
    std::vector<vxcam::Frame> frames;
    for (size_t number = 0; number < gnBuffers; ++number) {
        vxcam::FrameFacts facts;
        facts.rows = facts.columns = gnSide;
        vxcam::Frame frame(facts);
        auto* const pixels = static_cast<uint16_t*>(frame.mutableData());
        for (size_t i = 0; i < gnFrameBytes / sizeof *pixels; ++i) {
            pixels[i] = static_cast<uint16_t>((i + number) * 2654435761U >> 16U);
        }
        frames.push_back(frame);
    }
    return frames;
}

double Megabytes(int frames)
{
    return frames * static_cast<double>(gnFrameBytes) / 1e6;
}

// Whole FITS files, on the disk, with their names.
double WriteFrames(const std::vector<vxcam::Frame>& frames, int count)
{
    const tsFolder folder;
    const double start = WallSeconds();
    vxcam::FrameWriter writer;
    for (int number = 0; number < count; ++number) {
        const auto path = folder.path / (std::to_string(number) + ".fits");
        // A frame that comes from a camera has not been added up before.
        const vxcam::Frame& source = frames[static_cast<size_t>(number) % frames.size()];
        const vxcam::Frame frame(source.facts(), {const_cast<void*>(source.data()), [](void*) {}});
        writer.write(frame, {{path.string()}});
    }
    writer.finish();
    return Megabytes(count) / (WallSeconds() - start);
}

// As `dd oflag=direct bs=8M` does it: one file, not waited for.
double WriteBlocks(int count)
{
    const tsFolder folder;
    const std::unique_ptr<void, void (*)(void*)> block(
        std::aligned_alloc(gnAlignment, gnFrameBytes), std::free);
    std::fill_n(static_cast<char*>(block.get()), gnFrameBytes, 'x');
    const std::string path = (folder.path / "blocks").string();
    const double start = WallSeconds();
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_DIRECT, 0600);
    if (file < 0) file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600); // it has no disk
    if (file < 0) throw std::runtime_error(path + ": cannot be made");
    for (int number = 0; number < count; ++number) {
        if (write(file, block.get(), gnFrameBytes) != static_cast<ssize_t>(gnFrameBytes)) {
            close(file);
            throw std::runtime_error(path + ": cannot be written");
        }
    }
    close(file);
    return Megabytes(count) / (WallSeconds() - start);
}

} // namespace

void MeasureFiles(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (!choice.Wants("W1")) return;
    const int count = options.quick ? 8 : 100;
    const std::vector<vxcam::Frame> frames = MakeFrames();
    table.Compare(
        "W1", "8 MiB frames into FITS files, 8 MiB blocks into one", "MB/s", true, options.repeats,
        [&] { return WriteFrames(frames, count); }, [&] { return WriteBlocks(count); });
}

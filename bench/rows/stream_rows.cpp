// S1 to S5: pixels from a socket into the application's buffer.
#include "receiver.h"
#include "rows.h"

#include "vxcamiface.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <thread>
#include <unistd.h>

namespace {

constexpr size_t gnSmallChunk = 4096;
constexpr size_t gnLargeChunk = 65536;
constexpr double gnFixedRate = 200; // MB/s
constexpr int gnReceiverCore = 0;
constexpr int gnSenderCore = 1;

int FramesFor(const tsStream& stream, double megabytes)
{
    const double frames = megabytes * 1e6 / static_cast<double>(stream.PixelBytes());
    return std::clamp(static_cast<int>(frames), 1, 30000);
}

std::string Shape(const tsStream& stream)
{
    return std::to_string(stream.bits) + "-bit rows of " + std::to_string(stream.columns);
}

// Megabytes of pixels a second, both flat out. Both sides share the same two cores.
void CompareSpeed(tcTable& table, const std::string& name, const tsStream& stream,
                  const tsBenchOptions& options)
{
    const tcSender sender(stream);
    const int frames = FramesFor(stream, options.quick ? 40 : 400);
    const double megabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e6;
    tcLibraryReceiver library(sender);
    tcBareReceiver bare(sender, gnSmallChunk);
    library.Receive(1);
    bare.Receive(1);
    table.Compare(
        name, Shape(stream) + ", bare recv of 4096", "MB/s", true, options.repeats,
        [&] { return megabytes / library.Receive(frames).seconds; },
        [&] { return megabytes / bare.Receive(frames).seconds; });
}

// Frames of 8 MiB that are kept: into buffers in turn, against one buffer and a copy.
void CompareKeeping(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    const tcSender sender(stream);
    const int frames = FramesFor(stream, options.quick ? 40 : 400);
    const double megabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e6;
    tcLibraryReceiver turn(sender, teKeeping::eInTurn), copy(sender, teKeeping::eCopied);
    turn.Receive(tcLibraryReceiver::nKept);
    copy.Receive(tcLibraryReceiver::nKept);
    table.Compare(
        "S5", "8 MiB frames into buffers in turn, into one and copied", "MB/s", true,
        options.repeats, [&] { return megabytes / turn.Receive(frames).seconds; },
        [&] { return megabytes / copy.Receive(frames).seconds; });
    table.Compare(
        "S5", "the same", "CPU s/GB", false, options.repeats,
        [&] { return turn.Receive(frames).cpuSeconds / megabytes * 1e3; },
        [&] { return copy.Receive(frames).cpuSeconds / megabytes * 1e3; });
}

// CPU seconds of the receiver for each GB, at a fixed rate and on a core of its own.
void CompareCpu(tcTable& table, const std::string& name, tsStream stream, size_t chunk,
                const tsBenchOptions& options)
{
    stream.megabytesPerSecond = gnFixedRate;
    stream.cpu = gnSenderCore;
    const tcSender sender(stream);
    const int frames = FramesFor(stream, options.quick ? 10 : 100);
    const double gigabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e9;
    PinToCore(gnReceiverCore);
    {
        tcLibraryReceiver library(sender);
        tcBareReceiver bare(sender, chunk);
        library.Receive(1);
        bare.Receive(1);
        const std::string how = stream.byPacket ? ", packet by packet" : ", frame by frame";
        table.Compare(
            name, Shape(stream) + how + ", bare recv of " + std::to_string(chunk), "CPU s/GB",
            false, options.repeats, [&] { return library.Receive(frames).cpuSeconds / gigabytes; },
            [&] { return bare.Receive(frames).cpuSeconds / gigabytes; });
    }
    PinToCore(-1);
}

// Resident bytes of this process.
double ResidentBytes()
{
    double total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void CompareManyCameras(tcTable& table, const tsBenchOptions& options)
{
    constexpr int cameras = 16;
    tsStream stream;
    stream.rows = 512;
    const tcSender sender(stream);
    const int frames = FramesFor(stream, options.quick ? 5 : 50);
    const double megabytes = static_cast<double>(stream.PixelBytes()) * frames * cameras / 1e6;

    std::vector<std::unique_ptr<tcLibraryReceiver>> libraries;
    std::vector<std::unique_ptr<tcBareReceiver>> bares;
    for (int i = 0; i < cameras; ++i) {
        libraries.push_back(std::make_unique<tcLibraryReceiver>(sender));
        bares.push_back(std::make_unique<tcBareReceiver>(sender, gnSmallChunk));
    }
    table.Compare(
        "S4", "16 cameras on 2 cores, 16 bare loops", "MB/s", true, options.repeats,
        [&] {
            const double start = WallSeconds();
            for (auto& library : libraries) {
                library->Start(frames);
            }
            for (auto& library : libraries) {
                library->Wait();
            }
            return megabytes / (WallSeconds() - start);
        },
        [&] {
            const double start = WallSeconds();
            std::vector<std::thread> loops;
            for (auto& bare : bares) {
                loops.emplace_back([&] { bare->Receive(frames); });
            }
            for (std::thread& loop : loops) {
                loop.join();
            }
            return megabytes / (WallSeconds() - start);
        });
}

// What an open camera takes beside its images: opened, used once for every kind of call that
// allocates, with an image so small that it does not count.
void MeasureMemory(tcTable& table)
{
    constexpr int cameras = 64;
    tsStream stream;
    stream.rows = 1;
    stream.columns = 16;
    const tcSender sender(stream);
    const auto open = [&] {
        auto library = std::make_unique<tcLibraryReceiver>(sender);
        library->Receive(1);
        return library;
    };
    auto first = open();
    const double before = ResidentBytes();
    std::vector<std::unique_ptr<tcLibraryReceiver>> libraries;
    for (int i = 0; i < cameras; ++i) {
        libraries.push_back(open());
    }
    const double each = (ResidentBytes() - before) / cameras;
    table.Single("S4", "resident memory a camera, beside images", "KiB", {each / 1024});
}

} // namespace

void MeasureStreams(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (choice.Wants("S4")) MeasureMemory(table);
    if (choice.Wants("S1")) CompareSpeed(table, "S1", {}, options);
    if (choice.Wants("S2")) {
        for (bool byPacket : {false, true}) {
            tsStream stream;
            stream.byPacket = byPacket;
            CompareCpu(table, "S2", stream, gnSmallChunk, options);
            CompareCpu(table, "S2", stream, gnLargeChunk, options);
        }
    }
    if (choice.Wants("S3")) {
        for (uint16_t columns : {512, 8192}) {
            tsStream stream;
            stream.columns = columns;
            stream.rows = columns == 8192 ? 512 : 2048;
            CompareSpeed(table, "S3", stream, options);
            CompareCpu(table, "S3", stream, gnSmallChunk, options);
        }
        tsStream binned;
        binned.bits = 32;
        binned.columns = 1024;
        CompareSpeed(table, "S3", binned, options);
        CompareCpu(table, "S3", binned, gnSmallChunk, options);
    }
    if (choice.Wants("S4")) CompareManyCameras(table, options);
    if (choice.Wants("S5")) CompareKeeping(table, options);
}

// vxlongway: frames over a way with a delay, through the library and through a bare loop of recv()
// that leaves its buffer to the system's tuning.
#include "receiver.h"
#include "tcDelayLine.h"
#include "vxexport.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

struct tsOptions {
    double roundTripMs = 50;
    int bufferLimit = 212992; // what systems grant a receive buffer that nobody has tuned
    int repeats = 5;
    int frames = 8; // of 8 MB
};
tsOptions gtOptions;

constexpr size_t gnChunk = 65536;

// The system's limit holds for all networks of the machine, so it is imitated here.
int LimitBuffer(int bytes)
{
    return std::min(bytes, gtOptions.bufferLimit);
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool ParseOptions(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const double value = std::atof(argv[i + 1]);
        if (name == "--round-trip" && value > 0) {
            gtOptions.roundTripMs = value;
        } else if (name == "--limit" && value > 0) {
            gtOptions.bufferLimit = static_cast<int>(value);
        } else if (name == "--repeats" && value >= 1) {
            gtOptions.repeats = static_cast<int>(value);
        } else if (name == "--frames" && value >= 1) {
            gtOptions.frames = static_cast<int>(value);
        } else {
            return false;
        }
    }
    return argc % 2 == 1;
}

void Measure()
{
    tcDelayLine way(std::chrono::microseconds(static_cast<int>(gtOptions.roundTripMs * 500)));
    tsStream stream;
    stream.address = tcDelayLine::sFarAddress;
    way.EnterFar();
    const tcSender sender(stream);
    way.EnterNear();
    way.Start();
    tcLibraryReceiver library(sender);
    tcBareReceiver bare(sender, gnChunk, teBuffer::eTuned);
    const double megabytes = static_cast<double>(stream.PixelBytes()) * gtOptions.frames / 1e6;
    std::vector<double> byLibrary, byBare;
    for (int i = 0; i <= gtOptions.repeats; ++i) {
        const double first = megabytes / library.Receive(gtOptions.frames).seconds;
        const double second = megabytes / bare.Receive(gtOptions.frames).seconds;
        if (i == 0) continue; // the connections find their pace
        printf("  %6.1f  %6.1f MB/s\n", first, second);
        fflush(stdout);
        byLibrary.push_back(first);
        byBare.push_back(second);
    }
    printf(
        "round trip %g ms, buffers of %d bytes at most: library %.1f MB/s, bare %.1f MB/s, ratio "
        "%.2f (medians of %d)\n",
        gtOptions.roundTripMs, gtOptions.bufferLimit, Median(byLibrary), Median(byBare),
        Median(byLibrary) / Median(byBare), gtOptions.repeats);
}

} // namespace

// Stands in front of the system's own for the whole program.
extern "C" VX_EXPORT int setsockopt(int descriptor, int level, int name, const void* value,
                                    socklen_t size) noexcept
{
    using tFunction = int(int, int, int, const void*, socklen_t);
    static const auto real = reinterpret_cast<tFunction*>(dlsym(RTLD_NEXT, "setsockopt"));
    if (level != SOL_SOCKET || name != SO_RCVBUF) return real(descriptor, level, name, value, size);
    const int bytes = LimitBuffer(*static_cast<const int*>(value));
    return real(descriptor, level, name, &bytes, sizeof bytes);
}

int main(int argc, char** argv)
try {
    if (!ParseOptions(argc, argv)) {
        fprintf(stderr, "usage: vxlongway [--round-trip MS] [--limit BYTES] [--repeats N] "
                        "[--frames N]\n");
        return 1;
    }
    Measure();
    return 0;
} catch (const std::exception& error) {
    fprintf(stderr, "vxlongway: %s\n", error.what());
    return 1;
}

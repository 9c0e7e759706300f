// The Python module beside the kit and the C interface that it stands on.
#include "receiver.h"
#include "rows.h"
#include "spawned_program.h"

#include "vxcamiface.h"

#include <vxcamkit/camera.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#ifdef VX_PYTHON_PACKAGE

namespace {

constexpr int kOwnCore = 0;
constexpr int kSenderCore = 1;
constexpr int kFirstFrames = 24;

// A program in Python with an open camera, which does what it is asked.
class PythonSide
{
public:
    explicit PythonSide(const tcSender& sender)
    {
        signal(SIGPIPE, SIG_IGN); // a side that has ended is told as such
        int asked[2], told[2];
        if (pipe2(asked, O_CLOEXEC) != 0 || pipe2(told, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipes");
        }
        setenv("PYTHONPATH", VX_PYTHON_PACKAGE, 1);
        const std::vector<std::string> words = {VX_PYTHON, VX_PYTHON_SIDE, TargetOf(sender)};
        program_.emplace(words, asked[0], told[1]);
        close(asked[0]);
        close(told[1]);
        asks_ = fdopen(asked[1], "w");
        tells_ = fdopen(told[0], "r");
    }
    ~PythonSide()
    {
        fclose(asks_);
        fclose(tells_);
    }
    PythonSide(const PythonSide&) = delete;
    PythonSide& operator=(const PythonSide&) = delete;

    double ask(const char* what, int count)
    {
        double told = 0;
        fprintf(asks_, "%s %d\n", what, count);
        fflush(asks_);
        if (fscanf(tells_, "%lf", &told) != 1)
            throw std::runtime_error("the Python side has ended");
        return told;
    }

private:
    std::optional<tcSpawnedProgram> program_; // ends when nothing is asked any more
    FILE* asks_ = nullptr;
    FILE* tells_ = nullptr;
};

double secondsOfKit(vxcam::Camera& camera, int frames)
{
    vxcam::Plan plan;
    plan.frames = frames;
    plan.bits = 16;
    plan.settings = false;
    const double begin = WallSeconds();
    vxcam::Stream stream = camera.stream(plan);
    std::optional<vxcam::Frame> frame; // held until the next one is there, as a loop in Python does
    while ((frame = stream.next())) {
        if (!frame->complete()) throw std::runtime_error("a frame is not complete");
    }
    if (stream.end() != vxcam::ReadoutEnd::Complete) throw std::runtime_error("lost");
    return WallSeconds() - begin;
}

void compareFrames(tcTable& table, const tsBenchOptions& options)
{
    const tcSender sender({});
    PythonSide python(sender);
    vxcam::Camera kit = vxcam::Camera::open(TargetOf(sender));
    const int frames = options.quick ? 5 : 150;
    const double megabytes = static_cast<double>(sender.Stream().PixelBytes()) * frames / 1e6;
    // So many that each buffer was written to, and Python has loaded what it needs.
    python.ask("frames", kFirstFrames);
    secondsOfKit(kit, kFirstFrames);
    table.Compare(
        "N1", "8 MiB frames into NumPy, through the kit in C++", "MB/s", true, options.repeats,
        [&] { return megabytes / python.ask("frames", frames); },
        [&] { return megabytes / secondsOfKit(kit, frames); });
}

// Everything but the sender on one core, as for the getter itself.
void compareReads(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.rows = 16;
    stream.cpu = kSenderCore;
    const tcSender sender(stream);
    PinToCore(kOwnCore);
    PythonSide python(sender);
    tcLibraryReceiver library(sender);
    const int reads = options.quick ? 100 : 3000;
    int trigger = 0;
    table.Compare(
        "N2", "a property read from Python, through the C interface", "us", false, options.repeats,
        [&] { return python.ask("reads", reads); },
        [&] {
            std::vector<double> times;
            for (int i = 0; i < reads; ++i) {
                const double begin = WallSeconds();
                if (VXGetTrigger(library.Handle(), &trigger) != 0) throw std::runtime_error("mute");
                times.push_back((WallSeconds() - begin) * 1e6);
            }
            return Percentile(std::move(times), 50);
        });
    PinToCore(-1);
}

} // namespace

void MeasurePython(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (choice.Wants("N1")) compareFrames(table, options);
    if (choice.Wants("N2")) compareReads(table, options);
}

#else

void MeasurePython(tcTable&, const tsRowChoice& choice, const tsBenchOptions&)
{
    for (const char* row : {"N1", "N2"}) {
        if (choice.Wants(row)) fprintf(stderr, "%s left out: built without Python\n", row);
    }
}

#endif

// The camera kit beside the C interface that it stands on.
#include "receiver.h"
#include "rows.h"
#include "vxcamiface.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/simulated_camera.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

// An open camera of the kit, whose frames are let go as they come.
class KitReceiver
{
public:
    explicit KitReceiver(const tcSender& sender)
        : camera_(vxcam::Camera::open(std::string(sender.Stream().address) + ":" +
                                      std::to_string(sender.Port())))
    {}

    tsCost receive(int frames)
    {
        vxcam::Plan plan;
        plan.frames = frames;
        plan.settings = false;
        return Measure([&] {
            vxcam::Stream stream = camera_.stream(plan);
            while (stream.next()) {
            }
            if (stream.end() != vxcam::ReadoutEnd::Complete) throw std::runtime_error("lost");
        });
    }

private:
    vxcam::Camera camera_;
};

// Both sides of one row: frames of 8 MiB, flat out or at a fixed rate.
void compare(tcTable& table, const tsStream& stream, bool isCost, const tsBenchOptions& options)
{
    const tcSender sender(stream);
    const double wanted = isCost ? 100 : 400; // frames, and more MB than a cache has
    const int frames = std::max(1, static_cast<int>(options.quick ? wanted / 20 : wanted) / 2);
    const double megabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e6;
    KitReceiver kit(sender);
    tcLibraryReceiver library(sender);
    kit.receive(1);
    library.Receive(1);
    const auto figureOf = [&](const tsCost& cost) {
        return isCost ? cost.cpuSeconds / megabytes * 1e3 : megabytes / cost.seconds;
    };
    table.Compare(
        "K1", isCost ? "the same at 200 MB/s" : "8 MiB frames of the kit, of the C interface",
        isCost ? "CPU s/GB" : "MB/s", !isCost, options.repeats,
        [&] { return figureOf(kit.receive(frames)); },
        [&] { return figureOf(library.Receive(frames)); });
}

// From nothing to a frame in memory, and the camera closed again, as a program that takes one
// picture does it; the kit also reads all settings, which the frame then knows.
void compareOpening(tcTable& table, const tsBenchOptions& options)
{
    vxcam::SimulatorOptions small;
    small.sensor = {64, 64};
    const vxcam::SimulatedCamera simulated(small);
    const std::string target = simulated.target();
    const auto port = static_cast<unsigned short>(std::stoi(target.substr(target.find(':') + 1)));
    std::vector<unsigned short> image(64 * 64);
    const auto withKit = [&] {
        vxcam::Camera camera = vxcam::Camera::open(target);
        camera.grab();
    };
    const auto withLibrary = [&] {
        const int handle = VXOpenENetCamera("127.0.0.1", port);
        VXReadCCDArea(handle, image.data(), 1, 0);
        if (VXWaitCompletion(handle, 10000) != 0) throw std::runtime_error("no frame");
        VXCloseCamera(handle);
    };
    const auto figureOf = [&](const auto& once) {
        std::vector<double> times;
        for (int i = 0; i < (options.quick ? 2 : 20); ++i) {
            times.push_back(Measure(once).seconds * 1e3);
        }
        return Percentile(times, 50);
    };
    {
        vxcam::Camera camera = vxcam::Camera::open(target);
        camera.set("exposure", std::chrono::milliseconds(0));
    }
    table.Compare(
        "K2", "opening, a small frame and closing by the kit, by the C interface", "ms", false,
        options.repeats, [&] { return figureOf(withKit); }, [&] { return figureOf(withLibrary); });
}

} // namespace

void MeasureKit(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (choice.Wants("K2")) compareOpening(table, options);
    if (!choice.Wants("K1")) return;
    tsStream stream;
    compare(table, stream, false, options);
    stream.megabytesPerSecond = 200;
    compare(table, stream, true, options);
}

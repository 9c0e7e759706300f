// V1: what it costs to watch, and to record, all bytes of a readout.
#include "folder.h"
#include "receiver.h"
#include "rows.h"
#include "vxcamext.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/wire_capture.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>

namespace {

constexpr double gnRate = 200; // MB/s
constexpr int gnReceiverCore = 0, gnSenderCore = 1;
constexpr int gnFrames = 50; // of 8 MiB

std::atomic<uint64_t> gnTapped{0}; // bytes

void OnTap(int, const tsTapRecord* record, void*)
{
    gnTapped.fetch_add(record->Length, std::memory_order_relaxed);
}

// CPU seconds a GB of S2's readout: with a tap that counts all bytes, and without one.
void CompareTap(tcTable& table, const tcSender& sender, int frames, double gigabytes,
                const tsBenchOptions& options)
{
    tcLibraryReceiver tapped(sender), plain(sender);
    VXSetTap(tapped.Handle(), eTapBytesReceived | eTapBytesSent, OnTap, nullptr);
    tapped.Receive(1);
    plain.Receive(1);
    table.Compare(
        "V1", "200 MB/s with a tap that counts bytes, without", "CPU s/GB", false, options.repeats,
        [&] {
            gnTapped = 0;
            const tsCost cost = tapped.Receive(frames);
            if (static_cast<double>(gnTapped) < gigabytes * 1e9) {
                throw std::runtime_error("the tap saw too little");
            }
            return cost.cpuSeconds / gigabytes;
        },
        [&] { return plain.Receive(frames).cpuSeconds / gigabytes; });
}

// A kit's camera that is opened, takes frames and is closed; recorded or not.
tsCost Take(const tcSender& sender, int frames, vxcam::WireCapture* capture)
{
    const auto target = vxcam::Target::parse(std::string(sender.Stream().address) + ":" +
                                             std::to_string(sender.Port()));
    return Measure([&] {
        vxcam::Camera camera = capture != nullptr ? vxcam::Camera::open(target, {}, *capture)
                                                  : vxcam::Camera::open(target);
        vxcam::Plan plan;
        plan.frames = frames;
        plan.settings = false;
        vxcam::Stream stream = camera.stream(plan);
        while (stream.next()) {
        }
        if (stream.end() != vxcam::ReadoutEnd::Complete) throw std::runtime_error("lost");
        camera.close();
        if (capture != nullptr) capture->finish();
    });
}

void CompareCapture(tcTable& table, const tcSender& sender, int frames, double gigabytes,
                    const tsBenchOptions& options)
{
    const auto recorded = [&] {
        const tsFolder folder;
        vxcam::WireCapture capture((folder.path / "run.vxw").string());
        const tsCost cost = Take(sender, frames, &capture);
        if (static_cast<double>(capture.books().fileBytes) < gigabytes * 1e9) {
            throw std::runtime_error("the recording has too little");
        }
        return cost.cpuSeconds / gigabytes;
    };
    table.Compare("V1", "the same by the kit, recorded into a file, not recorded", "CPU s/GB",
                  false, options.repeats, recorded,
                  [&] { return Take(sender, frames, nullptr).cpuSeconds / gigabytes; });
}

} // namespace

void MeasureWire(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (!choice.Wants("V1")) return;
    tsStream stream;
    stream.megabytesPerSecond = gnRate;
    stream.cpu = gnSenderCore;
    const tcSender sender(stream);
    const int frames = options.quick ? 1 : gnFrames;
    const double gigabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e9;
    PinToCore(gnReceiverCore);
    CompareTap(table, sender, frames, gigabytes, options);
    CompareCapture(table, sender, frames, gigabytes, options);
    PinToCore(-1);
}

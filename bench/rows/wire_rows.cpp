// V1: what it costs to watch, and to record, all bytes of a readout. V2: what it costs that each
// camera of the kit keeps what it did last.
#include "folder.h"
#include "receiver.h"
#include "record/flight_recorder.h"
#include "rows.h"
#include "vxcamext.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/wire_capture.h>

#include <algorithm>
#include <atomic>
#include <memory>
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

void CompareFlight(tcTable& table, const tcSender& sender, int frames, double gigabytes,
                   const tsBenchOptions& options)
{
    const auto recorder = std::make_unique<vxcam::FlightRecorder>(); // outlives who tells it
    tcLibraryReceiver kept(sender), plain(sender);
    const auto tap = [](int, const tsTapRecord* record, void* user) {
        static_cast<vxcam::FlightRecorder*>(user)->tap(*record);
    };
    const auto frame = [](int, const tsFrameRecord* record, void* user) {
        if (user != nullptr) static_cast<vxcam::FlightRecorder*>(user)->frame(*record);
    };
    VXSetTap(kept.Handle(), eTapMessagesReceived | eTapMessagesSent | eTapLink, tap,
             recorder.get());
    VXSetFrameCallback(kept.Handle(), frame, recorder.get());
    VXSetFrameCallback(plain.Handle(), frame, nullptr);
    kept.Receive(1);
    plain.Receive(1);
    table.Compare(
        "V2", "200 MB/s with what the camera did last being kept, without", "CPU s/GB", false,
        options.repeats,
        [&] {
            const size_t before = recorder->entries().size();
            const tsCost cost = kept.Receive(frames);
            if (recorder->entries().size() < before + static_cast<size_t>(frames)) {
                throw std::runtime_error("too little was kept");
            }
            return cost.cpuSeconds / gigabytes;
        },
        [&] { return plain.Receive(frames).cpuSeconds / gigabytes; });
}

} // namespace

void MeasureWire(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (!choice.Wants("V1") && !choice.Wants("V2")) return;
    tsStream stream;
    stream.megabytesPerSecond = gnRate;
    stream.cpu = gnSenderCore;
    const tcSender sender(stream);
    const int frames = options.quick ? 1 : gnFrames;
    const double gigabytes = static_cast<double>(stream.PixelBytes()) * frames / 1e9;
    PinToCore(gnReceiverCore);
    if (choice.Wants("V1")) {
        CompareTap(table, sender, frames, gigabytes, options);
        CompareCapture(table, sender, frames, gigabytes, options);
    }
    if (choice.Wants("V2")) CompareFlight(table, sender, frames, gigabytes, options);
    PinToCore(-1);
}

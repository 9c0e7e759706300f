// W6 and W7: records of what comes from a camera.
#include "folder.h"
#include "receiver.h"
#include "rows.h"
#include "written_blocks.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/recorder.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace {

constexpr double gnLinkRate = 1180;       // MB/s that a link of 10 Gbit/s leaves to pixels
constexpr int gnBuffers = 16, gnKept = 7; // of these, with the record

// MB/s of a readout whose frames `use` takes, until `end` has come back.
template <class Use, class End>
double Receive(vxcam::Camera& camera, int frames, Use use, End end)
{
    vxcam::Plan plan;
    plan.frames = frames;
    plan.settings = false;
    plan.buffers = gnBuffers;
    double bytes = 0;
    const tsCost cost = Measure([&] {
        vxcam::Stream stream = camera.stream(plan);
        while (std::optional<vxcam::Frame> frame = stream.next()) {
            bytes += static_cast<double>(frame->bytes());
            use(std::move(*frame));
        }
        if (stream.end() != vxcam::ReadoutEnd::Complete) throw std::runtime_error("lost");
        end();
    });
    return bytes / 1e6 / cost.seconds;
}

double ReceiveOnly(vxcam::Camera& camera, int frames)
{
    return Receive(
        camera, frames, [](vxcam::Frame) {}, [] {});
}

// On the disk as well.
double Record(vxcam::Camera& camera, int frames, const char* name)
{
    const tsFolder folder;
    vxcam::RecordOptions options;
    options.most = gnKept;
    vxcam::Recorder recorder((folder.path / name).string(), options);
    return Receive(
        camera, frames, [&](vxcam::Frame frame) { recorder.write(std::move(frame)); },
        [&] { recorder.finish(); });
}

// Flat out, which the disk decides on; and by a link of 10 Gbit/s.
void CompareRecord(tcTable& table, const char* row, const char* name, const tsBenchOptions& options)
{
    const int frames = options.quick ? 8 : 100;
    for (const double rate : {0.0, gnLinkRate}) {
        tsStream stream;
        stream.megabytesPerSecond = rate;
        const tcSender sender(stream);
        vxcam::Camera camera =
            vxcam::Camera::open(std::string(stream.address) + ":" + std::to_string(sender.Port()));
        ReceiveOnly(camera, 1);
        const auto ours = [&] { return Record(camera, frames, name); };
        const std::string what = std::string("8 MiB frames of a camera into ") + name;
        if (rate == 0) {
            table.Compare(row, what + ", 8 MiB blocks", "MB/s", true, options.repeats, ours,
                          [&] { return WriteBlocks(frames); });
        } else {
            table.Compare(row, what + ", let go; 10 Gbit/s", "MB/s", true, options.repeats, ours,
                          [&] { return ReceiveOnly(camera, frames); });
        }
    }
}

} // namespace

void MeasureRecords(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (choice.Wants("W6")) CompareRecord(table, "W6", "a.raw", options);
    if (choice.Wants("W7")) CompareRecord(table, "W7", "a.h5", options);
}

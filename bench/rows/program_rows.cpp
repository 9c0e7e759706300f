// W8: the vxcam program, from its start to its end.
#include "folder.h"
#include "receiver.h"
#include "rows.h"
#include "spawned_program.h"
#include "written_blocks.h"

#include <vxcamkit/frame_file.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

#ifdef VX_PROGRAM

namespace {

// Frames of a camera into a FITS file each; what it prints is let go.
double Grab(const tcSender& sender, int frames)
{
    const tsFolder folder;
    const std::string pattern = (folder.path / "f%04d.fits").string();
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const double start = WallSeconds();
    tcSpawnedProgram program(
        {VX_PROGRAM, "grab", TargetOf(sender), "--frames", std::to_string(frames), "-o", pattern},
        -1, nowhere);
    close(nowhere);
    const int code = program.Wait();
    const double seconds = WallSeconds() - start;
    if (code != 0) throw std::runtime_error("vxcam grab: exit code " + std::to_string(code));
    for (int number = 1; number <= frames; ++number) {
        const std::string name = vxcam::fileName(pattern, number, frames);
        if (std::filesystem::file_size(name) < sender.Stream().PixelBytes()) {
            throw std::runtime_error(name + " is not whole");
        }
    }
    return frames * static_cast<double>(sender.Stream().PixelBytes()) / 1e6 / seconds;
}

} // namespace

void MeasurePrograms(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (!choice.Wants("W8")) return;
    const int frames = options.quick ? 4 : 200;
    const tcSender sender({});
    table.Compare(
        "W8", "8 MiB frames of a camera into FITS files by vxcam grab, 8 MiB blocks", "MB/s", true,
        options.repeats, [&] { return Grab(sender, frames); }, [&] { return WriteBlocks(frames); });
}

#else

void MeasurePrograms(tcTable&, const tsRowChoice& choice, const tsBenchOptions&)
{
    if (choice.Wants("W8")) std::fprintf(stderr, "W8 left out: built without vxcam\n");
}

#endif

// Cools a camera, takes dark frames, averages them into a PGM file, and warms the camera up again.
//
//     darks TARGET DEGREES FRAMES FILE         darks serial:17 -20 10 dark.pgm
#include <vxcamkit/camera.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

namespace {

using namespace std::chrono_literals;

void cool(vxcam::Camera& camera, double degrees)
{
    vxcam::Cooling cooling;
    cooling.target = degrees;
    cooling.ramp = 5;
    camera.cooler().cool(cooling);
    std::optional<vxcam::CoolingState> state;
    while (!(state = camera.cooler().wait(1s))) {
        std::cerr << camera.cooler().state().text << "\n";
    }
    if (state->phase != vxcam::CoolingPhase::Settled) {
        throw vxcam::Error(vxcam::ErrorKind::Camera, state->text);
    }
}

std::vector<double> sumOfDarks(vxcam::Camera& camera, int frames)
{
    vxcam::Plan plan;
    plan.type = vxcam::FrameType::Dark; // the shutter stays closed
    plan.exposure = 100ms;
    plan.frames = frames;
    vxcam::Stream stream = camera.stream(plan);
    std::vector<double> sums;
    while (const std::optional<vxcam::Frame> frame = stream.next()) {
        if (!frame->complete()) throw vxcam::IncompleteFrame(*frame);
        const vxcam::PixelView<uint16_t> pixels = frame->pixels<uint16_t>();
        sums.resize(pixels.size());
        for (size_t i = 0; i < pixels.size(); ++i) {
            sums[i] += pixels[i];
        }
    }
    return sums;
}

void write(const std::string& path, vxcam::Size size, const std::vector<double>& sums, int frames)
{
    std::ofstream file(path, std::ios::binary);
    file << "P5 " << size.columns << " " << size.rows << " 65535\n";
    for (const double sum : sums) {
        const int mean = static_cast<int>(sum / frames + 0.5);
        file.put(static_cast<char>(mean >> 8)).put(static_cast<char>(mean));
    }
    file.close();
    if (!file) throw vxcam::Error(vxcam::ErrorKind::File, path + ": it cannot be written");
}

} // namespace

int main(int argc, char** argv)
try {
    const int frames = argc == 5 ? std::atoi(argv[3]) : 0;
    if (frames < 1) {
        std::cerr << "usage: darks TARGET DEGREES FRAMES FILE\n";
        return 1;
    }
    auto camera = vxcam::Camera::open(argv[1]);
    cool(camera, std::atof(argv[2]));
    write(argv[4], camera.sensor(), sumOfDarks(camera, frames), frames);
    vxcam::Warming warming;
    warming.ramp = 10;
    camera.cooler().warmUp(warming);
    camera.cooler().wait(30min);
    return 0;
} catch (const vxcam::Error& error) {
    std::cerr << error.what() << "\n";
    return error.row().exitCode;
}

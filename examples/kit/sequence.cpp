// Takes frames and tells of each when it was exposed; the camera may come and go meanwhile.
//
//     sequence TARGET FRAMES MILLISECONDS      sequence 192.168.1.20:2000 100 500
#include <vxcamkit/camera.h>

#include <cstdlib>
#include <iomanip>
#include <iostream>

namespace {

void tell(const vxcam::Frame& frame)
{
    const vxcam::FrameTimes& times = frame.times();
    std::cout << std::setw(5) << frame.facts().number << "  " << vxcam::utcText(times.begin)
              << " +/- " << std::chrono::duration<double, std::milli>(times.uncertainty).count()
              << " ms, sum " << frame.sum();
    if (!frame.complete()) std::cout << ", " << frame.missing() << " packets are missing";
    std::cout << "\n";
}

// So many frames of the plan; fewer when the connection is lost.
int take(vxcam::Camera& camera, const vxcam::Plan& plan)
{
    vxcam::Stream stream = camera.stream(plan);
    int frames = 0;
    try {
        while (const std::optional<vxcam::Frame> frame = stream.next()) {
            tell(*frame);
            ++frames;
        }
    } catch (const vxcam::Error& error) {
        if (error.kind() != vxcam::ErrorKind::LinkLost) throw;
        std::cerr << error.what() << "\n";
    }
    return frames;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 4) {
        std::cerr << "usage: sequence TARGET FRAMES MILLISECONDS\n";
        return 1;
    }
    auto camera = vxcam::Camera::open(argv[1]);
    vxcam::Plan plan;
    plan.exposure = std::chrono::milliseconds(std::atoi(argv[3]));
    plan.frames = std::atoi(argv[2]);
    for (int tries = 0; plan.frames > 0 && tries < 3; ++tries) {
        plan.frames -= take(camera, plan);
        camera.waitForLink(std::chrono::minutes(1)); // it is set as it was then
    }
    return plan.frames == 0 ? 0 : 3;
} catch (const vxcam::Error& error) {
    std::cerr << error.what() << "\n";
    return error.row().exitCode;
}

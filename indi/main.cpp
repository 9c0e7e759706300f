// indi_vxcam_ccd: cameras for INDI clients.
#include "ccd_device.h"
#include "main_loop.h"

#include <vxcamkit/discover.h>
#include <vxcamkit/error.h>
#include <vxcamkit/export.h>

#include <indidriver.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

// The library opens no port for looking into it.
extern "C" VXCAMKIT_EXPORT const int VXNoDebugServices;
extern "C" const int VXNoDebugServices = 1;

namespace {

constexpr const char* kName = "VX CCD";

struct Found {
    std::string name, target; // of the device; empty: clients say where the camera is
};

std::string textOf(const char* variable)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? "" : text;
}

// Of VXCAM_TARGETS: targets with commas in between, "discover" for all cameras that answer on the
// local networks. One device is called as indiserver wants it, or VX CCD; further ones are
// numbered, discovered ones carry their serial numbers.
std::vector<Found> devices()
{
    const std::string wanted = textOf("INDIDEV");
    const std::string name = wanted.empty() ? kName : wanted;
    std::vector<Found> list;
    std::istringstream targets(textOf("VXCAM_TARGETS"));
    for (std::string target; std::getline(targets, target, ',');) {
        if (target.empty()) continue;
        if (target == "discover") {
            for (const vxcam::FoundCamera& camera : vxcam::discover()) {
                list.push_back({name + " " + std::to_string(camera.serial), camera.target()});
            }
            continue;
        }
        vxcam::Target::parse(target);
        const size_t number = list.size() + 1;
        list.push_back({number == 1 ? name : name + " " + std::to_string(number), target});
    }
    if (list.empty()) list.push_back({name, ""});
    return list;
}

} // namespace

int main()
{
    std::signal(SIGPIPE, SIG_IGN);
    static char program[] = "indi_vxcam_ccd";
    me = program; // what INDI calls it
    static std::vector<std::unique_ptr<vxcam::CcdDevice>>& cameras =
        *new std::vector<std::unique_ptr<vxcam::CcdDevice>>;
    try {
        for (const Found& found : devices()) {
            cameras.push_back(std::make_unique<vxcam::CcdDevice>(found.name, found.target));
        }
    } catch (const vxcam::Error& error) {
        std::cerr << "indi_vxcam_ccd: " << error.what() << "\n";
        return error.row().exitCode;
    }
    vxcam::runMainLoop([] {
        for (const auto& camera : cameras) {
            camera->shutDown();
        }
    });
}

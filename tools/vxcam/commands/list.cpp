// vxcam list: which cameras answer on the network.
#include "interrupt.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/discover.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

const char* const gsListExamples =
    R"(  vxcam list          serial numbers, addresses and the interfaces that lead there
  vxcam list --json   for scripts)";

namespace {

using tpCameras = std::vector<vxcam::FoundCamera>;
using tpInterfaces = std::vector<vxcam::HostInterface>;

class tcList : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    tsCommonOptions mtCommon;
};

// "h1 10.1.0.1"; nothing for an address that is none of this host's.
std::string NameOf(const std::string& address, const tpInterfaces& interfaces)
{
    for (const vxcam::HostInterface& interface : interfaces) {
        if (interface.address == address) return interface.name + " " + address;
    }
    return "";
}

// A line for each way that leads to the camera.
std::string CameraText(const vxcam::FoundCamera& camera, const tpInterfaces& interfaces)
{
    std::string all;
    for (const vxcam::FoundPath& path : camera.paths) {
        char front[32] = "", text[160];
        if (all.empty()) std::snprintf(front, sizeof front, "serial:%u", camera.serial);
        const std::string place = path.address + ":" + std::to_string(camera.port);
        const std::string way = NameOf(path.interface, interfaces);
        std::snprintf(text, sizeof text, "%-17s  %-21s  value 0x%08x  %s", front, place.c_str(),
                      camera.value, way.empty() ? "another network" : way.c_str());
        all += (all.empty() ? "" : "\n") + std::string(text);
    }
    return all;
}

nlohmann::ordered_json ListDocument(const tpInterfaces& interfaces, const tpCameras& cameras)
{
    nlohmann::ordered_json document{{"found", cameras.size()},
                                    {"cameras", nlohmann::ordered_json::array()},
                                    {"interfaces", nlohmann::ordered_json::array()}};
    for (const vxcam::FoundCamera& camera : cameras) {
        nlohmann::ordered_json places = nlohmann::ordered_json::array();
        for (const vxcam::FoundPath& path : camera.paths) {
            places.push_back({{"address", path.address}, {"interface", nullptr}});
            if (!path.interface.empty()) places.back()["interface"] = path.interface;
        }
        document["cameras"].push_back({{"serial", camera.serial},
                                       {"port", camera.port},
                                       {"value", camera.value},
                                       {"places", places}});
    }
    for (const vxcam::HostInterface& interface : interfaces) {
        document["interfaces"].push_back(
            {{"name", interface.name}, {"address", interface.address}});
    }
    return document;
}

// Not as they happened to answer: by serial number, ways by interfaces as the system has them.
void Sort(const tpInterfaces& interfaces, tpCameras* cameras)
{
    const auto rank = [&](const vxcam::FoundPath& path) {
        return std::find_if(interfaces.begin(), interfaces.end(), [&](const auto& interface) {
            return interface.address == path.interface;
        });
    };
    for (vxcam::FoundCamera& camera : *cameras) {
        std::sort(camera.paths.begin(), camera.paths.end(), [&](const auto& a, const auto& b) {
            return std::make_pair(rank(a), a.address) < std::make_pair(rank(b), b.address);
        });
    }
    std::sort(cameras->begin(), cameras->end(), [](const auto& a, const auto& b) {
        return std::make_pair(a.serial, a.port) < std::make_pair(b.serial, b.port);
    });
}

// The interfaces that lead to none of the cameras.
tpInterfaces Lonely(const tpInterfaces& interfaces, const tpCameras& cameras)
{
    std::set<std::string> leading;
    for (const vxcam::FoundCamera& camera : cameras) {
        for (const vxcam::FoundPath& path : camera.paths) {
            leading.insert(path.interface);
        }
    }
    tpInterfaces lonely;
    std::copy_if(interfaces.begin(), interfaces.end(), std::back_inserter(lonely),
                 [&](const auto& interface) { return leading.count(interface.address) == 0; });
    return lonely;
}

void Print(const tpInterfaces& interfaces, const tpCameras& cameras)
{
    for (const vxcam::FoundCamera& camera : cameras) {
        PrintLine(CameraText(camera, interfaces));
    }
    const tpInterfaces lonely = Lonely(interfaces, cameras);
    if (cameras.empty() || !lonely.empty()) {
        PrintLine("no camera answers on " + vxcam::textOf(lonely));
    }
}

void tcList::Declare(tcCommandLine& line)
{
    DeclareOutput(line, &mtCommon);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcList::Run()
{
    HushLibrary(mtCommon);
    const tpInterfaces interfaces = vxcam::hostInterfaces();
    tpCameras cameras;
    {
        const tcQuickExit quickExit;
        cameras = vxcam::discover();
    }
    Sort(interfaces, &cameras);
    if (mbJson) {
        PrintDocument(ListDocument(interfaces, cameras));
    } else if (!mtCommon.quiet) {
        Print(interfaces, cameras);
    }
}

} // namespace

std::unique_ptr<tcVerb> MakeList()
{
    return std::make_unique<tcList>();
}

// vxcam list: which cameras answer on the network.
#include "failure.h"
#include "found.h"
#include "program.h"
#include "report.h"

#include <nlohmann/json.hpp>

#include <cstdio>

const char* const gsListExamples =
    R"(  vxcam list          by interface, with serial numbers and addresses
  vxcam list --json   for scripts)";

namespace {

class tcList : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void Print(const std::vector<tsInterface>& interfaces,
               const std::vector<tsFound>& cameras) const;

    tsCommonOptions mtCommon;
};

std::string CameraLine(const tsFound& camera)
{
    char text[96];
    std::snprintf(text, sizeof text, "  serial:%-10u %-21s value 0x%08x", camera.serial,
                  (camera.address + ":" + std::to_string(camera.port)).c_str(), camera.value);
    return text;
}

nlohmann::ordered_json Entry(const std::string& name, const std::string& address,
                             const std::vector<tsFound>& cameras)
{
    nlohmann::ordered_json entry{
        {"name", name}, {"address", address}, {"cameras", nlohmann::ordered_json::array()}};
    for (const tsFound& camera : cameras) {
        if (camera.interface != address) continue;
        entry["cameras"].push_back({{"serial", camera.serial},
                                    {"address", camera.address},
                                    {"port", camera.port},
                                    {"value", camera.value}});
    }
    return entry;
}

nlohmann::ordered_json ListDocument(const std::vector<tsInterface>& interfaces,
                                    const std::vector<tsFound>& cameras)
{
    nlohmann::ordered_json document{{"found", cameras.size()}};
    document["interfaces"] = nlohmann::ordered_json::array();
    for (const tsInterface& interface : interfaces) {
        document["interfaces"].push_back(Entry(interface.name, interface.address, cameras));
    }
    document["elsewhere"] = Entry("", "", cameras)["cameras"];
    return document;
}

void tcList::Declare(tcCommandLine& line)
{
    DeclareOutput(line, &mtCommon);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcList::Print(const std::vector<tsInterface>& interfaces,
                   const std::vector<tsFound>& cameras) const
{
    if (cameras.empty()) {
        PrintLine("no camera answers on " + InterfaceText(interfaces));
        return;
    }
    std::vector<tsInterface> places = interfaces;
    places.push_back({"other networks", ""}); // behind a router
    for (const tsInterface& place : places) {
        std::string lines;
        for (const tsFound& camera : cameras) {
            if (camera.interface == place.address) lines += "\n" + CameraLine(camera);
        }
        if (place.address.empty() && lines.empty()) continue;
        PrintLine(place.name + " " + place.address + (lines.empty() ? ": no camera" : lines));
    }
}

void tcList::Run()
{
    HushLibrary(mtCommon);
    const std::vector<tsInterface> interfaces = Interfaces();
    const std::vector<tsFound> cameras = Discover(interfaces);
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

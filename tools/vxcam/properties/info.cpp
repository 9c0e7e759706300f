// vxcam info: what a camera is, and how it is set.
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "propertytext.h"
#include "report.h"

#include <vxcamkit/camera.h>

#include <nlohmann/json.hpp>

const char* const gsInfoExamples =
    R"(  vxcam info                       the simulated camera
  vxcam info 192.168.1.20:2000     a camera on the network
  vxcam info serial:1207 --json    the one with that serial number, for scripts)";

namespace {

constexpr size_t gnLabelWidth = 18;

// The properties that tell about a camera as a whole.
constexpr const char* gaTold[] = {"ccd-temp",     "board-temp",     "target-temp",   "cooling",
                                  "exposure",     "gain-config",    "readout-noise", "mirroring",
                                  "trigger-mode", "simple-binning", "network-config"};

class tcInfo : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void Tell(const std::string& label, const std::string& text) const;
    void TellHardware(vxcam::Camera& camera);
    void TellProperty(vxcam::Camera& camera, const char* name);

    tsCommonOptions mtCommon;
    nlohmann::ordered_json mDocument;
};

void tcInfo::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcInfo::Tell(const std::string& label, const std::string& text) const
{
    if (mbJson || mtCommon.quiet) return;
    PrintLine(label + std::string(gnLabelWidth - label.size(), ' ') + Printable(text));
}

void tcInfo::TellHardware(vxcam::Camera& camera)
{
    const vxcam::Size sensor = camera.sensor();
    const vxcam::Identity& identity = camera.identity();
    Tell("target", NameOf(camera));
    Tell("sensor",
         std::to_string(sensor.columns) + " x " + std::to_string(sensor.rows) + " pixels");
    mDocument["target"] = NameOf(camera);
    mDocument["sensor"] = {{"columns", sensor.columns}, {"rows", sensor.rows}};
    if (!identity.name.empty()) {
        Tell("name", identity.name);
        Tell("serial number", identity.serial);
        Tell("version", identity.version);
        Tell("bits a pixel", std::to_string(identity.bits));
        mDocument["name"] = identity.name;
        mDocument["serial"] = std::stoul(identity.serial);
        mDocument["version"] = identity.version;
        mDocument["bits"] = identity.bits;
    }
    Tell("library", LibraryVersionText());
    mDocument["library"] = LibraryVersionText();
}

void tcInfo::TellProperty(vxcam::Camera& camera, const char* name)
{
    ThrowIfInterrupted();
    std::string text;
    const std::optional<vxcam::Value> value = camera.tryGet(name, &text);
    mDocument["properties"][name] = nullptr;
    if (value) {
        mDocument["properties"][name] = ValueJson(*value);
        text = value->shown();
    }
    Tell(name, Told(text));
}

void tcInfo::Run()
{
    vxcam::Camera camera = OpenCamera(mtCommon);
    TellHardware(camera);
    for (const char* name : gaTold) {
        TellProperty(camera, name);
    }
    camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeInfo()
{
    return std::make_unique<tcInfo>();
}

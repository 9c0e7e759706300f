// vxcam info: what a camera is, and how it is set.
#include "failure.h"
#include "hardware.h"
#include "interrupt.h"
#include "logrecord.h"
#include "program.h"
#include "propertytext.h"
#include "report.h"
#include "vxcamiface.h"

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
    void TellHardware(tcSession& session);
    void TellProperty(tcSession& session, const char* name);

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

void tcInfo::TellHardware(tcSession& session)
{
    const tsArea sensor = session.Sensor();
    const tsIdentity identity = ReadIdentity(session);
    Tell("target", session.Name());
    Tell("sensor",
         std::to_string(sensor.columns) + " x " + std::to_string(sensor.rows) + " pixels");
    mDocument["target"] = session.Name();
    mDocument["sensor"] = {{"columns", sensor.columns}, {"rows", sensor.rows}};
    if (identity.isKnown) {
        Tell("name", identity.name);
        Tell("serial number", std::to_string(identity.serial));
        Tell("version", VersionText(identity.version));
        Tell("bits a pixel", std::to_string(identity.bits));
        mDocument["name"] = identity.name;
        mDocument["serial"] = identity.serial;
        mDocument["version"] = VersionText(identity.version);
        mDocument["bits"] = identity.bits;
    }
    const auto library = static_cast<uint32_t>(VXGetDllVersion());
    Tell("library", VersionText(library));
    mDocument["library"] = VersionText(library);
}

void tcInfo::TellProperty(tcSession& session, const char* name)
{
    ThrowIfInterrupted();
    std::string text;
    const std::optional<vxcam::Value> value =
        vxcam::tryProperty(session, vxcam::findProperty(name), &text);
    mDocument["properties"][name] = nullptr;
    if (value) {
        mDocument["properties"][name] = ValueJson(*value);
        text = value->shown();
    }
    Tell(name, text);
}

void tcInfo::Run()
{
    std::unique_ptr<tcSession> session = OpenSession(&mtCommon);
    TellHardware(*session);
    for (const char* name : gaTold) {
        TellProperty(*session, name);
    }
    session->Close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeInfo()
{
    return std::make_unique<tcInfo>();
}

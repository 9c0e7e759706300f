// vxcam profile: the settings of a camera, kept in a file.
#include "failure.h"
#include "logrecord.h"
#include "program.h"
#include "propertytext.h"
#include "report.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/profile.h>

#include <nlohmann/json.hpp>

const char* const gsProfileExamples =
    R"(  vxcam profile save 192.168.1.20:2000 night.json
  vxcam profile load 192.168.1.20:2000 night.json    as it was then
  vxcam profile load serial:1207 night.json --json   another camera, for scripts)";

namespace {

class tcProfileVerb : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override { (this->*mpAction)(); }
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void Save();
    void Load();
    void Describe(const vxcam::Camera& camera);
    void Tell(const std::string& line) const;
    void TellOutcome(const vxcam::Outcome& outcome);

    void (tcProfileVerb::*mpAction)() = nullptr;
    tsCommonOptions mtCommon;
    std::string msFile;
    bool mbForce = false, mbMask = false;
    nlohmann::ordered_json mDocument;
};

void tcProfileVerb::Declare(tcCommandLine& line)
{
    DeclareCameraOptions(line, &mtCommon);
    tcCommandLine save = line.Action("save", "write the settings of a camera to a file",
                                     [this] { mpAction = &tcProfileVerb::Save; });
    tcCommandLine load = line.Action("load", "have a camera take the settings of a file",
                                     [this] { mpAction = &tcProfileVerb::Load; });
    for (tcCommandLine action : {save, load}) {
        DeclareTarget(action, &mtCommon);
        action.Operand("FILE", &msFile, "the profile, JSON").Required();
        action.Flag("--json", &mbJson, "print one JSON document");
    }
    save.Flag("--mask", &mbMask, "with the mask of the bins, which takes long");
    save.Flag("--force", &mbForce, "replace a file that exists");
}

void tcProfileVerb::Describe(const vxcam::Camera& camera)
{
    mDocument["target"] = NameOf(camera);
    mDocument["file"] = msFile;
}

void tcProfileVerb::Tell(const std::string& line) const
{
    if (!mbJson && !mtCommon.quiet) PrintLine(Printable(line));
}

void tcProfileVerb::Save()
{
    vxcam::checkNewFile(msFile, mbForce);
    vxcam::Camera camera = OpenCamera(mtCommon);
    const std::string name = NameOf(camera);
    Describe(camera);
    vxcam::Profile profile = camera.profile(mbMask);
    profile.setCamera(name);
    camera.close();
    profile.save(msFile, mbForce);
    mDocument["settings"] = nlohmann::ordered_json::parse(profile.json())["settings"];
    mDocument["gaps"] = nlohmann::ordered_json::object();
    for (const vxcam::Profile::Gap& gap : profile.gaps()) {
        mDocument["gaps"][gap.name] = Told(gap.why);
        Tell(gap.name + ": left out, " + Told(gap.why));
    }
    Tell(msFile + ": " + std::to_string(profile.settings().size()) + " settings of " + name);
    if (mbJson) PrintDocument(mDocument);
}

void tcProfileVerb::TellOutcome(const vxcam::Outcome& outcome)
{
    nlohmann::ordered_json entry;
    entry["name"] = outcome.name;
    entry["outcome"] = vxcam::nameOf(outcome.how);
    entry["asked"] = ValueJson(outcome.asked);
    entry["value"] = ValueJson(outcome.told);
    if (!outcome.why.empty()) entry["why"] = Told(outcome.why);
    mDocument["outcomes"].push_back(entry);
    if (!outcome.isRestored()) {
        Tell(outcome.name + ": not restored, " + Told(outcome.why));
    } else if (outcome.told.isNothing()) {
        Tell(outcome.name + "=" + outcome.asked.shown() + " (sent; the camera does not tell it)");
    } else {
        Tell(outcome.name + "=" + outcome.told.shown());
    }
}

void tcProfileVerb::Load()
{
    const vxcam::Profile profile = vxcam::Profile::load(msFile);
    vxcam::Camera camera = OpenCamera(mtCommon);
    Describe(camera);
    mDocument["outcomes"] = nlohmann::ordered_json::array();
    size_t failed = 0;
    const std::vector<vxcam::Outcome> outcomes = camera.apply(profile);
    for (const vxcam::Outcome& outcome : outcomes) {
        TellOutcome(outcome);
        if (!outcome.isRestored()) ++failed;
    }
    camera.close();
    if (failed > 0) {
        throw tcFailure(eExitCamera, msFile + ": " + std::to_string(failed) + " of " +
                                         std::to_string(outcomes.size()) +
                                         " settings could not be restored");
    }
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeProfile()
{
    return std::make_unique<tcProfileVerb>();
}

// vxcam focus: how sharp stars are, frame after frame.
#include "arguments.h"
#include "complaints.h"
#include "failure.h"
#include "grabbed.h"
#include "graph.h"
#include "interrupt.h"
#include "planoptions.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/measures.h>

#include <nlohmann/json.hpp>

#include <cstdio>

const char* const gsFocusExamples =
    R"(  vxcam focus 192.168.1.20:2000 -e 2s             until Ctrl-C
  vxcam focus serial:1207 -e 500ms --area 512,512,256,256
  vxcam focus sim --frames 20 --json              a line for each frame, for scripts)";

namespace {

constexpr int gnMostFrames = 1000000;
constexpr std::chrono::milliseconds gnPoll(50);

class tcFocus : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    void Watch(vxcam::Camera& camera);
    void Tell(const vxcam::Frame& frame);

    tsCommonOptions mtCommon;
    tcPlanOptions mPlanOptions;
    int mnFrames = 0;

    vxcam::Plan mtPlan;
    std::vector<double> maDiameters; // 0 where there was no star
    double mnBest = 0;
};

void tcFocus::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    mPlanOptions.DeclareExposure(line);
    line.Option("-n,--frames", &mnFrames, "NUMBER", "frames to look at; 0: until Ctrl-C")
        .Within(0, gnMostFrames);
    mPlanOptions.DeclareReadout(line);
    line.Flag("--json", &mbJson, "print one JSON document a line for each frame");
}

void tcFocus::Tell(const vxcam::Frame& frame)
{
    const vxcam::Measures measures = vxcam::measuresOf(frame);
    maDiameters.push_back(measures.hfd);
    if (measures.hfd > 0 && (mnBest == 0 || measures.hfd < mnBest)) mnBest = measures.hfd;
    if (mbJson) {
        nlohmann::ordered_json line{{"frame", maDiameters.size()},
                                    {"stars", measures.stars},
                                    {"hfd", nullptr},
                                    {"fwhm", nullptr},
                                    {"elongation", nullptr},
                                    {"best_hfd", nullptr},
                                    {"complete", frame.complete()}};
        if (measures.hfd > 0) {
            line["hfd"] = measures.hfd;
            line["fwhm"] = measures.fwhm;
            line["elongation"] = measures.elongation;
        }
        if (mnBest > 0) line["best_hfd"] = mnBest;
        PrintLine(LineText(line));
        return;
    }
    if (mtCommon.quiet) return;
    std::string text = "frame " + std::to_string(maDiameters.size()) + ": ";
    char figures[160] = "no stars";
    if (measures.hfd > 0) {
        std::snprintf(figures, sizeof figures,
                      "HFD %.2f, FWHM %.2f, elongation %.2f, %zu stars, best HFD %.2f",
                      measures.hfd, measures.fwhm, measures.elongation, measures.stars, mnBest);
    }
    text += figures;
    if (!frame.complete()) text += "; incomplete: " + MissingText(frame.facts());
    PrintLine(text);
}

// A frame that came while the one before it was measured is dropped: what is shown is new.
void tcFocus::Watch(vxcam::Camera& camera)
{
    const tcComplaints complaints(camera);
    tcGraph graph(!mtCommon.quiet && !mbJson);
    vxcam::Stream stream = camera.stream(mtPlan);
    while (mnFrames == 0 || static_cast<int>(maDiameters.size()) < mnFrames) {
        ThrowIfInterrupted();
        const bool isRunning = stream.end() == vxcam::ReadoutEnd::Running;
        try {
            const std::optional<vxcam::Frame> frame = stream.next(gnPoll);
            if (!frame) break;
            graph.Clear();
            Tell(*frame);
            graph.Show("HFD", maDiameters);
        } catch (const vxcam::Error& error) {
            if (error.kind() != vxcam::ErrorKind::Timeout || !isRunning) throw;
        }
    }
    stream.stop();
    if (const auto complaint = complaints.FirstOfReadout()) {
        throw tcFailure(eExitCamera, *complaint);
    }
}

void tcFocus::Run()
{
    mtPlan = mPlanOptions.Plan();
    mtPlan.frames = 0;
    mtPlan.whenFull = vxcam::WhenFull::DropNewest;
    mtPlan.buffers = 2;
    vxcam::Camera camera = OpenCamera(mtCommon);
    mPlanOptions.CheckAreas(mtPlan, camera.sensor());
    Watch(camera);
    camera.close();
}

} // namespace

std::unique_ptr<tcVerb> MakeFocus()
{
    return std::make_unique<tcFocus>();
}

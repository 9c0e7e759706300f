// vxcam ptc: gain, read noise and full well by photon transfer.
#include "arguments.h"
#include "failure.h"
#include "planoptions.h"
#include "plot.h"
#include "program.h"
#include "report.h"
#include "shots.h"

#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/photon_transfer.h>
#include <vxcamkit/preview.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

const char* const gsPtcExamples =
    R"(  vxcam ptc 192.168.1.20:2000                          with a steady lamp before the sensor
  vxcam ptc 192.168.1.20:2000 --csv ptc.csv --plot ptc.png
  vxcam ptc serial:1207 --from 10ms --to 4s --pairs 20 --area 512,512,256,256
  vxcam ptc sim --sim-time-scale 10000 --json          the simulated camera, for scripts)";

namespace {

constexpr int gnFewestPairs = 4, gnMostPairs = 200;
constexpr double gnFull = 65535;

class tcPtc : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void CheckArguments();
    void CheckFiles() const;
    void Measure(tcShots& shots);
    void Describe(const vxcam::PhotonTransfer& result);
    void Print(const vxcam::PhotonTransfer& result) const;
    void WriteTable(const vxcam::PhotonTransfer& result) const;
    void WritePlot(const vxcam::PhotonTransfer& result) const;

    tsCommonOptions mtCommon;
    tcPartOptions mPartOptions;
    std::string msFrom, msTo, msLongest = "10min", msTable, msPlot;
    bool mbForce = false;

    vxcam::TransferOptions mtOptions;
    vxcam::FramePair mtDark;
    std::vector<vxcam::FramePair> maFlats;
    nlohmann::ordered_json mDocument;
};

// With so many decimals, and spaces in front.
std::string NumberText(double value, int decimals, int width = 0)
{
    char text[400];
    std::snprintf(text, sizeof text, "%*.*f", width, decimals, value);
    return text;
}

void tcPtc::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    line.Option("--from", &msFrom, "TIME", "the shortest exposure; else found, as --to is");
    line.Option("--to", &msTo, "TIME", "the longest one; else beyond what fills the scale");
    line.Option("--longest", &msLongest, "TIME", "that is tried to find it");
    line.Option("-n,--pairs", &mtOptions.pairs, "NUMBER", "exposures, of two frames each")
        .Within(gnFewestPairs, gnMostPairs);
    mPartOptions.DeclareArea(line);
    mPartOptions.DeclareTimeout(line);
    line.Option("--csv", &msTable, "FILE", "a table of the pairs");
    line.Option("--plot", &msPlot, "FILE", "PNG picture of variance over signal");
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcPtc::CheckArguments()
{
    if (msFrom.empty() != msTo.empty()) {
        throw tcFailure(eExitUsage, "--from and --to go together");
    }
    if (!msFrom.empty()) {
        mtOptions.from = ParseDuration(msFrom);
        mtOptions.to = ParseDuration(msTo);
        if (mtOptions.from.count() < 1 || mtOptions.to <= mtOptions.from) {
            throw tcFailure(eExitUsage, "--from: at least 1 ms, and less than --to");
        }
    }
    mtOptions.longest = ParseDuration(msLongest);
    if (mtOptions.longest.count() < 1) throw tcFailure(eExitUsage, "--longest: at least 1 ms");
    mtOptions.plan.kind = vxcam::ReadoutKind::Area;
    mPartOptions.Apply(&mtOptions.plan);
    const std::string other = vxcam::otherKindOf(msPlot, vxcam::FileFormat::Preview);
    if (!other.empty()) {
        throw tcFailure(eExitUsage, msPlot + ": it would be a PNG, and no " + other + " file");
    }
    if (!msPlot.empty() && !vxcam::isAvailable(vxcam::FileFormat::Preview)) {
        throw tcFailure(eExitUsage, "--plot: the kit was built without PNG");
    }
    TargetOf(mtCommon); // before any file is looked at
}

void tcPtc::CheckFiles() const
{
    if (!msTable.empty() && msTable == msPlot) {
        throw tcFailure(eExitUsage, msPlot + ": would be written twice");
    }
    for (const std::string& file : {msTable, msPlot}) {
        if (!file.empty()) vxcam::checkNewFile(file, mbForce);
    }
}

void tcPtc::Measure(tcShots& shots)
{
    const vxcam::TransferSeries series = vxcam::takeTransfer(mtOptions, shots.Taking());
    mtDark = series.dark;
    maFlats = series.flats;
}

void tcPtc::Describe(const vxcam::PhotonTransfer& result)
{
    mDocument["gain_e_per_adu"] = result.gain;
    mDocument["gain_uncertainty_e_per_adu"] = nullptr;
    if (const auto error = vxcam::gainUncertainty(result, mtDark, maFlats)) {
        mDocument["gain_uncertainty_e_per_adu"] = *error;
    }
    mDocument["read_noise_e"] = result.readNoise;
    mDocument["full_well_e"] = nullptr;
    mDocument["full_well_limit"] = nullptr;
    if (result.fullWell) {
        mDocument["full_well_e"] = *result.fullWell;
        mDocument["full_well_limit"] = result.endsAtFullScale ? "converter" : "pixel";
    }
    mDocument["offset_adu"] = result.offset;
    mDocument["pairs"] = nlohmann::ordered_json::array();
    for (size_t i = 0; i < maFlats.size(); ++i) {
        const vxcam::FramePair& flat = maFlats[i];
        mDocument["pairs"].push_back({{"exposure_s", flat.exposure},
                                      {"level_adu", flat.level},
                                      {"signal_adu", flat.mean - result.offset},
                                      {"variance_adu2", flat.variance},
                                      {"used", flat.used},
                                      {"saturated", flat.saturated},
                                      {"fitted", static_cast<bool>(result.isFitted[i])}});
        if (flat.used > 0) continue;
        mDocument["pairs"].back()["signal_adu"] = nullptr;
        mDocument["pairs"].back()["variance_adu2"] = nullptr;
    }
}

void tcPtc::Print(const vxcam::PhotonTransfer& result) const
{
    PrintLine("  exposure      level     signal   variance  saturated");
    PrintLine("         s        ADU        ADU      ADU^2          %");
    for (size_t i = 0; i < maFlats.size(); ++i) {
        const vxcam::FramePair& flat = maFlats[i];
        const std::string noise = flat.used > 0 ? NumberText(flat.mean - result.offset, 1, 10) +
                                                      " " + NumberText(flat.variance, 1, 10)
                                                : "         -          -";
        PrintLine(NumberText(flat.exposure, 3, 10) + " " + NumberText(flat.level, 0, 10) + " " +
                  noise + " " + NumberText(100 * flat.saturated, 2, 10) +
                  (result.isFitted[i] ? "  *" : ""));
    }
    char line[160];
    std::snprintf(line, sizeof line, "gain        %.4f electrons/ADU (pairs with *)", result.gain);
    PrintLine(line);
    if (const auto error = vxcam::gainUncertainty(result, mtDark, maFlats)) {
        std::snprintf(line, sizeof line, "            +/- %.4f, by their scatter", *error);
        PrintLine(line);
    }
    std::snprintf(line, sizeof line, "read noise  %.2f electrons", result.readNoise);
    PrintLine(line);
    if (!result.fullWell) {
        PrintLine("full well   not reached");
        return;
    }
    std::snprintf(line, sizeof line, "full well   %.0f electrons%s", *result.fullWell,
                  result.endsAtFullScale ? " (where the converter ends)" : "");
    PrintLine(line);
}

void tcPtc::WriteTable(const vxcam::PhotonTransfer& result) const
{
    std::string text = "exposure_s,level_adu,signal_adu,variance_adu2,used,saturated,fitted\n";
    for (size_t i = 0; i < maFlats.size(); ++i) {
        const vxcam::FramePair& flat = maFlats[i];
        text += NumberText(flat.exposure, 3) + "," + NumberText(flat.level, 1) + ",";
        if (flat.used > 0) text += NumberText(flat.mean - result.offset, 3);
        text += ",";
        if (flat.used > 0) text += NumberText(flat.variance, 3);
        text += "," + NumberText(flat.used, 4) + "," + NumberText(flat.saturated, 4) +
                (result.isFitted[i] ? ",1\n" : ",0\n");
    }
    vxcam::writeNewFile(msTable, text.data(), text.size(), mbForce);
}

void tcPtc::WritePlot(const vxcam::PhotonTransfer& result) const
{
    const double slope = 1 / result.gain;
    const auto model = [&](double signal) { return mtDark.variance + slope * signal; };
    tsPlotRange range;
    range.left = gnFull;
    range.right = range.top = 1;
    for (const vxcam::FramePair& flat : maFlats) {
        const double signal = flat.mean - result.offset;
        if (!(flat.used > 0) || !(signal > 0)) continue;
        range.left = std::min(range.left, signal);
        range.right = std::max(range.right, signal);
        range.top = std::max({range.top, flat.variance, model(signal)});
    }
    const auto down = [](double value) { return std::pow(10, std::floor(std::log10(value))); };
    const auto up = [](double value) { return std::pow(10, std::ceil(std::log10(value))); };
    range.left = down(range.left);
    range.right = std::max(up(range.right), 10 * range.left);
    range.bottom = down(std::max(model(range.left), 0.01));
    range.top = std::max(up(range.top), 10 * range.bottom);
    tcPlot plot(range, "SIGNAL / ADU", "VARIANCE / ADU^2");
    plot.Curve(model);
    for (size_t i = 0; i < maFlats.size(); ++i) {
        if (!(maFlats[i].used > 0)) continue;
        plot.Mark(maFlats[i].mean - result.offset, maFlats[i].variance, result.isFitted[i]);
    }
    char text[96];
    std::snprintf(text, sizeof text, "GAIN %.3f E/ADU, READ NOISE %.2f E", result.gain,
                  result.readNoise);
    plot.Text(70, 110, text);
    if (result.fullWell) {
        std::snprintf(text, sizeof text, "FULL WELL %.0f E", *result.fullWell);
        plot.Text(94, 110, text);
    }
    vxcam::writeNewFile(msPlot, vxcam::makePng(plot.Grays(), tcPlot::gnColumns), mbForce);
}

void tcPtc::Run()
{
    CheckArguments();
    CheckFiles();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mDocument["target"] = NameOf(camera);
    mPartOptions.CheckArea(mtOptions.plan, camera.sensor());
    tcProgress progress(!mtCommon.quiet);
    tcShots shots(camera, progress);
    Measure(shots);
    camera.close();
    vxcam::PhotonTransfer result;
    try {
        result = vxcam::photonTransferOf(mtDark, maFlats);
    } catch (const vxcam::Error& error) {
        throw tcFailure(eExitCamera, error.what());
    }
    Describe(result);
    if (!msTable.empty()) WriteTable(result);
    if (!msPlot.empty()) WritePlot(result);
    if (mbJson) {
        PrintDocument(mDocument);
    } else if (!mtCommon.quiet) {
        Print(result);
    }
}

} // namespace

std::unique_ptr<tcVerb> MakePtc()
{
    return std::make_unique<tcPtc>();
}

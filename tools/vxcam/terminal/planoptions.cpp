#include "planoptions.h"

#include "arguments.h"
#include "failure.h"

namespace {

// `text` is how it stands on the command line.
void CheckFits(const vxcam::Area& area, const std::string& text, const vxcam::Size& sensor)
{
    if (area.fits(sensor)) return;
    throw tcFailure(eExitUsage, "area '" + text + "': reaches beyond the sensor of " +
                                    std::to_string(sensor.columns) + " x " +
                                    std::to_string(sensor.rows) + " pixels");
}

} // namespace

void tcPlanOptions::DeclareExposure(tcCommandLine& line)
{
    line.Option("-e,--exposure", &msExposure, "TIME",
                "like 500ms, 2s, 0.5 (seconds) or 1min; else as the camera is set");
    const std::vector<tcOption> types = {
        line.Flag("--light", &mbLight, "a picture, which is what is taken without these"),
        line.Flag("--dark", &mbDark, "a dark frame: the shutter stays closed"),
        line.Flag("--bias", &mbBias, "likewise, with no exposure unless one is given"),
        line.Flag("--flat", &mbFlat, "a flat field")};
    for (size_t i = 0; i < types.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            types[i].Excludes(types[k]);
        }
    }
}

void tcPlanOptions::DeclareReadout(tcCommandLine& line)
{
    const tcOption area =
        line.Option("--area", &msAreas, "AREA",
                    "part of the sensor to read: x,y,width,height; several with / between them; "
                    "else the regions that the camera is set to, or the whole");
    const tcOption bits =
        line.Option("--bits", &mBits, "NUMBER", "bits a pixel, not binned: 8 or 16; else 16");
    const tcOption bins =
        line.Option("--binning", &msBins, "BINS",
                    "columns,rows in a bin, or one number for both; 1: not binned; else as the "
                    "camera's simple-binning is set");
    const tcOption binned = line.Flag("--binned", &mbBinned, "binned readout, 32 bits a pixel");
    const tcOption mask = line.Flag("--mask-binned", &mbMaskBinned,
                                    "readout by the mask that the camera holds, 32 bits a pixel");
    area.Excludes(binned).Excludes(mask);
    bits.Excludes(binned).Excludes(mask);
    bins.Excludes(mask);
    binned.Excludes(mask);
    line.Option("--timeout", &msTimeout, "TIME",
                "silence beyond the time when a frame is due that ends the readout; 20s, and any "
                "while a trigger is waited for");
}

vxcam::Plan tcPlanOptions::Plan() const
{
    vxcam::Plan plan;
    if (!msExposure.empty()) plan.exposure = ParseDuration(msExposure);
    if (!msTimeout.empty()) plan.timeout = ParseDuration(msTimeout);
    plan.bits = mBits.value_or(gnUsualBits);
    if (plan.bits != gnFewBits && plan.bits != gnUsualBits) {
        throw tcFailure(eExitUsage, "--bits: 8 or 16");
    }
    if (mBits) plan.kind = vxcam::ReadoutKind::Area;
    if (mbBinned) plan.kind = vxcam::ReadoutKind::Binned;
    if (mbMaskBinned) plan.kind = vxcam::ReadoutKind::MaskBinned;
    if (mbDark) plan.type = vxcam::FrameType::Dark;
    if (mbBias) plan.type = vxcam::FrameType::Bias;
    if (mbFlat) plan.type = vxcam::FrameType::Flat;
    AddGeometry(&plan);
    return plan;
}

// Bins of one pixel are no bins, unless a binned readout is asked for.
void tcPlanOptions::AddGeometry(vxcam::Plan* plan) const
{
    if (!msBins.empty()) {
        const auto [columns, rows] = ParseBins(msBins);
        const bool isBinned = mbBinned || columns > 1 || rows > 1;
        plan->kind = isBinned ? vxcam::ReadoutKind::Binned : vxcam::ReadoutKind::Area;
        if (isBinned) {
            plan->binningX = columns;
            plan->binningY = rows;
            const char* const other = mBits ? "--bits" : msAreas.empty() ? nullptr : "--area";
            if (other != nullptr) {
                throw tcFailure(eExitUsage,
                                std::string(other) + " is not of binned readouts (--binning)");
            }
        }
    }
    if (msAreas.empty()) return;
    plan->regions = ParseAreas(msAreas);
    if (plan->regions.size() > 1) return;
    plan->area = plan->regions.front();
    plan->regions.clear();
}

void tcPlanOptions::CheckAreas(const vxcam::Plan& plan, const vxcam::Size& sensor) const
{
    std::vector<vxcam::Area> areas = plan.regions;
    if (plan.area) areas.push_back(*plan.area);
    for (const vxcam::Area& area : areas) {
        CheckFits(area, msAreas, sensor);
    }
}

void tcPartOptions::DeclareArea(tcCommandLine& line)
{
    line.Option("--area", &msArea, "AREA", "part of the sensor: x,y,width,height; else the whole");
}

void tcPartOptions::DeclareTimeout(tcCommandLine& line)
{
    line.Option("--timeout", &msTimeout, "TIME",
                "silence beyond the time when a frame is due that ends it; 20s");
}

void tcPartOptions::Apply(vxcam::Plan* plan) const
{
    if (!msArea.empty()) plan->area = ParseArea(msArea);
    if (!msTimeout.empty()) plan->timeout = ParseDuration(msTimeout);
}

void tcPartOptions::CheckArea(const vxcam::Plan& plan, const vxcam::Size& sensor) const
{
    if (plan.area) CheckFits(*plan.area, msArea, sensor);
}

// What to read out, as it stands on the command line.
#ifndef PLANOPTIONS_H
#define PLANOPTIONS_H

#include "tcCommandLine.h"

#include <vxcamkit/plan.h>

#include <optional>
#include <string>

// Declares these in two groups, between which a verb has its own; the plan is made of what was
// parsed.
class tcPlanOptions
{
public:
    // Exposure and kind of frame.
    void DeclareExposure(tcCommandLine& line);
    // Area, bits, binning, time-out.
    void DeclareReadout(tcCommandLine& line);

    // But for the number of frames. Throws tcFailure with eExitUsage.
    vxcam::Plan Plan() const;
    // Throws tcFailure with eExitUsage when a part of the sensor lies beyond it.
    void CheckAreas(const vxcam::Plan& plan, const vxcam::Size& sensor) const;

private:
    void AddGeometry(vxcam::Plan* plan) const;

    static constexpr int gnFewBits = 8, gnUsualBits = 16;

    std::string msExposure, msTimeout, msAreas, msBins;
    std::optional<int> mBits;
    bool mbBinned = false, mbMaskBinned = false;
    bool mbLight = false, mbDark = false, mbBias = false, mbFlat = false;
};

// One part of the sensor, and how long the camera may be silent, for a plan of the verb's own.
class tcPartOptions
{
public:
    void DeclareArea(tcCommandLine& line);
    void DeclareTimeout(tcCommandLine& line);

    // Both throw tcFailure with eExitUsage; the latter when the part lies beyond the sensor.
    void Apply(vxcam::Plan* plan) const;
    void CheckArea(const vxcam::Plan& plan, const vxcam::Size& sensor) const;

private:
    std::string msArea, msTimeout;
};

#endif

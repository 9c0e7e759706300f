#include "tcSimReadout.h"

#include <algorithm>

bool tcSimReadout::Start(const tsSimTiming& timing, double now)
{
    if (Running()) return false;
    mtTiming = timing;
    mnFrame = 1;
    mnExposure = timing.exposure;
    mbFirstExposure = true;
    mnLastInterval = mnShortestInterval = mnLongestInterval = 0;
    BeginFrame(now);
    return true;
}

void tcSimReadout::Abort()
{
    mtPhase = teSimPhase::eIdle;
}

void tcSimReadout::BeginFrame(double now)
{
    const bool waits = mtTiming.trigger == eExtTrigFrame || mtTiming.trigger == eExtTrigExposure ||
                       (mtTiming.trigger == eExtTrigStart && mnFrame == 1);
    if (waits) {
        mtPhase = teSimPhase::eArmed;
        return;
    }
    BeginExposure(now);
}

void tcSimReadout::BeginExposure(double now)
{
    if (!mbFirstExposure) {
        mnLastInterval = now - mnExposureStart;
        mnLongestInterval = std::max(mnLongestInterval, mnLastInterval);
        mnShortestInterval =
            mnShortestInterval == 0 ? mnLastInterval : std::min(mnShortestInterval, mnLastInterval);
    }
    mbFirstExposure = false;
    mnExposureStart = now;
    mnExposure = mtTiming.exposure;
    mnDue = now + mnExposure;
    mtPhase = teSimPhase::eExposing;
    Step(now);
}

bool tcSimReadout::ExposureKnown() const
{
    return mtTiming.trigger != eExtTrigExposure || mtPhase == teSimPhase::eExposed ||
           mtPhase == teSimPhase::eSending;
}

void tcSimReadout::SetTrigger(bool active, double now)
{
    if (!active) {
        mbTriggerSpent = false;
        if (mtPhase == teSimPhase::eExposing && mtTiming.trigger == eExtTrigExposure) {
            mnExposure = now - mnExposureStart;
            mtPhase = teSimPhase::eExposed;
        }
        return;
    }
    const bool fires = !mbTriggerSpent || mbAutoReArm;
    mbTriggerSpent = true;
    if (fires && mtPhase == teSimPhase::eArmed) BeginExposure(now);
}

void tcSimReadout::Step(double now)
{
    if (mtPhase == teSimPhase::ePausing && now >= mnDue) BeginFrame(mnDue);
    if (mtPhase == teSimPhase::eExposing && mtTiming.trigger != eExtTrigExposure && now >= mnDue) {
        mtPhase = teSimPhase::eExposed;
    }
}

std::optional<double> tcSimReadout::Due() const
{
    if (mtPhase == teSimPhase::ePausing) return mnDue;
    if (mtPhase == teSimPhase::eExposing && mtTiming.trigger != eExtTrigExposure) return mnDue;
    return std::nullopt;
}

void tcSimReadout::BeginSending()
{
    if (mtPhase == teSimPhase::eExposed) mtPhase = teSimPhase::eSending;
}

void tcSimReadout::FrameSent(double now)
{
    if (mtPhase != teSimPhase::eSending) return;
    if (LastFrame()) {
        mtPhase = teSimPhase::eIdle;
        return;
    }
    ++mnFrame;
    mnDue = std::max(mnExposureStart + mtTiming.interval, now);
    mtPhase = teSimPhase::ePausing;
    Step(now);
}

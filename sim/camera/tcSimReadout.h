// A readout in progress: which frame, and whether it waits, exposes or is sent.
#ifndef TCSIMREADOUT_H
#define TCSIMREADOUT_H

#include "vxcamtypes.h"

#include <cstdint>
#include <optional>

// What a readout is to do in time. All times are in seconds of camera time.
struct tsSimTiming {
    uint32_t frames = 1; // 0: until aborted
    double exposure = 0;
    double interval = 0; // from the start of one frame to the start of the next, at least
    teExtTrigMode trigger = eExtTrigOff;
};

enum class teSimPhase {
    eIdle,
    eArmed, // waits for a trigger
    eExposing,
    eExposed, // the picture may go out
    eSending,
    ePausing // until the interval has passed
};

// Has no clock: every call that depends on time is told it.
// Threads: one.
class tcSimReadout
{
public:
    // False, and nothing changes, while one is running.
    bool Start(const tsSimTiming& timing, double now);
    void Abort();

    // The trigger's level. Going active fires, and then only after the trigger has been inactive or
    // was re-armed automatically does it fire again.
    void SetTrigger(bool active, double now);
    void SetAutoReArm(bool on) { mbAutoReArm = on; }

    // Moves on as far as time has come. Frames at an interval begin when they are due, however late
    // that is seen: a camera's clock waits for nobody.
    void Step(double now);
    // When Step will have something to do; none when it waits for something else than time.
    std::optional<double> Due() const;

    void BeginSending(); // from eExposed
    void FrameSent(double now);

    teSimPhase Phase() const { return mtPhase; }
    bool Running() const { return mtPhase != teSimPhase::eIdle; }
    uint32_t Frame() const { return mnFrame; } // from 1
    bool LastFrame() const { return mtTiming.frames != 0 && mnFrame >= mtTiming.frames; }
    // Known before the exposure is over, except when a trigger's length decides it.
    bool ExposureKnown() const;
    double Exposure() const { return mnExposure; }
    // When the exposure of the frame began.
    double ExposureStart() const { return mnExposureStart; }

    // Between the starts of frames, of the current or most recent readout; 0 before the second.
    double LastInterval() const { return mnLastInterval; }
    double ShortestInterval() const { return mnShortestInterval; }
    double LongestInterval() const { return mnLongestInterval; }

private:
    void BeginFrame(double now);
    void BeginExposure(double now);

    tsSimTiming mtTiming;
    teSimPhase mtPhase = teSimPhase::eIdle;
    uint32_t mnFrame = 0;
    bool mbTriggerSpent = false, mbAutoReArm = true;
    bool mbFirstExposure = true;
    double mnExposureStart = 0, mnExposure = 0, mnDue = 0;
    double mnLastInterval = 0, mnShortestInterval = 0, mnLongestInterval = 0;
};

#endif

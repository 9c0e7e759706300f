// What the simulated camera has done so far: counters, recent frames, and the events raised.
#ifndef TCSIMLEDGER_H
#define TCSIMLEDGER_H

#include "tcSimServer.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Threads: any, except for Raise and the Frame functions: one.
// Locks: mtMutex guards counters and frames; not held while an event is raised.
class tcSimLedger
{
public:
    tcSimLedger(std::function<void(const tsSimEvent&)> events, bool trace);

    void Count(uint64_t tsSimStatistics::*counter, uint64_t count = 1);
    void SetConnected(bool connected);
    tsSimStatistics Statistics() const;
    std::vector<tsSimFrame> Frames() const;

    // The frame that is being sent: the most recent one until it is complete or aborted.
    void FrameBegins(const tsSimFrame& frame);
    void FrameGrows(uint32_t packets, uint64_t pixelSum, uint32_t crc, bool complete);
    // What has really gone out of a frame by now, also after its end.
    void FrameLeft(uint32_t readout, uint32_t frame, const tsSimSent& sent);
    // Ends the frame and raises its event: as complete, when all of it went out, else as aborted.
    void FrameEnds();

    void Strikes(const tsSimFault& fault);
    void Raise(teSimEvent event, const std::string& text);
    bool Traces() const { return mbTrace && mpEvents; }

private:
    const std::function<void(const tsSimEvent&)> mpEvents;
    const bool mbTrace;
    mutable std::mutex mtMutex;
    tsSimStatistics mtStatistics;
    std::deque<tsSimFrame> maFrames;
    bool mbFrameOpen = false;
};

#endif

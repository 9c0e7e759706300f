// Simulated cameras that several tests of the program use.
#ifndef SIMULATED_SUPPORT_H
#define SIMULATED_SUPPORT_H

#include "tcSimServer.h"

#include <string>
#include <vector>

inline constexpr double gnLamp = 40000; // electrons a pixel and second

// A camera before a lamp.
inline tsSimOptions Lamp(uint16_t columns, uint16_t rows, double timeScale)
{
    tsSimOptions options;
    options.columns = columns;
    options.rows = rows;
    options.timeScale = timeScale;
    options.tunables = [] {
        tsSimTunables tunables;
        tunables.sky = gnLamp;
        return tunables;
    };
    return options;
}

// A small camera that says often how it is.
inline tsSimOptions Talkative(const std::vector<std::string>& faults)
{
    tsSimOptions options;
    options.columns = 96;
    options.rows = 64;
    options.heartbeatSeconds = 0.05;
    options.faults = ParseSimFaults(faults);
    return options;
}

// Starts it: the program's target.
inline std::string TargetOf(tcSimServer& camera)
{
    return "127.0.0.1:" + std::to_string(camera.Start());
}

#endif

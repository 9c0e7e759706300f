// Every function of the public header as a call with what it tells.
#ifndef INTERFACE_CALLS_H
#define INTERFACE_CALLS_H

#include "system_support.h"

#include <functional>
#include <string>
#include <vector>

inline constexpr int nRows = 64, nColumns = 96, nSerial = 4711;

struct tsCall {
    const char* name;
    std::function<std::string(int handle)> call; // "result: output output ..."
    std::string expected;                        // with an open camera
};

// The camera, which serves one client at a time.
extern const tcSimServer* gpSim;

int Close(int handle);

// Those that come without a handle; the camera has been closed.
std::vector<tsCall> Opening();

std::vector<tsCall> AllCalls();

#endif

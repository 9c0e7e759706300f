// The options of the program.
#ifndef VXSIM_SIMOPTIONS_H
#define VXSIM_SIMOPTIONS_H

#include "tcSimServer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// How it ends.
enum teSimExit { eSimDone = 0, eSimUsage = 1, eSimNetwork = 2, eSimOutputGone = 3 };

inline constexpr const char* gsSimSummary =
    "A simulated camera: takes pictures of a star field and sends them over TCP.";

struct tsProgram {
    tsSimOptions camera;
    std::string sensor = "2048x2048", drift = "0,0";
    bool json = false, quiet = false, once = false;
    std::string scenario;
    std::vector<std::string> faults;
    uint16_t itemPort = 0, debugPort = 0; // 0: no such service
};

// Parsing fills in the program, which must outlive the parser. `--help` explains the faults, too.
void Declare(CLI::App& app, tsProgram& program);

// Puts the faults of the scenario, and behind them those of `--fault`, to the camera's options.
// Throws std::runtime_error.
void GatherFaults(tsProgram& program);

#endif

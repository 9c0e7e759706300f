// The vxcamd program.
#ifndef VXCAMD_SERVER_PROGRAM_H
#define VXCAMD_SERVER_PROGRAM_H

#include <string>
#include <vector>

namespace vxcam {

// Serves until SIGINT or SIGTERM; the exit code. The arguments are those behind the program's name.
int runServer(std::vector<std::string> arguments);

} // namespace vxcam

#endif

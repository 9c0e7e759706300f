// What main() calls once the library is loaded.
#include "program.h"
#include "vxexport.h"

extern "C" VX_EXPORT int vxcamRun(int argc, char** argv)
{
    return RunProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

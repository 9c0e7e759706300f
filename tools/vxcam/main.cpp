#include "program.h"
#include "tcDbgd.h"

#include "standardfiles.h"

#include <cstdlib>

// The program opens no port to the network, unless it is told which.
extern "C" const int VXNoDebugServices = 1;

int main(int argc, char** argv)
{
    OpenStandardFiles();
    if (std::getenv("DBGD_PORTNUM")) {
        tcDbgd::sbHeedsOptOut = false;
        tcDbgd::getItem()->StartServer();
    }
    return RunProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

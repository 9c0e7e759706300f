#include "server_program.h"
#include "vxexport.h"

// The program opens no port but its own. The library sees this name since its header is there.
extern "C" const int VXNoDebugServices = 1;

int main(int argc, char** argv)
{
    return vxcam::runServer(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

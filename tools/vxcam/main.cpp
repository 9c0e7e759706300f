// Starts the program. The library reads parts of its environment, and starts its debug services,
// while it is being loaded; so the environment is prepared first, and the library comes with the
// module that holds all the rest.
#include "failure.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    // A command that lives for seconds opens no port to the network, unless it is told which.
    if (std::getenv("DBGD_PORTNUM") == nullptr) ::setenv("DBGD_DISABLE", "1", 0);
    void* const module = ::dlopen(VXCAM_MODULE, RTLD_NOW);
    void* const run = module != nullptr ? ::dlsym(module, "vxcamRun") : nullptr;
    if (run == nullptr) {
        std::fprintf(stderr, "vxcam: %s\n", ::dlerror());
        return eExitFile;
    }
    return reinterpret_cast<int (*)(int, char**)>(run)(argc, argv);
}

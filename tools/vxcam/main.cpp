// Starts the program. The library reads parts of its environment, and starts its debug services,
// while it is being loaded; so the environment is prepared in a process without the library, which
// then becomes the program proper.
#include "failure.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string FolderOfProgram()
{
    char path[PATH_MAX] = "";
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, length > 0 ? static_cast<size_t>(length) : 0);
    return program.substr(0, program.rfind('/') + 1);
}

} // namespace

// Found beside this program, as it is built, or where it is installed; relative to this program, so
// that an installation can be moved.
int main(int, char** argv)
{
    // These programs open no port to the network, unless they are told which.
    if (std::getenv("DBGD_PORTNUM") == nullptr) ::setenv("DBGD_DISABLE", "1", 0);
    const std::string folder = FolderOfProgram();
    for (const char* name : {VXCAM_PROPER, VXCAM_FOLDER "/" VXCAM_PROPER}) {
        const std::string path = folder + name;
        ::execv(path.c_str(), argv);
    }
    std::fprintf(stderr, VXCAM_NAME ": %s: %s\n", VXCAM_PROPER, std::strerror(errno));
    return eExitFile;
}

// Writes what an installation holds beside the program: vxcamdpages MANUAL COMPLETION
#include "pages/server_pages.h"

#include <cstdlib>
#include <fstream>

namespace {

bool isWritten(const char* path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    return file.flush().good();
}

} // namespace

int main(int argc, char** argv)
{
    const bool isGood = argc == 3 && isWritten(argv[1], vxcam::serverManual()) &&
                        isWritten(argv[2], vxcam::serverCompletion());
    return isGood ? EXIT_SUCCESS : EXIT_FAILURE;
}

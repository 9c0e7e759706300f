// Writes what an installation holds beside the program: makesimpages MANUAL COMPLETION
#include "simpages.h"

#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 3) return 1;
    const bool manual = (std::ofstream(argv[1]) << SimManualPage()).flush().good();
    const bool completion = (std::ofstream(argv[2]) << SimCompletion()).flush().good();
    return manual && completion ? 0 : 1;
}

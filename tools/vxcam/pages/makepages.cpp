// Writes what an installation holds beside the program: makepages MANUAL BASH ZSH FISH
#include "pages.h"

#include <fstream>

int main(int argc, char** argv)
{
    std::string (*const makers[])() = {ManualPage, BashCompletion, ZshCompletion, FishCompletion};
    if (argc != 5) return 1;
    bool isWritten = true;
    for (int i = 1; i < argc; ++i) {
        isWritten = (std::ofstream(argv[i]) << makers[i - 1]()).flush().good() && isWritten;
    }
    return isWritten ? 0 : 1;
}

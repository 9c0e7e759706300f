// Writes what an installation holds beside the program: makepages MANUAL COMPLETION
#include "pages.h"

#include <cstdio>
#include <fstream>

int main(int argc, char** argv)
{
    if (argc != 3) return 1;
    std::ofstream manual(argv[1]), completion(argv[2]);
    manual << ManualPage();
    completion << BashCompletion();
    manual.close();
    completion.close();
    return manual && completion ? 0 : 1;
}

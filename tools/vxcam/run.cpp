// The program proper, started by main.cpp.
#include "program.h"

#include "standardfiles.h"

int main(int argc, char** argv)
{
    OpenStandardFiles();
    return RunProgram(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

// Writes what an installation holds beside the program: makepages DOCUMENT MANUAL BASH ZSH FISH
#include "pages.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string TextOf(const char* path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

void Write(const char* path, const std::string& text)
{
    if (!(std::ofstream(path) << text).flush()) throw std::runtime_error(path);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 6) return 1;
    Write(argv[2], ManualPage(TextOf(argv[1])));
    Write(argv[3], BashCompletion());
    Write(argv[4], ZshCompletion());
    Write(argv[5], FishCompletion());
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "makepages: %s\n", error.what());
    return 1;
}

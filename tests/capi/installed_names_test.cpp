// Whose dirname and basename programs get, and libraries beside them.
#include "installed.h"

namespace {

const std::string gsSources = VX_SOURCE_DIR "/tests/capi/names/";
const std::string gsFlags =
    " -Wall -Wextra -Werror $(pkg-config --cflags --libs vxcamiface) -ldl " VX_SANITIZE_FLAGS;

class InstalledNames : public Installed
{
protected:
    // A program linked with the library, and a library beside it that knows nothing of it. `linker`
    // is an option of the compiler.
    std::string Report(const std::string& linker)
    {
        const std::string users = gsSources + "posix.c " + gsSources + "gnu.c ";
        Run("cc -shared -fPIC -Wl,-Bsymbolic " + users + VX_SANITIZE_FLAGS + " -o other.so");
        Run("cc " + linker + " " + gsSources + "main.c " + users + gsFlags + " -o program");
        return Run("./program ./other.so libvxcamiface.so.3");
    }
};

// "." and "b" are what the C library's functions make of "file" and "a/b/", GNU's own of the latter
// "".
const char* const gpSystem = "posix: '.' 'b' system system\n"
                             "gnu: '.' '' system system\n";

} // namespace

TEST_F(InstalledNames, OfTheSystemGoToProgramsAndOtherLibrariesThoseOfTheLibraryToDlsym)
{
    const std::string expected =
        std::string(gpSystem) + gpSystem + "dlsym: '' '' library library\n";
    EXPECT_EQ(Report(""), expected);
    int found = -1;
    Output("command -v ld.lld", &found);
    if (found != 0) return; // no other linker
    EXPECT_EQ(Report("-fuse-ld=lld"), expected);
}

TEST_F(InstalledNames, OfTheLibraryGoToProgramsThatIncludeItsHeader)
{
    for (const char* compiler : {"c++", "clang++"}) {
        int found = -1;
        Output(std::string("command -v ") + compiler, &found);
        const bool hasItsSanitizers =
            std::string(compiler) == "c++" || sizeof VX_SANITIZE_FLAGS == 1;
        if (found != 0 || !hasItsSanitizers) continue;
        Run(compiler + (" -std=c++17 " + gsSources) + "own.cpp" + gsFlags + " -o own");
        EXPECT_EQ(Run("./own"), "own: '' '' library library\n'' '' 'b'\n");
    }
}

// Programs and modules that decide when they are built whether the process has a debug daemon.
#include "installed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace {

// Each prints how many threads it has once the library is there: the daemon's starts with that.
const std::string gsPrint = R"(
#include <dirent.h>
#include <stdio.h>
static int Print(void)
{
    DIR* folder = opendir("/proc/self/task");
    int count = 0;
    while (folder && readdir(folder)) ++count;
    if (folder) closedir(folder);
    return printf("%d\n", count - 2) < 2;
}
)";
const std::string gsUse = gsPrint + R"(
#include <vxcamiface.h>
int main(void) { return VXGetDllVersion() == 0 || Print(); }
)";
// As an interpreter loads its extensions.
const std::string gsLoader = R"(#define _GNU_SOURCE
#include <dlfcn.h>
)" + gsPrint + R"(
int main(int count, char** words)
{
    if (count != 2) return 2;
    if (!dlopen(words[1], RTLD_NOW | RTLD_LOCAL)) return fputs(dlerror(), stderr) + 3;
    return Print();
}
)";
const std::string gsModule = R"(
#include <vxcamiface.h>
extern int Version(void);
int Version(void) { return VXGetDllVersion(); }
)";
const std::string gsNoC = "const int VXNoDebugServices = 1;\n";
const std::string gsNoCxx = "extern \"C\" const int VXNoDebugServices = 1;\n";

// Programs are built as the README's is, with one more flag or word each.
class OptOut : public Installed
{
protected:
    OptOut()
    {
        setenv("DBGD_PORTNUM", "0", 1);
        setenv("DBGD_BIND", "127.0.0.1", 1);
        setenv("DBGD_ANNOUCE_GROUP", "127.0.0.1:9", 1);
    }

    // The path of what was built.
    std::string Build(const std::string& compiler, const std::string& source)
    {
        const bool isCxx = compiler.find("++") != std::string::npos;
        const std::string path = msFolder + "/" + std::to_string(++mnBuilt);
        const std::string file = path + (isCxx ? ".cpp" : ".c");
        std::ofstream(file) << source;
        int status = -1;
        const std::string output =
            Output(compiler + " -Wall -Wextra -Wpedantic -Werror " VX_SANITIZE_FLAGS " " + file +
                       " $(pkg-config --cflags --libs vxcamiface) -o " + path + " 2>&1",
                   &status);
        EXPECT_EQ(0, status) << compiler << "\n" << output;
        return path;
    }

    // Threads that a command has for the daemon.
    static int DaemonThreads(const std::string& command)
    {
        return Threads(command, "") - Threads(command, "DBGD_DISABLE=1 ");
    }

    // Whether a word can be handed to the linker's driver here.
    bool Takes(const std::string& compiler)
    {
        std::ofstream(msFolder + "/empty.c") << "int main(void) { return 0; }\n";
        int status = -1;
        Output(compiler + " " VX_SANITIZE_FLAGS " -x c " + msFolder + "/empty.c -o " + msFolder +
                   "/empty 2>&1",
               &status);
        return status == 0;
    }

private:
    static int Threads(const std::string& command, const std::string& environment)
    {
        int status = -1;
        const std::string text =
            Output("env -u DBGD_DISABLE " + environment + command + " 2>&1", &status);
        EXPECT_EQ(0, status) << command << "\n" << text;
        return std::atoi(text.c_str());
    }

    int mnBuilt = 0;
};

} // namespace

TEST_F(OptOut, ProgramsHaveADaemonUnlessTheySayOtherwise)
{
    EXPECT_GE(DaemonThreads(Build("cc", gsUse)), 1);
    EXPECT_GE(DaemonThreads(Build("c++", gsUse)), 1);
    EXPECT_GE(DaemonThreads(Build("cc", gsUse + "const int VXNoDebugServices = 0;\n")), 1);
}

TEST_F(OptOut, HoldsForProgramsOfEveryKind)
{
    for (const char* compiler :
         {"cc", "cc -fPIE -pie", "cc -fno-pie -no-pie", "cc -O2 -flto", "cc -fvisibility=hidden",
          "cc -O2 -ffunction-sections -fdata-sections -Wl,--gc-sections", "cc -Wl,--as-needed"}) {
        EXPECT_EQ(0, DaemonThreads(Build(compiler, gsUse + gsNoC))) << compiler;
    }
    for (const char* compiler : {"c++", "c++ -fno-pie -no-pie", "c++ -fvisibility=hidden"})
        EXPECT_EQ(0, DaemonThreads(Build(compiler, gsUse + gsNoCxx))) << compiler;
    EXPECT_EQ(0, DaemonThreads(Build("cc", gsUse + "const int VXNoDebugServices = -7;\n")));
}

TEST_F(OptOut, NeedsNoHeaderWhereNamesAreNotHidden)
{
    const std::string use = "int VXGetDllVersion(void);\n" + gsPrint +
                            "int main(void) { return VXGetDllVersion() == 0 || Print(); }\n";
    EXPECT_EQ(0, DaemonThreads(Build("cc", use + gsNoC)));
    EXPECT_EQ(0, DaemonThreads(Build("c++ -x c++", "extern \"C\" " + use + gsNoCxx)));
}

TEST_F(OptOut, HoldsWithOtherLinkers)
{
    if (VX_SANITIZED) GTEST_SKIP() << "the sanitizers' runtimes go with one compiler and linker";
    for (const char* compiler :
         {"cc -fuse-ld=gold", "clang", "clang -fuse-ld=lld", "clang -flto -fuse-ld=lld"}) {
        if (!Takes(compiler)) continue;
        EXPECT_EQ(0, DaemonThreads(Build(compiler, gsUse + gsNoC))) << compiler;
    }
}

TEST_F(OptOut, HoldsForModulesThatBringTheLibrary)
{
    const std::string loader = Build("cc -Wl,--as-needed", gsLoader) + " ";
    const std::string module = "cc -shared -fPIC", moduleCxx = "c++ -shared -fPIC";
    EXPECT_EQ(0, DaemonThreads(loader + Build(module, gsModule + gsNoC)));
    EXPECT_EQ(0, DaemonThreads(loader + Build(module + " -fvisibility=hidden", gsModule + gsNoC)));
    EXPECT_EQ(0, DaemonThreads(loader + Build(moduleCxx, gsModule + gsNoCxx)));
    EXPECT_GE(DaemonThreads(loader + Build(module, gsModule)), 1);
    EXPECT_GE(DaemonThreads(loader + VX_LIBRARY), 1);
}

TEST_F(OptOut, OfAProgramHoldsForTheModulesThatItLoads)
{
    const std::string module = Build("cc -shared -fPIC", gsModule);
    EXPECT_EQ(
        0, DaemonThreads(Build("cc -rdynamic -Wl,--as-needed", gsLoader + gsNoC) + " " + module));
}

TEST_F(OptOut, IsNotThereForAnInterpreterThatLoadsTheLibraryItself)
{
    if (VX_SANITIZED) GTEST_SKIP() << "the interpreter is built without the sanitizer";
    if (system("python3 -c 'import ctypes' 2> /dev/null") != 0) GTEST_SKIP() << "no python3";
    const std::string load = "import ctypes, os; ctypes.CDLL(os.environ[\"LOADED\"]); "
                             "print(len(os.listdir(\"/proc/self/task\")))";
    setenv("LOADED", VX_LIBRARY, 1);
    EXPECT_GE(DaemonThreads("python3 -c '" + load + "'"), 1);
    setenv("LOADED", Build("cc -shared -fPIC", gsModule + gsNoC).c_str(), 1);
    EXPECT_EQ(0, DaemonThreads("python3 -c '" + load + "'"));
}

TEST_F(OptOut, IsLiftedByAProgramThatLeavesItToItsUser)
{
    const std::string begin = gsPrint + gsNoCxx + "#include <tcDbgd.h>\nint main() { ";
    const std::string end = "tcDbgd::getItem()->StartServer(); return Print(); }\n";
    EXPECT_EQ(0, DaemonThreads(Build("c++ -std=c++17", begin + end)));
    EXPECT_GE(
        DaemonThreads(Build("c++ -std=c++17", begin + "tcDbgd::sbHeedsOptOut = false; " + end)), 1);
}

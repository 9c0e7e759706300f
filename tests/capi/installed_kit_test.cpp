// What an application sees of the installed kit: pkg-config, CMake package, headers and names.
#include "installed.h"

#include <gmock/gmock.h>

#include <regex>
#include <set>

namespace {

// Needs the library itself, not only its headers.
constexpr const char* gsProgram = R"(#include <vxcamkit/error.h>
#include <vxcamkit/frame.h>

#include <cstdio>

int main()
{
    try {
        vxcam::FrameFacts facts;
        facts.rows = facts.columns = 2;
        std::printf("sum %d\n", static_cast<int>(vxcam::Frame(facts).sum()));
        vxcam::Frame(facts).pixels<uint8_t>();
    } catch (const vxcam::Error& error) {
        std::printf("%s: %s\n", error.row().name, error.what());
    }
}
)";
constexpr const char* gsSays = "sum 0\nusage: the frame's pixels have 16 bits, not 8\n";

} // namespace

class InstalledKit : public Installed
{};

TEST_F(InstalledKit, PkgConfigBuildsAProgram)
{
    Write("frame.cpp", gsProgram);
    Run("c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror frame.cpp "
        "$(pkg-config --cflags --libs vxcamkit) " VX_SANITIZE_FLAGS " -o frame");
    EXPECT_EQ(Run("./frame"), gsSays);
    EXPECT_EQ(Trim(Run("pkg-config --modversion vxcamkit")), "1.0.0");
}

TEST_F(InstalledKit, CMakePackageBuildsAProgramThatRunsWhereItStands)
{
    unsetenv("LD_LIBRARY_PATH");
    Write("frame.cpp", gsProgram);
    Write("CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\n"
                            "project(frame LANGUAGES CXX)\n"
                            "find_package(vxcamiface 3 REQUIRED)\n"
                            "add_executable(frame frame.cpp)\n"
                            "target_link_libraries(frame PRIVATE vxcamiface::kit)\n");
    Run("cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH=" VX_PREFIX
        " -DCMAKE_CXX_FLAGS='" VX_SANITIZE_FLAGS "' && cmake --build build");
    EXPECT_EQ(Run("build/frame"), gsSays);
}

TEST_F(InstalledKit, HeadersLieFlatAndAreThePublicOnes)
{
    std::set<std::string> found, expected;
    for (const auto& entry : fs::directory_iterator(VX_PREFIX "/include/vxcamkit")) {
        found.insert(entry.path().filename());
    }
    for (const std::string& header : Split(VXCAMKIT_HEADERS, ':')) {
        expected.insert(fs::path(header).filename());
    }
    EXPECT_EQ(found, expected);
}

// So that they can be used where the camera interface is not.
TEST_F(InstalledKit, HeadersNeedNothingButThemselvesAndTheStandardLibrary)
{
    const std::regex include(R"(#include [<"]([^>"]+)[>"])");
    for (const std::string& header : Split(VXCAMKIT_HEADERS, ':')) {
        const std::string text = ReadFile(header);
        for (std::sregex_iterator it(text.begin(), text.end(), include), end; it != end; ++it) {
            EXPECT_TRUE(std::regex_match((*it)[1].str(), std::regex(R"(vxcamkit/\w+\.h|\w+)")))
                << header << " includes " << (*it)[1];
        }
    }
}

TEST_F(InstalledKit, LibraryShowsItsOwnNamesOnly)
{
    const std::string library = VX_PREFIX "/" VX_LIBDIR "/libvxcamkit.so";
    EXPECT_EQ(fs::read_symlink(library), "libvxcamkit.so.1");
    const std::regex own(
        R"(^[0-9a-f]+ \S ((vtable|typeinfo|typeinfo name) for )?([^(]* )?vxcam::.*$)");
    const std::regex sanitizer(
        R"(^[0-9a-f]+ \S _*(asan|tsan|ubsan|lsan|odr_asan|sanitizer)[._].*$)");
    int names = 0;
    for (const std::string& line : Split(Run("nm -D -C --defined-only " + library), '\n')) {
        if (line.empty() || std::regex_match(line, sanitizer)) continue;
        EXPECT_TRUE(std::regex_match(line, own)) << line;
        ++names;
    }
    EXPECT_GT(names, 10);
}

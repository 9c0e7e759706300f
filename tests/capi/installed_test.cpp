// What an application sees of an installed tree: pkg-config, CMake package, headers and README.
#include "installed.h"
#include "tcSimServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

namespace {

// The first block of that language in the README.
std::string ReadmeBlock(const std::string& language)
{
    std::string text = ReadFile(VX_SOURCE_DIR "/README.md");
    size_t begin = text.find("\n```" + language + "\n");
    if (begin == std::string::npos) return "";
    begin = text.find('\n', begin + 1) + 1;
    return text.substr(begin, text.find("\n```", begin) + 1 - begin);
}

struct tsGreyMap {
    unsigned columns = 0, rows = 0;
    uint64_t sum = 0;
};

// A PGM file of 16 bits a pixel.
tsGreyMap ReadGreyMap(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string magic;
    unsigned maximum = 0;
    tsGreyMap map;
    file >> magic >> map.columns >> map.rows >> maximum;
    EXPECT_EQ(magic, "P5");
    EXPECT_EQ(maximum, 65535u);
    file.get();
    std::string bytes((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ(bytes.size(), size_t{2} * map.columns * map.rows);
    for (size_t i = 0; i < bytes.size(); ++i) {
        map.sum += static_cast<uint8_t>(bytes[i]) * (i % 2 == 0 ? 256u : 1u);
    }
    return map;
}

} // namespace

TEST_F(Installed, ReadmeProgramTakesAnImage)
{
    std::string command = Trim(ReadmeBlock("sh link"));
    ASSERT_THAT(command, ::testing::StartsWith("cc "));
    Write("grab.c", ReadmeBlock("c"));
    Run(command + " -Wall -Wextra -Wpedantic -Werror " VX_SANITIZE_FLAGS);

    tsSimOptions options;
    options.columns = 200;
    options.rows = 100;
    options.timeScale = 100;
    tcSimServer sim(options);
    unsigned port = sim.Start();
    Run("timeout 30 ./grab 127.0.0.1 " + std::to_string(port));

    tsGreyMap map = ReadGreyMap(msFolder + "/image.pgm");
    std::vector<tsSimFrame> frames = sim.Frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(map.columns, 200u);
    EXPECT_EQ(map.rows, 100u);
    EXPECT_EQ(map.sum, frames[0].pixelSum);
    EXPECT_GT(map.sum, 0u);
}

TEST_F(Installed, ReadmeProgramSaysThatThereIsNoCamera)
{
    Write("grab.c", ReadmeBlock("c"));
    Run(Trim(ReadmeBlock("sh link")) + " " VX_SANITIZE_FLAGS);
    Run("TCLOG_SUPPRESS_ERR_CONSOLE=1 ./grab 127.0.0.1 1; test $? = 1");
}

TEST_F(Installed, ReadmeProjectFindsThePackage)
{
    Write("CMakeLists.txt", ReadmeBlock("cmake"));
    Write("grab.c", ReadmeBlock("c"));
    Run("cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH=" VX_PREFIX
        " -DCMAKE_C_FLAGS='" VX_SANITIZE_FLAGS "' && cmake --build build");
    Run("./build/grab; test $? = 1");
}

TEST_F(Installed, PackageRefusesAnotherMajorVersion)
{
    Write("CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\nproject(other LANGUAGES C)\n"
                            "find_package(vxcamiface 3.0 REQUIRED)\n"
                            "find_package(vxcamiface 4 QUIET)\n"
                            "message(STATUS \"found four: ${vxcamiface_FOUND}\")\n");
    EXPECT_THAT(Run("cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH=" VX_PREFIX),
                ::testing::HasSubstr("found four: 0"));
}

TEST_F(Installed, CxxProgramCanDeriveACamera)
{
    std::string command =
        "c++ -std=c++17 -Wall -Wextra -Werror " VX_SOURCE_DIR "/tests/capi/consumer.cpp "
        "$(pkg-config --cflags --libs vxcamiface) " VX_SANITIZE_FLAGS " -o consumer";
    Run(command);
    Run("./consumer");
}

TEST_F(Installed, PkgConfigTellsTheVersion)
{
    EXPECT_EQ(Trim(Run("pkg-config --modversion vxcamiface")), "3.0.7");
}

TEST_F(Installed, HeadersLieFlatAndAreThePublicOnes)
{
    std::set<std::string> found, expected;
    for (const auto& entry : fs::directory_iterator(VX_PREFIX "/include/vxcamiface")) {
        found.insert(entry.path().filename());
    }
    for (const std::string& header : Split(VX_PUBLIC_HEADERS, ':')) {
        expected.insert(fs::path(header).filename());
    }
    EXPECT_EQ(found, expected);
}

TEST_F(Installed, LibraryHasItsLinkNames)
{
    std::string folder = VX_PREFIX "/" VX_LIBDIR "/";
    EXPECT_EQ(fs::read_symlink(folder + "libvxcamiface.so"), "libvxcamiface.so.3");
    EXPECT_EQ(fs::read_symlink(folder + "libvxcamiface.so.3"), "libvxcamiface.so.3.0.7");
    EXPECT_TRUE(fs::is_regular_file(folder + "libvxcamiface.so.3.0.7"));
}

TEST_F(Installed, ReadmeProgramLinksWithTheArchive)
{
    Write("grab.c", ReadmeBlock("c"));
    std::string flags = Trim(Run("pkg-config --static --libs vxcamiface"));
    flags.replace(flags.find("-lvxcamiface"), 12, "-l:libvxcamiface.a");
    Run("cc -std=c11 grab.c $(pkg-config --cflags vxcamiface) " + flags +
        " " VX_SANITIZE_FLAGS " -o grab");
    EXPECT_THAT(Run("readelf -d grab"), ::testing::Not(::testing::HasSubstr("vxcamiface")));

    tsSimOptions options;
    options.columns = 20;
    options.rows = 10;
    options.timeScale = 100;
    tcSimServer sim(options);
    Run("timeout 30 ./grab 127.0.0.1 " + std::to_string(sim.Start()));
    ASSERT_EQ(sim.Frames().size(), 1u);
    EXPECT_EQ(ReadGreyMap(msFolder + "/image.pgm").sum, sim.Frames()[0].pixelSum);
}

TEST_F(Installed, DocumentsLieWhereTheyAreLookedFor)
{
    for (const char* name :
         {"README.md", "LICENSE", "SECURITY.md", "CHANGELOG.md", "docs/vxcam.md"}) {
        EXPECT_TRUE(fs::is_regular_file(std::string(VX_PREFIX "/share/doc/vxcamiface/") + name))
            << name;
    }
}

TEST_F(Installed, UninstallingRemovesWhatIsListedAndNothingElse)
{
    fs::create_directories(msFolder + "/root/include/vxcamiface");
    fs::create_directories(msFolder + "/root/bin");
    for (const char* name : {"root/include/vxcamiface/a.h", "root/bin/vxcam", "root/bin/other"}) {
        Write(name, "x");
    }
    Write("manifest", msFolder + "/root/include/vxcamiface/a.h\n" + msFolder + "/root/bin/vxcam\n" +
                          msFolder + "/root/bin/gone\n");
    Run("cmake -D manifest=" + msFolder + "/manifest -P " VX_SOURCE_DIR "/cmake/uninstall.cmake");
    EXPECT_FALSE(fs::exists(msFolder + "/root/include/vxcamiface"));
    EXPECT_FALSE(fs::exists(msFolder + "/root/bin/vxcam"));
    EXPECT_TRUE(fs::exists(msFolder + "/root/include"));
    EXPECT_TRUE(fs::exists(msFolder + "/root/bin/other"));
    Run("! cmake -D manifest=" + msFolder + "/none -P " VX_SOURCE_DIR "/cmake/uninstall.cmake");
}

TEST_F(Installed, ProgramsFindTheLibraryBesideThem)
{
    unsetenv("LD_LIBRARY_PATH");
    EXPECT_THAT(Run("readelf -d " VX_PREFIX "/bin/vxcam"), ::testing::HasSubstr("$ORIGIN/../"));
    EXPECT_THAT(Run(VX_PREFIX "/bin/vxcam --version"), ::testing::HasSubstr("3.0.7"));
    EXPECT_THAT(Run(VX_PREFIX "/bin/vxcamsim --help"), ::testing::HasSubstr("--sensor"));
}

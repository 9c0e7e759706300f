// The programs of the README, of docs/kit.md and of examples/, built against the installed tree.
#include "installed.h"
#include "tcSimServer.h"

#include <gmock/gmock.h>

#include <regex>
#include <thread>

using testing::ContainsRegex;
using testing::HasSubstr;

namespace {

// A recipe, and what it prints.
struct tsRecipe {
    std::string title, code;
};

constexpr const char* gaPrinted[][2] = {
    {"Take a picture, and know when", "128 x 96, middle .* \\+/- [0-9]+ us, commanded\n"},
    {"Take many frames, and lose none", "10 frames, sum [1-9][0-9]*, complete\n"},
    {"Show live frames, and drop those that come too fast", "frame 1, 0 dropped\n.*\n.*\n.*\n"},
    {"Use a frame of which something is missing", "1 packet missing, row 6 is 0\n"},
    {"Tell failures apart", "usage: .*did you mean gain"},
    {"Read and set properties", "gain 2\n(.*\n)*image-interval=50ms\n"},
    {"Read a part of the sensor, or bins", "64 x 32 of 8 bits, 64 x 48 of 32\n"},
    {"Start each frame with a trigger", "triggered\ntriggered\ntriggered\n"},
    {"Cool slowly, and warm up at the end", "settled\n"},
    {"Hear of what happens, and survive a lost link", "link-lost\n(.*\n)*gain 2\n"},
    {"Keep the settings in a file", "^gain 3\n"},
    {"Find the cameras of the local networks", "looked on "},
    {"Keep what happened before a failure", "\"event\":\"(sent|received)\""},
};

// What stands in fences of this kind below each heading.
std::vector<tsRecipe> Blocks(const std::string& path, const std::string& fence)
{
    std::vector<tsRecipe> blocks;
    std::string title;
    bool isInside = false;
    for (const std::string& line : Split(ReadFile(VX_SOURCE_DIR "/" + path), '\n')) {
        if (isInside && line == "```") {
            isInside = false;
        } else if (isInside) {
            blocks.back().code += line + "\n";
        } else if (line == "```" + fence) {
            isInside = true;
            blocks.push_back({title, ""});
        } else if (line.rfind("#", 0) == 0) {
            title = line.substr(std::min(line.size(), line.find(' ') + 1));
        }
    }
    return blocks;
}

class Recipes : public Installed
{
protected:
    // In a process without debug services.
    std::string RunQuietly(const std::string& command)
    {
        return Run("DBGD_DISABLE=1 TCLOG_SUPPRESS_ERR_CONSOLE=1 timeout 60 " + command);
    }
    std::string Picture() const { return ReadFile(msFolder + "/picture.pgm"); }
};

} // namespace

TEST_F(Recipes, OfThePageRunAndPrintWhatTheySay)
{
    const std::vector<tsRecipe> recipes = Blocks("docs/kit.md", "cpp recipe");
    ASSERT_EQ(recipes.size(), std::size(gaPrinted));
    std::string program = Blocks("docs/kit.md", "cpp preamble").at(0).code +
                          "static const std::string target = \"sim?sensor=128x96&scale=20\";\n";
    std::string main = "int main(int, char** arguments)\n{\n";
    for (size_t i = 0; i < recipes.size(); ++i) {
        const std::string name = "recipe" + std::to_string(i);
        program += "static void " + name + "()\n{\n" + recipes[i].code + "}\n";
        main += "    if (arguments[1] == std::string(\"" + name + "\")) " + name + "();\n";
    }
    Write("recipes.cpp", program + main + "}\n");
    Run("c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror recipes.cpp "
        "$(pkg-config --cflags --libs vxcamkit) " VX_SANITIZE_FLAGS " -o recipes");
    ASSERT_FALSE(HasFailure()) << "it does not compile";
    for (size_t i = 0; i < recipes.size(); ++i) {
        EXPECT_EQ(recipes[i].title, gaPrinted[i][0]);
        const std::string printed = RunQuietly("./recipes recipe" + std::to_string(i));
        EXPECT_TRUE(std::regex_search(printed, std::regex(gaPrinted[i][1])))
            << recipes[i].title << "\n"
            << printed;
    }
}

TEST_F(Recipes, ReadmeProgramTakesAPictureWithTrueTimes)
{
    const std::string program = Blocks("README.md", "cpp").at(0).code;
    EXPECT_LE(Split(program, '\n').size(), 21u);
    Write("picture.cpp", program);
    Run(Trim(Blocks("README.md", "sh kit").at(0).code) +
        " -Wall -Wextra -Werror " VX_SANITIZE_FLAGS);

    tsSimOptions options;
    options.columns = 200;
    options.rows = 100;
    tcSimServer sim(options);
    const std::string printed = RunQuietly("./picture 127.0.0.1:" + std::to_string(sim.Start()));
    const std::vector<tsSimFrame> frames = sim.Frames();
    ASSERT_EQ(frames.size(), 1u);
    uint64_t sum = 0;
    const std::string picture = Picture();
    const std::string head = "P5 200 100 255\n";
    ASSERT_EQ(picture.substr(0, head.size()), head);
    for (const char pixel : picture.substr(head.size())) {
        sum += static_cast<uint8_t>(pixel);
    }
    EXPECT_EQ(sum, frames[0].pixelSum);

    std::smatch found;
    const std::regex line(R"(^begin \S+:([0-9.]+) \+/- ([0-9]+) us\n$)");
    ASSERT_TRUE(std::regex_match(printed, found, line)) << printed;
    const double second = static_cast<double>(frames[0].begin.realtime % 60000000000) / 1e9;
    double away = std::abs(std::stod(found[1]) - second);
    away = std::min(away, 60 - away);
    EXPECT_LE(away, std::stod(found[2]) / 1e6 + 2e-6);
}

TEST_F(Recipes, ReadmeProjectFindsTheKitAndTakesAPictureWithoutACamera)
{
    Write("CMakeLists.txt", Blocks("README.md", "cmake kit").at(0).code);
    Write("picture.cpp", Blocks("README.md", "cpp").at(0).code);
    Run("cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH=" VX_PREFIX
        " -DCMAKE_CXX_FLAGS='" VX_SANITIZE_FLAGS "' && cmake --build build");
    RunQuietly("./build/picture 'sim?sensor=64x48'");
    EXPECT_EQ(Picture().size(), std::string("P5 64 48 255\n").size() + 64 * 48);
    EXPECT_THAT(Run("{ DBGD_DISABLE=1 ./build/picture 127.0.0.1:1; test $? = 2; }"),
                HasSubstr("no camera answers"));
}

TEST_F(Recipes, ExamplesOfTheKitRun)
{
    Run("cmake -G Ninja -S " VX_SOURCE_DIR "/examples/kit -B build -DCMAKE_PREFIX_PATH=" VX_PREFIX
        " -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror " VX_SANITIZE_FLAGS "' && cmake --build build");
    EXPECT_THAT(RunQuietly("build/sequence 'sim?sensor=64x48' 3 5"),
                ContainsRegex("    3  .* ms, sum [1-9][0-9]*\n"));
    const std::string lossy =
        RunQuietly("build/sequence 'sim?sensor=64x48&fault=reset:readout=1,frame=2,packet=5' 3 5");
    EXPECT_THAT(lossy, HasSubstr("connection was lost"));
    EXPECT_THAT(lossy, ContainsRegex("    2  .* ms, sum"));
    RunQuietly("build/darks 'sim?sensor=64x48&scale=100' 5 3 dark.pgm");
    EXPECT_EQ(ReadFile(msFolder + "/dark.pgm").size(),
              std::string("P5 64 48 65535\n").size() + size_t{2} * 64 * 48);
}

TEST_F(Recipes, ExampleInCRuns)
{
    Run("cc -std=c11 -Wall -Wextra -Wpedantic -Werror " VX_SOURCE_DIR "/examples/c/frames.c "
        "$(pkg-config --cflags --libs vxcamiface) " VX_SANITIZE_FLAGS " -o frames");
    tsSimOptions options;
    options.columns = 64;
    options.rows = 48;
    tcSimServer sim(options);
    const std::string printed =
        RunQuietly("./frames 127.0.0.1 " + std::to_string(sim.Start()) + " 5");
    const std::vector<tsSimFrame> frames = sim.Frames();
    ASSERT_EQ(frames.size(), 5u);
    for (const tsSimFrame& frame : frames) {
        EXPECT_THAT(printed, HasSubstr("frame " + std::to_string(frame.frame) + ": 64 x 48, sum " +
                                       std::to_string(frame.pixelSum) + ", 48 of 48 packets"));
    }
    EXPECT_THAT(printed, HasSubstr("5 complete, 0 incomplete, 0 lost\n"));
}

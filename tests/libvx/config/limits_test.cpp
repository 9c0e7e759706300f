// How much a small configuration file can make the loader hold.
#include "config_fixture.h"

#include <chrono>

namespace {

class ConfigLimits : public ConfigTest
{};

// `text` behind items of which the last, "vxcbig", has half a million characters.
std::string BehindALongItem(const std::string& text)
{
    std::string all = "vxc0=" + std::string(500, 'x') + "\n";
    for (int i = 1; i <= 10; ++i) {
        const std::string before = "$(vxc" + std::to_string(i - 1) + ")";
        all += "vxc" + std::to_string(i) + "=" + before + before + "\n";
    }
    return all + "vxcbig=$(vxc10)\n" + text;
}

size_t TextIn(const tcConfigFile::tItems& items)
{
    size_t size = 0;
    for (const auto& [key, value] : items) {
        size += key.size() + value.size();
    }
    return size;
}

size_t Made(const std::string& text)
{
    return (16u << 20) + 17 * text.size();
}

// How long a load takes beside others on a busy machine, at most.
constexpr std::chrono::seconds gnPatience = Within(std::chrono::seconds(60));

const std::string gsTooMuch = "a.cfg: Too much text! some variables and items are left out\n";
} // namespace

TEST_F(ConfigLimits, MakesOnlySoMuchTextInOneLoad)
{
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "v" + std::to_string(i) + "=$(vxcbig)\n";
    }
    auto file = Load(BehindALongItem(text + "b=1\nc=$(b)$(b)\n"));
    EXPECT_EQ(file->Errors(), gsTooMuch);
    EXPECT_LE(TextIn(file->Items()), Made(text) + 1000);
    EXPECT_EQ(file->GetItemInSection("", "v20", "").size(), 512000u);
    EXPECT_EQ(file->GetItemInSection("", "v999", ""), "$(vxcbig)");
    EXPECT_EQ(file->GetItemInSection("", "c", 0), 11); // so much still fits
    EXPECT_EQ(file->ExpandVars("$(vxcbig)").size(), 512000u);

    Write("b.cfg", "d=$(vxcbig)\n");
    file->LoadConfigFile("b.cfg", false); // another load
    EXPECT_EQ(file->GetItemInSection("", "d", "").size(), 512000u);
}

TEST_F(ConfigLimits, CountsTheTextOfAllFilesOfALoad)
{
    std::string text, includes;
    for (int i = 0; i < 8; ++i) {
        text += "v" + std::to_string(i) + "=$(vxcbig)\n";
    }
    for (int i = 0; i < 5; ++i) {
        Write("b" + std::to_string(i) + ".cfg", "[" + std::to_string(i) + "]\n" + text);
        includes += "!include b" + std::to_string(i) + ".cfg\n";
    }
    auto file = Load(BehindALongItem(includes));
    EXPECT_EQ(file->Errors(), "b3.cfg" + gsTooMuch.substr(5));
    EXPECT_EQ(file->GetItemInSection("4", "v7", ""), "$(vxcbig)");
}

TEST_F(ConfigLimits, CountsWhatTheEnvironmentPutsInPlace)
{
    setenv("CONFIGFILE_ENV_OVERIDE", "1", 1);
    setenv("vxcover", std::string(512000, 'y').c_str(), 1);
    std::string text;
    for (int i = 0; i < 200; ++i) {
        text += "[" + std::to_string(i) + "]\nvxcover=file\n";
    }
    auto file = Load(text);
    unsetenv("vxcover");
    EXPECT_EQ(file->Errors(), gsTooMuch);
    EXPECT_EQ(file->GetItemInSection("20", "vxcover", "").size(), 512000u);
    EXPECT_EQ(file->GetItemInSection("199", "vxcover", ""), "file");
}

TEST_F(ConfigLimits, CountsTheNamesOfUnknownOnes)
{
    std::string line, text;
    for (int i = 0; i < 1000; ++i) {
        line += "$(";
    }
    for (int i = 0; i < 200; ++i) {
        text += line + std::to_string(i) + ")\n";
    }
    EXPECT_LE(TextIn(Load(text)->Items()), Made(text) + 2 * text.size());
}

TEST_F(ConfigLimits, ASectionWithALongNameHoldsAllItsItems)
{
    const std::string section(100000, 's');
    std::string text = "b=1\n[" + section + "]\n";
    for (int i = 0; i < 600; ++i) {
        text += "v" + std::to_string(i) + "=1\n";
    }
    auto file = Load(text + "[c]\nd=1\n");
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->Items().size(), 602u);
    EXPECT_EQ(file->GetItemInSection(section, "v599", 0), 1);
    EXPECT_EQ(file->GetItemInSection("c", "d", 0), 1);
}

TEST_F(ConfigLimits, NamesOfSectionsBringOnlySoMuchText)
{
    const std::string section(30000, 's');
    std::string text = "[" + section + "]\n";
    for (int i = 0; i < 6000; ++i) {
        text += std::to_string(i) + "\n";
    }
    auto file = Load(text + "[c]\nd=1\n");
    EXPECT_EQ(file->Errors(), gsTooMuch);
    EXPECT_LE(TextIn(file->Items()), (64u << 20) + 1026 * text.size());
    EXPECT_EQ(file->GetItemInSection(section, "1500", 0), 1500);
    EXPECT_EQ(file->GetItemInSection("c", "d", 0), 1);
}

TEST_F(ConfigLimits, AFileOf100MiBLoadsWhole)
{
    constexpr size_t size = 100u << 20;
    const std::string section = "[" + std::string(500, 's') + "]\n", value(2000, 'v');
    std::string text = "vxcname=some\n";
    int count = 0;
    while (text.size() < size) {
        if (count % 1000 == 0) text += section;
        text += std::to_string(count++) + " = $(vxcname)/" + value + "\n";
    }
    const auto start = std::chrono::steady_clock::now();
    auto file = Load(text);
    EXPECT_LT(std::chrono::steady_clock::now() - start, gnPatience);
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->Items().size(), static_cast<size_t>(count) + 1);
    EXPECT_EQ(file->GetItemInSection(section.substr(1, 500), std::to_string(count - 1), ""),
              "some/" + value);
}

TEST_F(ConfigLimits, ALineOfManyVariablesLoadsWhole)
{
    constexpr int count = 2000000;
    std::string text = "vxca=1\nb=";
    for (int i = 0; i < count; ++i) {
        text += "$(vxca)";
    }
    const auto start = std::chrono::steady_clock::now();
    auto file = Load(text + "\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, gnPatience);
    EXPECT_EQ(file->Errors(), "");
    EXPECT_EQ(file->GetItemInSection("", "b", ""), std::string(count, '1'));
}

TEST_F(ConfigLimits, IncludesOneAfterTheOtherMayBeAsManyAsTheyLike)
{
    constexpr int count = 5000;
    std::string text;
    for (int i = 0; i < count; ++i) {
        Write("i" + std::to_string(i), "!include common\nv" + std::to_string(i) + "=$(vxca)\n");
        text += "!include i" + std::to_string(i) + "\n";
    }
    Write("common", "vxca=1\n");
    auto file = Load(text + "end=1\n");
    EXPECT_EQ(file->Errors().find("Not included!"), std::string::npos);
    EXPECT_EQ(file->Items().size(), count + 2u);
    EXPECT_EQ(file->GetItemInSection("", "end", 0), 1);

    std::string again;
    for (int i = 0; i < count; ++i) {
        again += "!include common\n";
    }
    file = Load(again + "end=1\n");
    EXPECT_EQ(file->Files().size(), count + 2u);
    EXPECT_EQ(file->GetItemInSection("", "end", 0), 1);
}

// Each file includes the next one twice: the last one would be read 2 to the power of 63 times.
TEST_F(ConfigLimits, IncludesThatDoubleComeToAnEndUnderAnyName)
{
    for (int i = 0; i < 63; ++i) {
        const std::string next = std::to_string(i + 1);
        Write(std::to_string(i), "!include " + next + "\n!include ./././" + next + "\n");
    }
    Write("63", std::string(3000, '#') + "\nlast=1\n");
    tcLoaded file("0");
    EXPECT_EQ(file.GetItemInSection("", "last", 0), 1);
    EXPECT_LT(file.Files().size(), 20000u);
    EXPECT_EQ(file.Errors().find("Not included!"), file.Errors().rfind("Not included!"));
    EXPECT_NE(file.Errors().find("Not included!"), std::string::npos);
}

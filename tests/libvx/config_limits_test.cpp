// How much a small configuration file can make the loader hold.
#include "config_fixture.h"

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

const std::string gsTooMuch = "a.cfg: Too much text! some variables and items are left out\n";
constexpr size_t gnMostText = 16u << 20;

} // namespace

TEST_F(ConfigLimits, MakesOnlySoMuchTextInOneLoad)
{
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        text += "v" + std::to_string(i) + "=$(vxcbig)\n";
    }
    auto file = Load(BehindALongItem(text + "b=1\nc=$(b)$(b)\n"));
    EXPECT_EQ(file->Errors(), gsTooMuch);
    EXPECT_LE(TextIn(file->Items()), gnMostText + text.size() + 1000);
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
    EXPECT_LE(TextIn(Load(text)->Items()), gnMostText + 3 * text.size());
}

TEST_F(ConfigLimits, ASectionWithALongNameHoldsOnlySoManyItems)
{
    const std::string section(100000, 's');
    std::string text = "b=1\n[" + section + "]\n";
    for (int i = 0; i < 1000; ++i) {
        text += "v" + std::to_string(i) + "=1\n";
    }
    auto file = Load(text + "[c]\nd=1\n");
    EXPECT_EQ(file->Errors(), gsTooMuch);
    EXPECT_EQ(file->Items().size(), 2 + gnMostText / section.size());
    EXPECT_EQ(file->GetItemInSection(section, "v160", 0), 1);
    EXPECT_EQ(file->GetItemInSection("c", "d", 0), 1);
}

#include "config_fixture.h"
#include "load_support.h"

#include <cstring>

namespace {

class ConfigFindFile : public ConfigTest
{};

} // namespace

TEST_F(ConfigFindFile, TakesAReadableNameAsItIs)
{
    Write("b.cfg", "");
    EXPECT_STREQ(Load("")->FindFile("b.cfg"), "b.cfg");
    const std::string absolute = mFolder / "b.cfg";
    EXPECT_EQ(Load("")->FindFile(absolute.c_str()), absolute);
}

TEST_F(ConfigFindFile, LooksBesideTheTopFile)
{
    std::filesystem::create_directory("etc");
    Write("etc/b.cfg", "");
    tcLoaded file("etc/missing.cfg");
    EXPECT_STREQ(file.FindFile("b.cfg"), "etc/b.cfg");
    EXPECT_EQ(file.FindFile("c.cfg"), nullptr);
    EXPECT_EQ(file.FindFile(nullptr), nullptr);
}

TEST_F(ConfigFindFile, RemembersABackslashAsTheSeparator)
{
    Write("etc\\b.cfg", "");
    tcLoaded file("etc\\missing.cfg");
    EXPECT_STREQ(file.FindFile("b.cfg"), "etc\\b.cfg");
}

TEST_F(ConfigFindFile, KeepsTheWholeNameOfATopFileWithoutSeparator)
{
    std::filesystem::create_directory("top");
    Write("top/b.cfg", "");
    EXPECT_STREQ(tcLoaded("top").FindFile("b.cfg"), "top/b.cfg");
}

TEST_F(ConfigFindFile, NeverCutsAtTheFirstCharacter)
{
    std::filesystem::create_directory("\\top");
    Write("\\top/b.cfg", "");
    EXPECT_STREQ(tcLoaded("\\top").FindFile("b.cfg"), "\\top/b.cfg");
}

TEST_F(ConfigFindFile, LooksInTheWorkingDirectoryForAnEmptyTopName)
{
    tcLoaded file("");
    std::filesystem::create_directory("sub");
    Write("sub/b.cfg", "");
    EXPECT_STREQ(file.FindFile("sub/b.cfg"), "sub/b.cfg");
    EXPECT_EQ(file.FindFile("b.cfg"), nullptr);
    EXPECT_EQ(file.FindFile("etc/passwd"), nullptr);
}

TEST_F(ConfigFindFile, PassesOverFilesThatCannotBeRead)
{
    std::filesystem::permissions(".", std::filesystem::perms(0755));
    std::filesystem::create_directory("etc");
    for (const char* name : {"b.cfg", "etc/b.cfg", "etc/c.cfg"}) {
        Write(name, "");
    }
    tcLoaded file("etc/missing.cfg");
    for (const char* name : {"b.cfg", "etc/c.cfg"}) {
        std::filesystem::permissions(name, std::filesystem::perms::none);
    }
    EXPECT_TRUE(AsNobody([&file] { return file.FindFile("b.cfg") == std::string("etc/b.cfg"); }));
    EXPECT_TRUE(AsNobody([&file] { return file.FindFile("c.cfg") == nullptr; }));
}

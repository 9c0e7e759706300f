// How the library presents itself to the dynamic linker.
#include "shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

namespace {

std::string DynamicSection()
{
    return Output(std::string("readelf -dW ") + VX_LIBRARY);
}

} // namespace

TEST(Library, HasItsVersionInItsFileNameAndTheInterfaceInItsSoname)
{
    EXPECT_EQ(std::filesystem::path(VX_LIBRARY).filename(), "libvxcamiface.so.3.0.7");
    EXPECT_THAT(DynamicSection(), ::testing::HasSubstr("Library soname: [libvxcamiface.so.3]\n"));
}

TEST(Library, NeedsOnlyTheCAndCxxLibraries)
{
    std::string section = DynamicSection();
    std::regex needed(R"(\(NEEDED\)\s+Shared library: \[([^\]]*)\])");
    std::regex expected(
        R"(^(libstdc\+\+|libm|libgcc_s|libc|libpthread|libdl|ld-linux[-\w]*)\.so\.\d+$)");
    std::regex sanitizer(R"(^lib(asan|ubsan|tsan)\.so\.\d+$)");
    int count = 0;
    for (std::sregex_iterator it(section.begin(), section.end(), needed), end; it != end; ++it) {
        std::string name = (*it)[1];
        count++;
        if (VX_SANITIZED && std::regex_match(name, sanitizer)) continue;
        EXPECT_TRUE(std::regex_match(name, expected)) << name;
    }
    EXPECT_GE(count, 2);
}

TEST(Library, StaysInMemoryOnceLoaded)
{
    EXPECT_THAT(DynamicSection(), ::testing::ContainsRegex("FLAGS_1.*NODELETE"));
}

TEST(Library, SearchesForOthersNowhereOfItsOwn)
{
    if (VX_SANITIZED) GTEST_SKIP() << "a sanitizer's compiler may add a path";
    EXPECT_THAT(DynamicSection(), ::testing::Not(::testing::ContainsRegex("R(UN)?PATH")));
}

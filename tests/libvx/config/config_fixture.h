// What the configuration tests share: a folder of their own, a clean environment, the output.
#ifndef CONFIG_FIXTURE_H
#define CONFIG_FIXTURE_H

#include "tcConfigFile.h"
#include "within.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <locale>
#include <memory>
#include <sstream>
#include <string>

// Collects what is written to std::cout during its life.
class tcCapturedOutput
{
public:
    tcCapturedOutput() : mpBefore(std::cout.rdbuf(mText.rdbuf())) {}
    ~tcCapturedOutput() { std::cout.rdbuf(mpBefore); }
    std::string Text() const { return mText.str(); }

private:
    std::ostringstream mText;
    std::streambuf* mpBefore;
};

// Groups the digits of numbers in threes while it lives, as many locales do.
class tcGroupedNumbers
{
public:
    tcGroupedNumbers() : mBefore(std::locale::global(std::locale(std::locale(), new tcGroups))) {}
    ~tcGroupedNumbers() { std::locale::global(mBefore); }

private:
    struct tcGroups : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::locale mBefore;
};

// A configuration that shows what loading left in it. The trace of directives is not printed.
class tcLoaded : public tcConfigFile
{
public:
    explicit tcLoaded(const char* name) : tcLoaded(name, std::make_unique<tcCapturedOutput>()) {}

    const tItems& Items() const { return mmItems; }
    std::string Errors() const { return mssErrors.str(); }
    bool HasErrors() const { return mbErrors; }
    bool IsEnvOverride() const { return mbEnvOverride; }
    const std::vector<std::string>& Files() const { return mvFilesUsed; }
    std::string Trace() const { return msTrace; }

private:
    tcLoaded(const char* name, std::unique_ptr<tcCapturedOutput> output)
        : tcConfigFile(name), msTrace(output->Text())
    {}

    std::string msTrace;
};

// Each test runs in an empty folder that is removed afterwards.
class ConfigTest : public testing::Test
{
protected:
    ConfigTest()
    {
        tcConfigFile::GetMap().clear();
        for (const char* name : {"CONFIGFILE_ENV_OVERIDE", "CONFIGFILE_PATH", "USERNAME"}) {
            unsetenv(name);
        }
        std::string name = std::filesystem::temp_directory_path() / "vxconfigXXXXXX";
        if (mkdtemp(name.data()) == nullptr) std::abort();
        mFolder = name;
        std::filesystem::current_path(mFolder);
    }
    ~ConfigTest() override
    {
        std::filesystem::current_path(mBefore);
        std::filesystem::remove_all(mFolder);
    }

    static void Write(const std::string& name, const std::string& text)
    {
        std::ofstream(name, std::ios::binary) << text;
    }
    static std::string Read(const std::string& name)
    {
        std::ostringstream text;
        text << std::ifstream(name, std::ios::binary).rdbuf();
        return text.str();
    }

    // The configuration that `text` makes in the file "a.cfg".
    static std::unique_ptr<tcLoaded> Load(const std::string& text)
    {
        Write("a.cfg", text);
        return std::make_unique<tcLoaded>("a.cfg");
    }

    // `text` with the time it was made, which is from `start` to now, replaced by "TIME\n".
    static std::string WithoutTime(std::string text, std::time_t start)
    {
        for (std::time_t t = start; t <= std::time(nullptr); ++t) {
            const std::string stamp = std::ctime(&t);
            const size_t position = text.find(stamp);
            if (position != std::string::npos)
                return text.replace(position, stamp.size(), "TIME\n");
        }
        return text;
    }

    const std::filesystem::path mBefore = std::filesystem::current_path();
    std::filesystem::path mFolder;
};

#endif

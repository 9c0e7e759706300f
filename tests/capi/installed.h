// A folder to build programs in, against an installed tree.
#ifndef INSTALLED_H
#define INSTALLED_H

#include "shell.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

class Installed : public ::testing::Test
{
protected:
    Installed()
    {
        std::string pattern = (fs::temp_directory_path() / "vxcamiface-XXXXXX").string();
        msFolder = mkdtemp(pattern.data());
        setenv("PKG_CONFIG_PATH", VX_PREFIX "/" VX_LIBDIR "/pkgconfig", 1);
        setenv("LD_LIBRARY_PATH", VX_PREFIX "/" VX_LIBDIR, 1);
    }
    ~Installed() override { fs::remove_all(msFolder); }

    void Write(const std::string& name, const std::string& text)
    {
        std::ofstream(msFolder + "/" + name) << text;
    }

    // Runs a command in the test's folder; a failure shows its output.
    std::string Run(const std::string& command)
    {
        int status = -1;
        std::string output = Output("cd " + msFolder + " && " + command + " 2>&1", &status);
        EXPECT_EQ(status, 0) << command << "\n" << output;
        return output;
    }

    std::string msFolder;
};

#endif

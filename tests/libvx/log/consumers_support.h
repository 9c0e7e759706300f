// What the tests of consumers share.
#ifndef CONSUMERS_SUPPORT_H
#define CONSUMERS_SUPPORT_H

#include "log_support.h"

#include <dirent.h>
#include <unistd.h>

#include <sstream>

inline std::string LineOf(tcLogEvent const& event)
{
    std::ostringstream os;
    tcLogStream stream(os);
    stream.Output(event);
    return os.str();
}

// A folder to work in, removed afterwards with the files in it.
class tcWorkFolder
{
public:
    tcWorkFolder()
    {
        msPath = testing::TempDir() + "vxlogXXXXXX";
        EXPECT_NE(nullptr, mkdtemp(msPath.data()));
        char before[4096];
        msBefore = getcwd(before, sizeof before);
        EXPECT_EQ(0, chdir(msPath.c_str()));
    }
    ~tcWorkFolder()
    {
        DIR* folder = opendir(".");
        while (const dirent* entry = readdir(folder))
            unlink(entry->d_name);
        closedir(folder);
        EXPECT_EQ(0, chdir(msBefore.c_str()));
        rmdir(msPath.c_str());
    }

private:
    std::string msPath, msBefore;
};

inline std::vector<std::string> Stored(tcLogBuffer const& buffer)
{
    tcRecords records;
    std::ostringstream os;
    buffer.Dump(os, &records);
    EXPECT_EQ("", os.str());
    return records.Messages();
}

#endif

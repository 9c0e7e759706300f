// What the tests of LOG over TCP share.
#ifndef LOG_HANDLER_SUPPORT_H
#define LOG_HANDLER_SUPPORT_H

#include "debug_support.h"

#include <fstream>
#include <sstream>

inline std::string ContentOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class LogCommand : public Daemon
{
protected:
    LogCommand() : mLogger(*Keep(new tcLog("CAM", 1)))
    {
        char folder[] = "/tmp/log-command-XXXXXX";
        msFolder = mkdtemp(folder);
        std::filesystem::current_path(msFolder);
        Start();
    }
    ~LogCommand() override
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(msFolder);
    }

    // Sends a request that must not be answered.
    void Tell(const std::string& request) { EXPECT_EQ("", Ask(request)) << request; }

    // The same in this thread.
    static void Run(std::string command) { DbgdWB_logPtr->Run(nullptr, command.data()); }

    std::string Description() { return mLogger.HeldConsumer()->Description(); }
    std::string Path(const char* name) const { return msFolder + "/" + name; }

    // How many of the process's descriptors are this file.
    int OpenCount(const std::string& path)
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            if (std::filesystem::read_symlink(entry.path(), error) == path) ++count;
        }
        return count;
    }

    tcLog& mLogger;
    std::string msFolder;
};

#endif

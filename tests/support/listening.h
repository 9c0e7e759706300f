// The ports that a process listens on.
#ifndef LISTENING_H
#define LISTENING_H

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

// By TCP, as the system tells them; none when the process is gone.
inline std::set<int> ListeningPorts(pid_t process)
{
    const std::string folder = "/proc/" + std::to_string(process);
    std::set<std::string> own;
    std::error_code gone;
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd", gone)) {
        const std::string what = std::filesystem::read_symlink(entry.path(), gone).string();
        if (what.rfind("socket:[", 0) == 0) own.insert(what.substr(8, what.size() - 9));
    }
    std::set<int> ports;
    std::ifstream table(folder + "/net/tcp");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number, local, remote, state, inode;
        words >> number >> local >> remote >> state;
        for (int i = 0; i < 6; ++i)
            words >> inode;
        if (state != "0A" || own.count(inode) == 0) continue;
        ports.insert(std::stoi(local.substr(local.find(':') + 1), nullptr, 16));
    }
    return ports;
}

#endif

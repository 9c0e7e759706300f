// What the tests of loading share.
#ifndef LOAD_SUPPORT_H
#define LOAD_SUPPORT_H

#include "config_fixture.h"

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

using tItems = tcConfigFile::tItems;

// What `look` says to a process that may not read everything.
inline bool AsNobody(const std::function<bool()>& look)
{
    const pid_t child = fork();
    if (child == 0) _exit((getuid() == 0 && setuid(65534) != 0) || !look() ? 1 : 0);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

inline int Count(const std::string& text, const std::string& part)
{
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

#endif

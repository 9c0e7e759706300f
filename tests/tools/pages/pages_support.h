// What the tests of the manual and of the completion share.
#ifndef PAGES_SUPPORT_H
#define PAGES_SUPPORT_H

#include "tool_support.h"

inline std::vector<std::string> Command(const std::vector<std::string>& arguments,
                                        std::string* errors)
{
    tcRun::tsHow how;
    how.program = arguments[0];
    tcRun run({arguments.begin() + 1, arguments.end()}, how);
    EXPECT_EQ(run.Exit(), 0);
    *errors = run.Errors();
    std::vector<std::string> lines;
    std::istringstream in(run.Output());
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline bool IsMissing(const std::string& program)
{
    return std::system(("command -v " + program + " >/dev/null").c_str()) != 0;
}

#endif

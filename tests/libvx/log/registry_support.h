// What the registry tells of all loggers.
#ifndef REGISTRY_SUPPORT_H
#define REGISTRY_SUPPORT_H

#include "log_support.h"

#include <sstream>

inline std::string Listing()
{
    std::ostringstream os;
    EXPECT_EQ(0, StreamLogs(os));
    return os.str();
}

#endif

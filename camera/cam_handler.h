// CAM, the debug daemon's command that lists the open cameras; private to the library.
#ifndef CAM_HANDLER_H
#define CAM_HANDLER_H

#include "vxcamext.h"

#include <string>

// What is known of an open camera without asking it.
struct tsCameraFacts {
    std::string type, address; // empty where its transport does not tell
    const char* link = "";     // "connected", "disconnected" or "unknown"
    tsStatistics figures{};
};

// Enters the handler with the process's daemon, the first time it is called; where the token is
// taken by then, it stays so. It is never removed: clients may be served while the process exits.
// Threads: any.
void RegisterCamHandler();

#endif

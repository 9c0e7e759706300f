#ifndef OPTIONS_H
#define OPTIONS_H

#include "tcSimServer.h"

// The options as they are; throws std::runtime_error where one is out of its range.
tsSimOptions CheckedOptions(tsSimOptions options);

#endif

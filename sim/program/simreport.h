// What the program says of what happens.
#ifndef VXSIM_SIMREPORT_H
#define VXSIM_SIMREPORT_H

#include "simoptions.h"

// On standard output, and camera errors on standard error. False when standard output takes
// nothing any more.
bool PrintEvent(const tsProgram& program, const tsSimEvent& event, const tcSimServer& server);

// As a record of the logger vxcamsim. It keeps errors for whoever looks into the process; on
// standard error they have been already.
void LogEvent(const tsSimEvent& event);

#endif

// Who takes error records in place of standard error, private to the library.
#ifndef VX_ERRORTAKER_H
#define VX_ERRORTAKER_H

#include "tcLog.h"

#include <functional>
#include <string>

namespace vx {

// Called with a logger's name and its record, on the thread that logs, one at a time. False: the
// record is printed on standard error all the same. What it logs itself is printed, too.
using tErrorTaker = std::function<bool(std::string const& logger, tcLogEvent const& event)>;

// Replaces the taker of all loggers, with none for an empty one. The former one does not run any
// more when this returns; called by a taker, it does not wait for that one's end.
void SetErrorTaker(tErrorTaker taker);

// Whether there is a taker and it took the record.
bool IsTaken(std::string const& logger, tcLogEvent const& event);

} // namespace vx

#endif

// The ring of error messages, private to the library.
#ifndef VX_RING_H
#define VX_RING_H

#include "tcLog.h"

namespace vx {

// Puts the record's line into the next slot, cut at 255 characters. Nothing happens while there is
// no ring.
void KeepError(tcLogEvent const& event);

} // namespace vx

#endif

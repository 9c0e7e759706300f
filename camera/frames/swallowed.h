// Messages inside a message: what a camera leaves that cuts one short.
#ifndef SWALLOWED_H
#define SWALLOWED_H

#include "vxmessages.h"

// A message that was cut short is filled up with the bytes that follow, which are those of the next
// messages.
enum teSwallowed {
    eSwallowedNothing,
    // Somewhere there is what looks like a header, or at the end like the beginning of one: so it
    // is if the bytes behind the message belong to none. Pixels may look so, too.
    eSwallowedPerhaps,
    // Its end consists of messages, of which the last one may go on behind it.
    eSwallowedMessages
};

// Looks for messages that begin before `end`, counted from the beginning of this one. What lies
// behind it is of no use, and may be what it likes.
teSwallowed FindSwallowed(const tsMsgHeader& message, size_t end);

// Whether there may be so many that the numbers of messages, which wrap, go on behind them as if
// there were none. Looks only where the last one of so many would begin.
bool MayHoldAllNumbers(const tsMsgHeader& message);

#endif

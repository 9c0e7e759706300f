// The replies to a discovery broadcast, private to the library.
#ifndef VX_DISCOVERY_H
#define VX_DISCOVERY_H

#include "vxcamtypes.h"

#include <cstddef>

namespace vx {

// Takes one datagram from the address that stands in list[found] already: fills the rest of that
// record when it is a camera's reply, and returns whether that camera is new, its address not among
// the first `found`. What a short reply lacks reads as zero, what it has too much is not looked at.
bool TakeDiscoveryReply(const void* datagram, size_t length, tsEnetData* list, int found);

} // namespace vx

#endif

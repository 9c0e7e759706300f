// The debug items' inner parts, private to the library.
#ifndef VX_ITEMS_H
#define VX_ITEMS_H

#include <mutex>

class HSocket;

namespace vx {

// Guards the registry of tcDbgItem; never destroyed.
std::recursive_mutex& ItemsLock();

// Reads one request of a client and answers it. Waits for the request as long as
// tcDbgItem::snClientPatience says. False when the connection can be closed; else the client may go
// on sending, and its answer would be lost by that.
bool ServeItemClient(HSocket& client);

} // namespace vx

#endif

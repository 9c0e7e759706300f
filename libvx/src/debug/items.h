// The debug items' inner parts, private to the library.
#ifndef VX_ITEMS_H
#define VX_ITEMS_H

#include <mutex>

class HSocket;

namespace vx {

// Guards the registry of tcDbgItem; never destroyed.
std::recursive_mutex& ItemsLock();

// Reads one request of a client, answers it and closes the connection. Waits for the request, and
// for the client to take the answer, as long as tcDbgItem::snClientPatience says.
void ServeItemClient(HSocket& client);

} // namespace vx

#endif

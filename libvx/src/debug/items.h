// The lock of the debug items, private to the library.
#ifndef VX_ITEMS_H
#define VX_ITEMS_H

#include <mutex>

namespace vx {

// Guards the registry of tcDbgItem; never destroyed.
std::recursive_mutex& ItemsLock();

} // namespace vx

#endif

// Turning host texts into addresses, private to the library.
#ifndef VX_RESOLVE_H
#define VX_RESOLVE_H

#include <netinet/in.h>

namespace vx {

// The first IPv4 address (network order) of a name; waits for the resolver. Safe in all threads.
bool ResolveName(const char* name, in_addr_t* address);

// Digits and dots as an address, anything else by name; INADDR_NONE when it is neither.
in_addr_t AddressOf(const char* host);

} // namespace vx

#endif

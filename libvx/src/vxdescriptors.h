// Numbers of descriptors, private to the library.
#ifndef VX_DESCRIPTORS_H
#define VX_DESCRIPTORS_H

#include <cstdio>

namespace vx {

// While one lives, what is opened gets a descriptor of 3 or above, also when the host has closed
// its standard input, output or error: what it still prints must not end up in a socket or file of
// the library. The closed ones are taken meanwhile by what can be neither read nor written.
//
// Threads: any, several at once. Keeps errno.
// Locks: one of its own, briefly.
class tcAboveStandard
{
public:
    tcAboveStandard();
    ~tcAboveStandard();
    tcAboveStandard(const tcAboveStandard&) = delete;
    tcAboveStandard& operator=(const tcAboveStandard&) = delete;
};

// Opened so: a close-on-exec socket, -1 when there is none to be had; a file, as fopen() does.
int OpenSocket(int domain, int type);
std::FILE* OpenFile(const char* path, const char* mode);

} // namespace vx

#endif

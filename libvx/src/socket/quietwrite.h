// Writing to what may be a pipe, private to the library.
#ifndef VX_QUIETWRITE_H
#define VX_QUIETWRITE_H

#include <sys/types.h>

#include <cstddef>

namespace vx {

// write() without a signal, which no flag can suppress on pipes: without a reader it fails with
// EPIPE.
ssize_t WriteQuietly(int descriptor, const void* data, size_t length);

} // namespace vx

#endif

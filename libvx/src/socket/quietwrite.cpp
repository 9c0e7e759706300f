#include "quietwrite.h"

#include "vxsignals.h"

#include <unistd.h>

ssize_t vx::WriteQuietly(int descriptor, const void* data, size_t length)
{
    tcNoWriteSignals quiet;
    const ssize_t written = write(descriptor, data, length);
    if (written < 0) quiet.MayHaveFailed();
    return written;
}

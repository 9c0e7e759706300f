// Turning records into text, private to the library.
#ifndef VX_RECORD_H
#define VX_RECORD_H

#include "tcLog.h"

#include <cstdarg>
#include <cstddef>

namespace vx {

// Room for every record's line.
constexpr size_t nLineSize = 1024;

// The milliseconds of a record from the microseconds of the clock.
// Kept: rounded so that the last microsecond of a second gives 1000.
constexpr int32_t MillisOf(long microseconds)
{
    return static_cast<int32_t>((microseconds + 1) / 1000);
}

// Writes the record's line, newline included, into `line` and returns its length. No allocation.
size_t FormatRecord(tcLogEvent const& event, char (&line)[nLineSize]);

// vsnprintf(), except that texts whose conversions are all plain ones (%d %i %u %x %s %%, with or
// without an l, and a percent sign at the end) are made several times as fast, and that something
// is left of what vsnprintf() refuses: what it made of it, or else the format as it stands. With
// `isVisible`, control characters of %s are made visible, and where there are other conversions
// all.
void FormatText(char* text, size_t size, const char* format, va_list args, bool isVisible)
    __attribute__((format(printf, 3, 0)));

// Whether `format` can do with eight zeros for its arguments: it asks for no more, and stores
// nothing through any of them.
bool TakesZeros(const char* format);

} // namespace vx

#endif

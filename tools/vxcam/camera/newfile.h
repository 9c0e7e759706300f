// A file that appears under its name only when it is whole.
#ifndef NEWFILE_H
#define NEWFILE_H

#include <atomic>
#include <cstddef>
#include <string>

// Refuses what WriteNewFile would refuse, so that it is known before an exposure: an existing file
// unless `force`, anything there that is no regular file, a folder that is missing or cannot be
// written to. Throws tcFailure with eExitFile.
void CheckNewFile(const std::string& path, bool force);

// Writes a hidden file beside `path`, has it reach the disk and gives it its name. An existing file
// is replaced with `force` and otherwise left as it is, also when it appears meanwhile. When
// anything fails, nothing of the new file stays. Ends early when `cancelled` becomes true. Throws
// tcFailure with eExitFile.
void WriteNewFile(const std::string& path, const void* bytes, size_t count, bool force,
                  const std::atomic<bool>& cancelled);

#endif
